// Arbitrary text through the JSON parser, as UTF-8 and as raw UTF-16 units (which reach the
// tokens recognised by a unit's low byte): a value or nil, never a crash, a hang or deep
// recursion.

#include "platform/values/String.h"
#include "utilities/data/TXJSONParser.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    bool success = false;
    zon::Ref<zon::Object> value = zon::TXJSONParser::JsonDecode_withSuccess(
        zon::String::stringWithUTF8String(std::string_view(reinterpret_cast<const char*>(data), size)), &success);
    if (!success && value)
        std::abort();
    std::u16string units(size / 2, u'\0');
    std::memcpy(units.data(), data, units.size() * 2);
    value = zon::TXJSONParser::JsonDecode_withSuccess(zon::String::stringWithCharacters(units), &success);
    if (!success && value)
        std::abort();
    return 0;
}
