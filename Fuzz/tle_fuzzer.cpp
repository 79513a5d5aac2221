// Every TLE reader (and the string writer) driven by arbitrary bytes: the first byte picks the
// operation, the next ones its lengths and offsets, the rest is the data or stream. Failures must
// be the documented exceptions, never a crash.

#include "platform/values/Data.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/io/InputStream.h"
#include "utilities/data/TXZonTLEUnicodeServiceUtilities.h"
#include "utilities/data/TXZonTLEUtilities.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

using zon::TXZonTLEUtilities;

uint32_t take32(const uint8_t*& data, size_t& size)
{
    uint32_t value = 0;
    const size_t count = size < 4 ? size : 4;
    std::memcpy(&value, data, count);
    data += count;
    size -= count;
    return value;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const uint8_t operation = *data++;
    --size;
    const uint32_t first = take32(data, size);
    const uint32_t second = take32(data, size);
    zon::Ref<zon::Data> bytes = zon::Data::dataWithBytes(data, size);
    zon::Ref<zon::InputStream> stream = zon::InputStream::inputStreamWithData(bytes);
    // Any length: a stream reader allocates about what the stream delivers, not what it is asked.
    const uint32_t streamLength = first;
    try {
        switch (operation % 11) {
        case 0: TXZonTLEUtilities::readUInt64From_length(stream, streamLength & 0xF); break;
        case 1: TXZonTLEUtilities::readUInt32From_length(stream, streamLength & 0xF); break;
        case 2: TXZonTLEUtilities::readBytesFrom_length(stream, streamLength); break;
        case 3: TXZonTLEUtilities::readStringFrom_length(stream, streamLength); break;
        case 4: TXZonTLEUtilities::readUInt64From_atLocation(bytes, first); break;
        case 5: TXZonTLEUtilities::readUInt32From_atLocation(bytes, first); break;
        case 6: TXZonTLEUtilities::readBytesFrom_atLocation_length(bytes, first, second); break;
        case 7: TXZonTLEUtilities::readStringFrom_atLocation_length(bytes, first, second); break;
        case 8: {
            zon::Ref<zon::Number> value;
            TXZonTLEUtilities::readCompressedIntFrom_atLocation_into(bytes, first, &value);
            break;
        }
        default: {
            // The rest as UTF-16 units, encoded as a string field over a range taken from the input.
            std::u16string units(size / 2, u'\0');
            std::memcpy(units.data(), data, units.size() * 2);
            zon::Ref<zon::String> text = zon::String::stringWithCharacters(units);
            zon::Ref<zon::MutableData> buffer = zon::MutableData::data();
            const auto offset = static_cast<int32_t>(static_cast<int16_t>(first));
            const auto length = static_cast<int32_t>(static_cast<int16_t>(second));
            if (operation % 11 == 9)
                TXZonTLEUtilities::writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength_andNullTerminate(buffer, 1,
                    text, offset, length, operation & 0x80);
            else
                TXZonTLEUtilities::writeStringFieldToBuffer_ofType_withValue(buffer, 1, text);
            break;
        }
        }
    } catch (const zon::Exception&) {
        // The documented failures: short reads, bad lengths, ranges past the end.
    }
    return 0;
}
