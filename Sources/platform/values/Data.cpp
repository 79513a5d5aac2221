#include "platform/values/Data.h"

#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string_view>

namespace zon {

ZON_DEFINE_CLASS(Data, "NSData")
ZON_DEFINE_CLASS(MutableData, "NSMutableData")

namespace {

bool rangeFits(Range range, size_t length) { return range.location <= length && range.length <= length - range.location; }

} // namespace

Ref<Data> Data::data() { return makeObject<Data>(); }

Ref<Data> Data::dataWithBytes(const void* bytes, size_t length)
{
    const auto* first = static_cast<const uint8_t*>(bytes);
    return makeObject<Data>(length ? ByteVector(first, first + length) : ByteVector());
}

Ref<Data> Data::dataWithVector(ByteVector bytes) { return makeObject<Data>(std::move(bytes)); }

Ref<Data> Data::dataWithData(const Data* data) { return data ? makeObject<Data>(data->bytes_) : Data::data(); }

void Data::checkRange(Range range, const char* operation) const
{
    if (rangeFits(range, bytes_.size()))
        return;
    char reason[160];
    std::snprintf(reason, sizeof reason, "%s: range {%lu, %lu} exceeds data length %lu", operation,
        static_cast<unsigned long>(range.location), static_cast<unsigned long>(range.length),
        static_cast<unsigned long>(bytes_.size()));
    raisePlatformException(NSRangeException, reason);
}

Ref<Data> Data::subdataWithRange(Range range) const
{
    checkRange(range, "-[NSData subdataWithRange:]");
    return dataWithBytes(bytes_.data() + range.location, range.length);
}

void Data::getBytes_range(void* buffer, Range range) const
{
    checkRange(range, "-[NSData getBytes:range:]");
    if (range.length)
        std::memcpy(buffer, bytes_.data() + range.location, range.length);
}

bool Data::isEqualToData(const Data* other) const { return other && (other == this || bytes_ == other->bytes_); }

bool Data::isEqual(const Object* other) const
{
    const Data* data = dynamicCast<Data>(other);
    return data && isEqualToData(data);
}

size_t Data::hash() const
{
    // The length and the first 80 bytes, so that hashing a large buffer stays cheap.
    const size_t prefix = std::min<size_t>(bytes_.size(), 80);
    std::string_view head(reinterpret_cast<const char*>(bytes_.data()), prefix);
    return std::hash<std::string_view>()(head) ^ (bytes_.size() * 0x9e3779b97f4a7c15ULL);
}

Ref<String> Data::description() const
{
    static constexpr char kHex[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 + bytes_.size() * 2 + bytes_.size() / 4);
    text += '<';
    for (size_t i = 0; i < bytes_.size(); ++i) {
        if (i && i % 4 == 0)
            text += ' ';
        text += kHex[bytes_[i] >> 4];
        text += kHex[bytes_[i] & 15];
    }
    text += '>';
    return String::stringWithUTF8String(text);
}

Ref<Object> Data::copy() const { return Ref<Object>(const_cast<Data*>(this)); }

Ref<Object> Data::mutableCopy() const { return MutableData::dataWithData(this); }

// MutableData

Ref<MutableData> MutableData::data() { return makeObject<MutableData>(); }

Ref<MutableData> MutableData::dataWithCapacity(size_t capacity)
{
    auto data = makeObject<MutableData>();
    data->bytes_.reserve(capacity);
    return data;
}

Ref<MutableData> MutableData::dataWithLength(size_t length) { return makeObject<MutableData>(ByteVector(length, 0)); }

Ref<MutableData> MutableData::dataWithBytes(const void* bytes, size_t length)
{
    auto data = makeObject<MutableData>();
    data->appendBytes_length(bytes, length);
    return data;
}

Ref<MutableData> MutableData::dataWithData(const Data* data)
{
    return makeObject<MutableData>(data ? ByteVector(data->span().begin(), data->span().end()) : ByteVector());
}

void MutableData::appendBytes_length(const void* bytes, size_t length)
{
    if (!length)
        return;
    if (!bytes)
        raisePlatformException(NSInvalidArgumentException, "*** -[NSMutableData appendBytes:length:]: null pointer");
    const auto* first = static_cast<const uint8_t*>(bytes);
    if (first >= bytes_.data() && first < bytes_.data() + bytes_.size()) {
        // Appending part of itself: the storage may move while it grows.
        ByteVector own(first, first + length);
        bytes_.insert(bytes_.end(), own.begin(), own.end());
        return;
    }
    // std::vector grows its capacity geometrically.
    bytes_.insert(bytes_.end(), first, first + length);
}

void MutableData::appendData(const Data* data)
{
    if (data)
        appendBytes_length(data->bytes(), data->length());
}

void MutableData::setLength(size_t length)
{
    // Growing by resize at least doubles the capacity, so repeated small growth stays linear.
    bytes_.resize(length, 0);
}

void MutableData::increaseLengthBy(size_t extraLength)
{
    if (extraLength > bytes_.max_size() - bytes_.size())
        raisePlatformException(NSMallocException, "*** -[NSMutableData increaseLengthBy:]: length overflow");
    setLength(bytes_.size() + extraLength);
}

void MutableData::replaceBytesInRange_withBytes(Range range, const void* bytes)
{
    checkRange(range, "-[NSMutableData replaceBytesInRange:withBytes:]");
    if (range.length)
        std::memmove(bytes_.data() + range.location, bytes, range.length);
}

void MutableData::replaceBytesInRange_withBytes_length(Range range, const void* bytes, size_t length)
{
    checkRange(range, "-[NSMutableData replaceBytesInRange:withBytes:length:]");
    if (length && !bytes)
        raisePlatformException(NSInvalidArgumentException,
            "*** -[NSMutableData replaceBytesInRange:withBytes:length:]: null pointer");
    // The replacement may point into this data: take a copy before the storage moves.
    const auto* first = static_cast<const uint8_t*>(bytes);
    ByteVector replacement(first, first + length);
    auto at = bytes_.begin() + static_cast<std::ptrdiff_t>(range.location);
    const size_t common = std::min(range.length, length);
    std::copy_n(replacement.begin(), common, at);
    if (length > range.length)
        bytes_.insert(at + static_cast<std::ptrdiff_t>(common), replacement.begin() + static_cast<std::ptrdiff_t>(common), replacement.end());
    else
        bytes_.erase(at + static_cast<std::ptrdiff_t>(common), at + static_cast<std::ptrdiff_t>(range.length));
}

void MutableData::resetBytesInRange(Range range)
{
    checkRange(range, "-[NSMutableData resetBytesInRange:]");
    std::fill_n(bytes_.begin() + static_cast<std::ptrdiff_t>(range.location), range.length, 0);
}

void MutableData::setData(const Data* data)
{
    if (data == this)
        return;
    if (data)
        bytes_.assign(data->span().begin(), data->span().end());
    else
        bytes_.clear();
}

Ref<Object> MutableData::copy() const { return Data::dataWithBytes(bytes_.data(), bytes_.size()); }

} // namespace zon
