#include "utilities/data/TXZonTLEUtilities.h"

#include "platform/values/Data.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/io/InputStream.h"
#include "utilities/data/TXZonTLEUnicodeServiceUtilities.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

namespace zon {

namespace {

[[noreturn]] void raiseInconsistency(std::string_view reason)
{
    raisePlatformException(NSInternalInconsistencyException, reason);
}

// A writer handed a nil buffer does nothing, as a message to nil does.
void appendBytes(MutableData* buffer, const void* bytes, size_t length)
{
    if (buffer)
        buffer->appendBytes_length(bytes, length);
}

void appendByte(MutableData* buffer, uint8_t value) { appendBytes(buffer, &value, 1); }

// The low byteCount bytes of value, most significant first.
void appendBigEndian(MutableData* buffer, uint64_t value, int byteCount)
{
    uint8_t bytes[8];
    for (int i = 0; i < byteCount; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * (byteCount - 1 - i)));
    appendBytes(buffer, bytes, static_cast<size_t>(byteCount));
}

// The shift of the most significant 7-bit group that is not zero (0 for values below 128).
int topGroupShift(uint32_t value)
{
    int shift = 28;
    while (shift > 0 && (value & (0x7Fu << shift)) == 0)
        shift -= 7;
    return shift;
}

int32_t compressedSize(uint32_t value) { return topGroupShift(value) / 7 + 1; }

void writeFixedWidthField(MutableData* buffer, int32_t type, uint64_t value, int byteCount)
{
    appendByte(buffer, static_cast<uint8_t>(type));
    TXZonTLEUtilities::writeCompressedIntTo_withValue(buffer, static_cast<uint32_t>(byteCount));
    appendBigEndian(buffer, value, byteCount);
}

// Reads exactly length bytes and one spare byte after them for a terminator. A length up to
// kFirstReadStep is one read; a longer one is read in steps as large as what has arrived so far,
// so that a length the stream does not back costs no more memory than the bytes it delivers. A
// read that delivers other than it asked for fails the whole read; a short read is not retried.
ByteVector readExactly(InputStream* stream, uint32_t length, std::string_view failureReason)
{
    constexpr size_t kFirstReadStep = 64 * 1024;
    ByteVector bytes;
    size_t filled = 0;
    do {
        const size_t step = std::min(length - filled, std::max(kFirstReadStep, filled));
        bytes.resize(filled + step + 1);
        const long delivered = stream ? stream->read_maxLength(bytes.data() + filled, step) : 0;
        if (delivered != static_cast<long>(step))
            raiseInconsistency(failureReason);
        filled += step;
    } while (filled < length);
    return bytes;
}

// The bytes of range copied out of data: Data::getBytes_range raises NSRangeException past the
// end (checked before anything is allocated). Nil data reads as zeros.
ByteVector copyRange(const Data* data, uint32_t location, uint32_t length, size_t spare = 0)
{
    const Range range {location, length};
    if (data && (size_t {location} > data->length() || length > data->length() - location))
        data->getBytes_range(nullptr, range);
    ByteVector bytes(size_t {length} + spare, 0);
    if (data)
        data->getBytes_range(bytes.data(), range);
    return bytes;
}

Ref<String> stringFromZeroTerminatedUTF8(const uint8_t* bytes)
{
    return String::stringWithUTF8String(reinterpret_cast<const char*>(bytes));
}

} // namespace

// Writers

void TXZonTLEUtilities::writeByteFieldToBuffer_ofType_withValue(MutableData* buffer, int32_t type, uint8_t value)
{
    writeFixedWidthField(buffer, type, value, 1);
}

void TXZonTLEUtilities::writeBooleanFieldToBuffer_ofType_withValue(MutableData* buffer, int32_t type, bool value)
{
    writeFixedWidthField(buffer, type, value ? 1 : 0, 1);
}

void TXZonTLEUtilities::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(MutableData* buffer, int32_t type,
    uint32_t value, bool use4Bytes)
{
    const int byteCount = use4Bytes || value >= 0x10000 ? 4 : (value >= 0x100 ? 2 : 1);
    writeFixedWidthField(buffer, type, value, byteCount);
}

void TXZonTLEUtilities::writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(MutableData* buffer, int32_t type,
    uint64_t value, bool use8Bytes)
{
    int byteCount = 1;
    if (use8Bytes || value >> 32)
        byteCount = 8;
    else if (value >= 0x10000)
        byteCount = 4;
    else if (value >= 0x100)
        byteCount = 2;
    writeFixedWidthField(buffer, type, value, byteCount);
}

