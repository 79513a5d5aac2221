// Parses two version texts (the input split at its first NUL byte) and compares them, and makes a
// third version straight from up to four raw parts (the input split at every NUL, so parts may
// hold "."). Checks that parsing gives four clean parts, and that compare, which walks the parts
// without joining them, answers what the comparison of the joined text answers, both ways round.

#include "FuzzSupport.h"

#include "platform/values/String.h"
#include "versions/TXZonVersion.h"

#include <array>
#include <cstdint>
#include <string_view>

using namespace zon;
using zon::fuzz::check;
using zon::fuzz::textOf;

namespace {

// The comparison as stated: over the text "%@.%@.%@.%@", component by component.
long joinedTextComparison(const TXZonVersion* left, const TXZonVersion* right)
{
    auto joined = [](const TXZonVersion* version) {
        if (!version)
            return String::stringWithFormat("%@.%@.%@.%@", nullptr, nullptr, nullptr, nullptr);
        return String::stringWithFormat("%@.%@.%@.%@", version->majorValue(), version->minorValue(),
            version->bugfixValue(), version->buildValue());
    };
    const Ref<String> a = joined(left), b = joined(right);
    const std::u16string_view x = a->view(), y = b->view();
    size_t i = 0, j = 0;
    auto component = [](std::u16string_view text, size_t& at) {
        uint32_t value = 0;
        while (at < text.size()) {
            const char16_t unit = text[at++];
            if (unit == u'.')
                break;
            if (unit >= u'0' && unit <= u'9')
                value = value * 10 + uint32_t(unit - u'0');
        }
        return value;
    };
    while (i < x.size() || j < y.size()) {
        const uint32_t l = component(x, i), r = component(y, j);
        if (l != r)
            return l > r ? 1 : -1;
    }
    return 0;
}

void checkComparison(const TXZonVersion* left, const TXZonVersion* right)
{
    const long expected = joinedTextComparison(left, right);
    check(left->compare(right) == expected);
    if (right)
        check(right->compare(left) == -expected);
}

void checkParsed(const TXZonVersion* version)
{
    for (const String* part : {version->majorValue(), version->minorValue(), version->bugfixValue(), version->buildValue()}) {
        const std::u16string_view units = part->view();
        check(!units.empty() && units.find(u'.') == std::u16string_view::npos);
        check(units == u"0" || units.front() != u'0');
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const size_t nul = bytes.find('\0');
    Ref<TXZonVersion> left = TXZonVersion::versionWithString(textOf(bytes.substr(0, nul)).get());
    Ref<TXZonVersion> right = TXZonVersion::versionWithString(
        textOf(nul == std::string_view::npos ? std::string_view() : bytes.substr(nul + 1)).get());
    checkParsed(left.get());
    checkParsed(right.get());
    checkComparison(left.get(), right.get());
    checkComparison(left.get(), nullptr);
    check(left->isEqual(right.get()) == (left->compare(right.get()) == 0));

    std::array<Ref<String>, 4> raw;
    std::string_view rest = bytes;
    for (Ref<String>& part : raw) {
        const size_t end = rest.find('\0');
        part = textOf(rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    Ref<TXZonVersion> unparsed = TXZonVersion::versionWithMajorVersion_minorVersion_bugFixVersion_build(
        raw[0].get(), raw[1].get(), raw[2].get(), raw[3].get());
    checkComparison(unparsed.get(), left.get());
    return 0;
}
