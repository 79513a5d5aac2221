// Arbitrary format strings against a fixed set of arguments of every kind: the engine must
// neither crash nor read outside its arguments, in either output encoding.

#include "platform/values/Format.h"
#include "platform/values/String.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace zon;
    static const Ref<String> text = String::stringWithUTF8String("description \xe2\x82\xac");
    static const char16_t wide[] = u"wide \U0001F600";
    static const long double extended = 1.0L / 3.0L;
    int local = 0;
    const auto args = makeFormatArguments(-42, 42u, static_cast<short>(-1), 'c', 3.5, extended, "utf8", wide,
        text, nullptr, static_cast<void*>(&local), selector("fuzz:"), std::numeric_limits<long long>::min(),
        static_cast<const char*>(nullptr));
    const std::string_view format(reinterpret_cast<const char*>(data), size);
    std::string utf8;
    appendFormatUTF8(utf8, format, args);
    std::u16string utf16;
    appendFormatUTF16(utf16, format, args);
    return 0;
}