int32_t TXZonTLEUtilities::writeDataFieldToBuffer_ofType_withData_ofLength(MutableData* buffer, int32_t type,
    const void* bytes, uint32_t length)
{
    appendByte(buffer, static_cast<uint8_t>(type));
    const int32_t lengthSize = writeCompressedIntTo_withValue(buffer, length);
    if (bytes)
        appendBytes(buffer, bytes, length);
    return lengthSize;
}

void TXZonTLEUtilities::writeDataFieldToBuffer_ofType_withValue_atIndex_ofLength_andNullTerminate(MutableData* buffer,
    int32_t type, const String* value, uint32_t index, uint32_t count, bool nullTerminate)
{
    appendByte(buffer, static_cast<uint8_t>(type));
    writeCompressedIntTo_withValue(buffer, count + (nullTerminate ? 1 : 0));
    if (count > 0) {
        // The units that exist are written before an index past the string raises.
        const size_t available = value && index < value->length() ? value->length() - index : 0;
        const size_t inRange = value ? std::min<size_t>(count, available) : count;
        ByteVector bytes(inRange);
        for (size_t i = 0; value && i < inRange; ++i)
            bytes[i] = static_cast<uint8_t>(value->characters()[index + i]);
        appendBytes(buffer, bytes.data(), bytes.size());
        if (inRange < count)
            value->characterAtIndex(size_t {index} + inRange);
    }
    if (nullTerminate)
        appendByte(buffer, 0);
}

void TXZonTLEUtilities::writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength_andNullTerminate(
    MutableData* buffer, int32_t type, const String* value, int32_t offset, int32_t length, bool nullTerminate)
{
    appendByte(buffer, static_cast<uint8_t>(type));
    Ref<MutableData> encoded = MutableData::data();
    bool isUTF16 = false;
    // The end handed on is the length minus the offset; with offset 0 that is the length.
    const auto end = static_cast<int32_t>(static_cast<uint32_t>(length) - static_cast<uint32_t>(offset));
    const int32_t count = TXZonTLEUnicodeServiceUtilities::CodeBOM_start_end_toBuffer_isUTF16(value, offset, end,
        encoded, &isUTF16);
    const uint32_t terminator = nullTerminate ? (isUTF16 ? 2 : 1) : 0;
    writeCompressedIntTo_withValue(buffer, static_cast<uint32_t>(count) + terminator);
    // The counted bytes are copied out of the encoding; where the count exceeds what was encoded
    // (a negative count, or some broken surrogate pairs) the copy raises NSRangeException.
    appendBytes(buffer, encoded->subdataWithRange({0, static_cast<size_t>(int64_t {count})})->bytes(),
        static_cast<size_t>(count));
    static constexpr uint8_t kZeros[2] = {0, 0};
    appendBytes(buffer, kZeros, terminator);
}

void TXZonTLEUtilities::writeStringFieldToBuffer_ofType_withValue(MutableData* buffer, int32_t type, const String* value)
{
    writeStringFieldToBuffer_ofType_withValue_andNullTerminate(buffer, type, value, false);
}

void TXZonTLEUtilities::writeStringFieldToBuffer_ofType_withValue_andNullTerminate(MutableData* buffer, int32_t type,
    const String* value, bool nullTerminate)
{
    const auto length = static_cast<int32_t>(value ? value->length() : 0);
    writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength_andNullTerminate(buffer, type, value, 0, length,
        nullTerminate);
}

void TXZonTLEUtilities::writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength(MutableData* buffer, int32_t type,
    const String* value, int32_t offset, int32_t length)
{
    writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength_andNullTerminate(buffer, type, value, offset, length,
        false);
}

int32_t TXZonTLEUtilities::writeCompressedIntTo_withValue(MutableData* buffer, uint32_t value)
{
    uint8_t bytes[5];
    int count = 0;
    for (int shift = topGroupShift(value); shift >= 7; shift -= 7)
        bytes[count++] = static_cast<uint8_t>((value >> shift) | 0x80);
    bytes[count++] = static_cast<uint8_t>(value & 0x7F);
    appendBytes(buffer, bytes, static_cast<size_t>(count));
    return count;
}

// Sizes

int32_t TXZonTLEUtilities::getSizeOfLengthStructure(int32_t value) { return compressedSize(static_cast<uint32_t>(value)); }

int32_t TXZonTLEUtilities::getSizeOfField(int32_t value)
{
    return static_cast<int32_t>(static_cast<uint32_t>(value) + static_cast<uint32_t>(getSizeOfLengthStructure(value)) + 1);
}

int32_t TXZonTLEUtilities::getFieldSizeOfInteger(int32_t value)
{
    const auto unsignedValue = static_cast<uint32_t>(value);
    return unsignedValue > 0xFFFF ? 6 : (unsignedValue >= 0x100 ? 4 : 3);
}

