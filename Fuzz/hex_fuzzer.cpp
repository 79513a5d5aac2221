// Hexadecimal text of any content, read as UTF-8 and as raw UTF-16 units: decoding never fails
// and never reads outside the text; encoding the result and decoding again gives it back.

#include "extensions/NSData+ZonExtensions.h"
#include "platform/values/String.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

void decodeAndRoundTrip(const zon::String* text)
{
    zon::Ref<zon::Data> data = zon::Data::dataFromHexStringRepresentation(text);
    if (data->length() > 2 * (text ? text->length() : 0) + 1)
        std::abort();
    zon::Ref<zon::Data> again = zon::Data::dataFromHexStringRepresentation(data->hexStringRepresentation());
    if (!again->isEqualToData(data))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    decodeAndRoundTrip(zon::String::stringWithUTF8String(std::string_view(reinterpret_cast<const char*>(data), size)));
    std::u16string units(size / 2, u'\0');
    std::memcpy(units.data(), data, units.size() * 2);
    decodeAndRoundTrip(zon::String::stringWithCharacters(units));
    return 0;
}
