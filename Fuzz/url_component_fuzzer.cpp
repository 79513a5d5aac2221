// Joins arbitrary URL text and components (the input split at its first NUL byte) and checks
// the joiner's promises: ASCII receivers never raise, the receiver (less at most its last "/")
// starts the result, and the component (less at most its first unit) ends it.

#include "FuzzSupport.h"

#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <cstdint>
#include <string>

using namespace zon;
using zon::fuzz::check;
using zon::fuzz::textOf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const size_t nul = bytes.find('\0');
    Ref<String> receiver = textOf(bytes.substr(0, nul));
    Ref<String> component = textOf(nul == std::string_view::npos ? std::string_view() : bytes.substr(nul + 1));
    const bool ascii = utf::utf8LengthOfUTF16(receiver->view()) == receiver->length();

    Ref<String> joined;
    try {
        joined = receiver->stringByAppendingURLComponent(component.get());
    } catch (const Exception& exception) {
        check(exception.name()->isEqualToString(NSRangeException));
        check(!ascii || !receiver->length());
        return 0;
    }
    const std::u16string_view result = joined->view();
    if (!component->length()) {
        check(joined->isEqualToString(receiver.get()));
        return 0;
    }
    std::u16string_view head = receiver->view();
    if (head.ends_with(u"/"))
        head.remove_suffix(1);
    check(result.starts_with(head));
    check(result.ends_with(component->view().substr(1)));
    check(result.size() <= receiver->length() + component->length() + 1);
    return 0;
}