// Stream readers

uint64_t TXZonTLEUtilities::readUInt64From(InputStream* stream) { return readUInt64From_length(stream, 8); }

uint64_t TXZonTLEUtilities::readUInt64From_length(InputStream* stream, uint32_t length)
{
    auto bytes = readExactly(stream, length, "TXZonTLEUtilities::readUInt64From couldn't read from provided stream.");
    return bytesToInt64_length(bytes.data(), length);
}

uint32_t TXZonTLEUtilities::readUInt32From(InputStream* stream) { return readUInt32From_length(stream, 4); }

uint32_t TXZonTLEUtilities::readUInt32From_length(InputStream* stream, uint32_t length)
{
    auto bytes = readExactly(stream, length, "TXZonTLEUtilities::readUInt32From couldn't read from provided stream.");
    return bytesToInt_length(bytes.data(), length);
}

Ref<Data> TXZonTLEUtilities::readBytesFrom_length(InputStream* stream, uint32_t length)
{
    auto bytes = readExactly(stream, length, "TXZonTLEUtilities::readBytesFrom couldn't read from provided stream.");
    bytes.resize(length);
    return Data::dataWithVector(std::move(bytes));
}

Ref<String> TXZonTLEUtilities::readStringFrom_length(InputStream* stream, uint32_t length)
{
    auto bytes = readExactly(stream, length, "TXZonTLEUtilities::readStringFrom couldn't read from provided stream.");
    bytes[length] = 0;
    return stringFromZeroTerminatedUTF8(bytes.data());
}

// Location readers

uint64_t TXZonTLEUtilities::readUInt64From_atLocation(const Data* data, uint32_t location)
{
    return bytesToInt64_length(copyRange(data, location, 8).data(), 8);
}

uint32_t TXZonTLEUtilities::readUInt32From_atLocation(const Data* data, uint32_t location)
{
    return bytesToInt_length(copyRange(data, location, 4).data(), 4);
}

Ref<Data> TXZonTLEUtilities::readBytesFrom_atLocation_length(const Data* data, uint32_t location, uint32_t length)
{
    if (!data)
        return nullptr;
    return Data::dataWithVector(copyRange(data, location, length));
}

Ref<String> TXZonTLEUtilities::readStringFrom_atLocation_length(const Data* data, uint32_t location, uint32_t length)
{
    if (!data)
        return nullptr;
    ByteVector bytes = copyRange(data, location, length, 1);
    return stringFromZeroTerminatedUTF8(bytes.data());
}

int32_t TXZonTLEUtilities::readCompressedIntFrom_atLocation_into(const Data* data, uint32_t location, Ref<Number>* into)
{
    uint32_t accumulator = 0;
    for (int32_t step = 1;; ++step) {
        // Every step reads the same byte: the location is not advanced.
        const uint8_t byte = copyRange(data, location, 1)[0];
        if (byte < 0x80) {
            if (into)
                *into = Number::numberWithInt32(static_cast<int32_t>(accumulator | byte));
            return step;
        }
        if (step > 4 || (step == 4 && (accumulator & 0x0E000000)))
            raiseInconsistency("The input yields a number greater than 4 bytes.");
        accumulator = (accumulator | (byte & 0x7F)) << 7;
    }
}

// TXZonTLEUtilities(BinaryHelper)

namespace {

template <class T>
T bigEndianValue(const uint8_t* bytes, uint32_t length, uint32_t maximum, const char* operation)
{
    if (length == 0 || length > maximum) {
        char reason[96];
        std::snprintf(reason, sizeof reason, "TXZonTLEUtilities::%s received an invalid length: %ld", operation,
            static_cast<long>(length));
        raiseInconsistency(reason);
    }
    T value = 0;
    for (uint32_t i = 0; i < length; ++i)
        value |= static_cast<T>(bytes[i]) << (8 * (length - 1 - i));
    return value;
}

} // namespace

uint32_t TXZonTLEUtilities::bytesToInt_length(const uint8_t* bytes, uint32_t length)
{
    return bigEndianValue<uint32_t>(bytes, length, 4, "bytesToInt");
}

uint64_t TXZonTLEUtilities::bytesToInt64_length(const uint8_t* bytes, uint32_t length)
{
    return bigEndianValue<uint64_t>(bytes, length, 8, "bytesToInt64");
}

bool TXZonTLEUtilities::isByteArray_equalToByteArray_length(const uint8_t* first, const uint8_t* second, int32_t length)
{
    for (int32_t i = 0; i < length; ++i) {
        if (first[i] != second[i])
            return false;
    }
    return true;
}

} // namespace zon
