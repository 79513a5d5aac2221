// Reads arbitrary bytes as a process's argument area and checks the reading's rules: arguments
// are non-empty and hold "=" only when they begin with "--", environment keys hold no "=", and
// no argument equals the path.

#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonProcessArgumentAreaInternal.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace zon;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const ProcessArgumentArea area = parseProcessArgumentArea({reinterpret_cast<const char*>(data), size});
    for (Object* object : *area.arguments) {
        const std::u16string_view argument = static_cast<String*>(object)->view();
        check(!argument.empty() && argument.find(u'\0') == std::u16string_view::npos);
        check(argument.find(u'=') == std::u16string_view::npos || argument.starts_with(u"--"));
        check(!area.pathCandidate || argument.starts_with(u"--") || !object->isEqual(area.pathCandidate.get()));
    }
    Ref<Array> keys = area.environment->allKeys();
    for (Object* key : *keys)
        check(static_cast<String*>(key)->view().find(u'=') == std::u16string_view::npos);
    if (area.pathCandidate)
        check(area.pathCandidate->view().find(u'=') == std::u16string_view::npos);
    return 0;
}
