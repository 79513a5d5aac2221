// NSMutableData(ZonExtensions) and NSMutableData(ExplicitSizeZonExtensions): fixed-size values
// appended in host order or big-endian.

#include "platform/values/Data.h"

#include <cstring>
#include <type_traits>

namespace zon {

namespace {

template <class T>
void appendValue(MutableData& data, T value, bool asBigEndian)
{
    static_assert(std::is_unsigned_v<T>);
    unsigned char bytes[sizeof value];
    if (asBigEndian) {
        for (size_t i = 0; i < sizeof value; ++i)
            bytes[i] = static_cast<unsigned char>(value >> (8 * (sizeof value - 1 - i)));
    } else {
        std::memcpy(bytes, &value, sizeof value);
    }
    data.appendBytes_length(bytes, sizeof value);
}

} // namespace

void MutableData::appendByte(uint8_t value) { appendBytes_length(&value, 1); }
void MutableData::appendShort(uint16_t value) { appendValue(*this, value, false); }
void MutableData::appendLong(uint32_t value) { appendValue(*this, value, false); }
void MutableData::appendLongLong(uint64_t value) { appendValue(*this, value, false); }
void MutableData::appendShort_asBigEndian(uint16_t value, bool asBigEndian) { appendValue(*this, value, asBigEndian); }
void MutableData::appendLong_asBigEndian(uint32_t value, bool asBigEndian) { appendValue(*this, value, asBigEndian); }
void MutableData::appendLongLong_asBigEndian(uint64_t value, bool asBigEndian) { appendValue(*this, value, asBigEndian); }

} // namespace zon
