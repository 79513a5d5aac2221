#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/ByteVector.h"
#include "platform/values/Range.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zon {

class MutableData;

// An immutable run of bytes; run-time class NSData. Safe to share between threads.
//
// The description is the classic form: the bytes in hexadecimal between angle brackets, a space
// after every fourth byte: "<01020304 05>", "<>" when empty.
class ZON_EXPORT Data : public Object {
    ZON_OBJECT(Data, Object)
public:
    static Ref<Data> data();
    // Copies length bytes from bytes (which may be null when length is 0).
    static Ref<Data> dataWithBytes(const void* bytes, size_t length);
    static Ref<Data> dataWithBytes(std::span<const uint8_t> bytes) { return dataWithBytes(bytes.data(), bytes.size()); }
    // Takes the vector's storage without copying.
    static Ref<Data> dataWithVector(ByteVector bytes);
    static Ref<Data> dataWithData(const Data* data);

    // NSString bridges: the UTF-8 bytes of a string (nil for a nil string).
    static Ref<Data> dataWithUTF8OfString(const String* string);

    size_t length() const { return bytes_.size(); }
    const void* bytes() const { return bytes_.data(); }
    std::span<const uint8_t> span() const { return bytes_; }
    // Raises NSRangeException "-[NSData subdataWithRange:]: range {%lu, %lu} exceeds data length %lu".
    Ref<Data> subdataWithRange(Range range) const;
    // Copies the bytes of range into buffer; raises NSRangeException past the end.
    void getBytes_range(void* buffer, Range range) const;

    bool isEqualToData(const Data* other) const;

    // ---- NSData(ZonExtensions) ------------------------------------------------------------------
    // Every byte as two upper-case hexadecimal digits, no separators ("00AB10"; "" when empty).
    Ref<String> hexStringRepresentation() const;

    // ---- NSData(InitializationZonExtensions) ----------------------------------------------------
    // Hexadecimal text to bytes. Blanks, tabs and line feeds are removed; the UTF-8 of the rest
    // (up to a U+0000) gives (byte count / 2) bytes, each pair read as strtol reads two
    // characters in base 16: "zz" is 0x00, "1z" 0x01, "-1" 0xFF; an odd last character is
    // dropped. Never fails.
    static Ref<Data> dataFromHexStringRepresentation(const String* text);

    // ---- NSData(ManipulationZonExtensions) ------------------------------------------------------
    // The MD5 digest as 32 upper-case hexadecimal digits.
    Ref<String> md5Hash() const;
    // The gzip file format (default level, 32 KB window, memory level 8); nil when the
    // compressor cannot be set up. An empty receiver answers itself.
    Ref<Data> gzipWithZlib() const;
    // Inflates gzip or zlib framing (told apart by the header); nil, with a level-1 log line,
    // when the data is corrupt. A stream cut short answers what it inflated so far; only the
    // first gzip member is read. An empty receiver answers itself.
    Ref<Data> gunzipWithZlib() const;

    // ---- NSData(DataFetchZonExtensions) ---------------------------------------------------------
    // Copy 1, 2, 4 or 8 bytes at *offset in host order and advance *offset past them; when fewer
    // bytes remain they answer false and touch neither the value nor the offset.
    bool getByte_offset(uint8_t* value, uint32_t* offset) const;
    bool getShort_offset(uint16_t* value, uint32_t* offset) const;
    bool getInteger_offset(uint32_t* value, uint32_t* offset) const;
    bool getLongLong_offset(uint64_t* value, uint32_t* offset) const;

    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<Object> copy() const override;
    Ref<Object> mutableCopy() const override;

protected:
    Data() = default;
    explicit Data(ByteVector bytes) : bytes_(std::move(bytes)) {}

    // Raises NSRangeException when range does not fit, naming the operation as in "-[NSData subdataWithRange:]".
    void checkRange(Range range, const char* operation) const;

    ByteVector bytes_;
};

// Bytes that can change; run-time class NSMutableData. Appends grow the storage geometrically.
// Not safe to change from one thread while another reads it.
class ZON_EXPORT MutableData final : public Data {
    ZON_OBJECT(MutableData, Data)
public:
    static Ref<MutableData> data();
    static Ref<MutableData> dataWithCapacity(size_t capacity);
    // length zero bytes.
    static Ref<MutableData> dataWithLength(size_t length);
    static Ref<MutableData> dataWithBytes(const void* bytes, size_t length);
    static Ref<MutableData> dataWithData(const Data* data);

    void* mutableBytes() { return bytes_.data(); }
    std::span<uint8_t> mutableSpan() { return bytes_; }

    // Null bytes with a non-zero length raise NSInvalidArgumentException.
    void appendBytes_length(const void* bytes, size_t length);
    void appendBytes(std::span<const uint8_t> bytes) { appendBytes_length(bytes.data(), bytes.size()); }
    void appendData(const Data* data);
    // Growing fills with zero bytes.
    void setLength(size_t length);
    void increaseLengthBy(size_t extraLength);
    // Overwrites range.length bytes at range.location; raises NSRangeException past the end.
    void replaceBytesInRange_withBytes(Range range, const void* bytes);
    // Replaces range by length bytes (the data grows or shrinks); NSRangeException past the end.
    void replaceBytesInRange_withBytes_length(Range range, const void* bytes, size_t length);
    // Zeroes the bytes of range; NSRangeException past the end.
    void resetBytesInRange(Range range);
    void setData(const Data* data);

    // ---- NSMutableData(ZonExtensions) -----------------------------------------------------------
    // Append a value in host order, or big-endian when asBigEndian is true.
    void appendByte(uint8_t value);
    void appendShort(uint16_t value);
    void appendLong(uint32_t value);
    void appendLongLong(uint64_t value);
    void appendShort_asBigEndian(uint16_t value, bool asBigEndian);
    void appendLong_asBigEndian(uint32_t value, bool asBigEndian);
    void appendLongLong_asBigEndian(uint64_t value, bool asBigEndian);

    // ---- NSMutableData(ExplicitSizeZonExtensions): the same under width-explicit names ---------
    void appendUInt8(uint8_t value) { appendByte(value); }
    void appendUInt16(uint16_t value) { appendShort(value); }
    void appendUInt32(uint32_t value) { appendLong(value); }
    void appendUInt64(uint64_t value) { appendLongLong(value); }
    void appendUInt16_asBigEndian(uint16_t value, bool asBigEndian) { appendShort_asBigEndian(value, asBigEndian); }
    void appendUInt32_asBigEndian(uint32_t value, bool asBigEndian) { appendLong_asBigEndian(value, asBigEndian); }
    void appendUInt64_asBigEndian(uint64_t value, bool asBigEndian) { appendLongLong_asBigEndian(value, asBigEndian); }

    Ref<Object> copy() const override;

private:
    MutableData() = default;
    explicit MutableData(ByteVector bytes) : Data(std::move(bytes)) {}
};

// The string the UTF-8 bytes of data spell, or nil when they are not valid UTF-8 (or data is nil).
ZON_EXPORT Ref<String> stringWithUTF8Data(const Data* data);

} // namespace zon
