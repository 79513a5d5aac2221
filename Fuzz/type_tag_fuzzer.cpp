// Type identifiers of arbitrary tags (file name extensions and MIME types come from outside): the
// answer is a declared type or a dynamic identifier whose base-32 text decodes to "?…=…" again.

#include "FuzzSupport.h"

#include "platform/io/TypeIdentifiers.h"

#include <cstdint>
#include <string>

using namespace zon;

namespace {

std::string decodeBase32(std::string_view text)
{
    static constexpr std::string_view kAlphabet = "abcdefghkmnpqrstuvwxyz0123456789";
    std::string bytes;
    uint32_t bits = 0;
    int held = 0;
    for (char c : text) {
        const size_t value = kAlphabet.find(c);
        fuzz::check(value != std::string_view::npos);
        bits = (bits << 5) | uint32_t(value);
        held += 5;
        if (held >= 8) {
            held -= 8;
            bytes += static_cast<char>((bits >> held) & 0xff);
        }
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const auto tagClass = static_cast<TypeTagClass>(data[0] % 3);
    const std::string_view tag(reinterpret_cast<const char*>(data + 1), size - 1);
    for (std::string_view constraint : {std::string_view {}, std::string_view {"public.data"}}) {
        const std::string identifier = preferredTypeIdentifierForTag(tagClass, tag, constraint);
        fuzz::check(identifier == preferredTypeIdentifierForTag(tagClass, tag, constraint));
        if (identifier.starts_with("dyn.a")) {
            const std::string text = decodeBase32(std::string_view(identifier).substr(5));
            fuzz::check(text.starts_with("?") && text.find('=') != std::string::npos);
        } else {
            fuzz::check(constraint.empty() || typeConformsTo(identifier, constraint));
        }
    }
    return 0;
}
