#pragma once

#include "platform/Export.h"
#include "platform/runtime/Ref.h"

#include <cstdint>

namespace zon {

class Data;
class InputStream;
class MutableData;
class Number;
class String;

// Writes and reads TLE fields, the records exchanged with the handheld devices: a type byte (the
// low 8 bits of the type), the value's byte count as a compressed integer, then the value.
//
// A compressed integer is an unsigned 32-bit number in 7-bit groups, most significant first, every
// byte but the last with bit 7 set, leading zero groups left out: 0 is 00, 128 is 81 00,
// 0xFFFFFFFF is 8F FF FF FF 7F.
//
// Failures raise NSInternalInconsistencyException with the reason given at each reader; what was
// appended or read before the failure stays as it is. The location readers raise NSRangeException
// (from Data::getBytes_range) past the end of the data; nil data reads as zero bytes.
//
// readCompressedIntFrom_atLocation_into reads the byte at the location for every step without
// advancing, so only lengths below 128 can be read back: the devices' peers rely on exactly this
// reader, so it is kept as it is.
class ZON_EXPORT TXZonTLEUtilities final {
public:
    TXZonTLEUtilities() = delete;

    // Writers: each appends one whole field.
    static void writeByteFieldToBuffer_ofType_withValue(MutableData* buffer, int32_t type, uint8_t value);
    static void writeBooleanFieldToBuffer_ofType_withValue(MutableData* buffer, int32_t type, bool value);
    // Without use4Bytes the value takes 1, 2 or 4 bytes, the fewest that hold it.
    static void writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(MutableData* buffer, int32_t type,
        uint32_t value, bool use4Bytes);
    // Without use8Bytes: 8 bytes when the high half is set, else 4, 2 or 1 as for integers.
    static void writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(MutableData* buffer, int32_t type,
        uint64_t value, bool use8Bytes);
    // Answers the byte count of the length (1-5). With null bytes only the type and the length
    // are written.
    static int32_t writeDataFieldToBuffer_ofType_withData_ofLength(MutableData* buffer, int32_t type,
        const void* bytes, uint32_t length);
    // count characters from index, each as the low 8 bits of its UTF-16 unit, then 0x00 when
    // nullTerminate. An index past the string raises NSRangeException after the bytes before it.
    static void writeDataFieldToBuffer_ofType_withValue_atIndex_ofLength_andNullTerminate(MutableData* buffer,
        int32_t type, const String* value, uint32_t index, uint32_t count, bool nullTerminate);
    // The string in TXZonTLEUnicodeServiceUtilities' form of the units [offset, length - offset):
    // the end is the length minus the offset, which with offset 0 is the length. Terminated
    // fields add 0x00 (00 00 after UTF-16) and count it in the length.
    static void writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength_andNullTerminate(MutableData* buffer,
        int32_t type, const String* value, int32_t offset, int32_t length, bool nullTerminate);
    static void writeStringFieldToBuffer_ofType_withValue(MutableData* buffer, int32_t type, const String* value);
    static void writeStringFieldToBuffer_ofType_withValue_andNullTerminate(MutableData* buffer, int32_t type,
        const String* value, bool nullTerminate);
    static void writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength(MutableData* buffer, int32_t type,
        const String* value, int32_t offset, int32_t length);
    // Appends the compressed integer and answers its byte count.
    static int32_t writeCompressedIntTo_withValue(MutableData* buffer, uint32_t value);

    // Sizes. The value is taken as unsigned: a negative one has a 5-byte length.
    static int32_t getSizeOfLengthStructure(int32_t value);
    // value + its length structure + the type byte.
    static int32_t getSizeOfField(int32_t value);
    // The whole size of an integer field written without use4Bytes: 3, 4 or 6.
    static int32_t getFieldSizeOfInteger(int32_t value);

    // Stream readers: one read of exactly length bytes (a short read is not retried), big-endian.
    // "TXZonTLEUtilities::readUInt64From couldn't read from provided stream." and likewise for
    // readUInt32From, readBytesFrom, readStringFrom when the read delivers another count. Lengths
    // the byte helpers refuse raise after the read.
    static uint64_t readUInt64From(InputStream* stream);
    static uint64_t readUInt64From_length(InputStream* stream, uint32_t length);
    static uint32_t readUInt32From(InputStream* stream);
    static uint32_t readUInt32From_length(InputStream* stream, uint32_t length);
    static Ref<Data> readBytesFrom_length(InputStream* stream, uint32_t length);
    // The bytes up to the first zero byte as UTF-8; nil when they are not UTF-8 (such as the
    // Latin-1 bytes and byte-order marks the string writer produces).
    static Ref<String> readStringFrom_length(InputStream* stream, uint32_t length);

    // Location readers over data.
    static uint64_t readUInt64From_atLocation(const Data* data, uint32_t location);
    static uint32_t readUInt32From_atLocation(const Data* data, uint32_t location);
    static Ref<Data> readBytesFrom_atLocation_length(const Data* data, uint32_t location, uint32_t length);
    static Ref<String> readStringFrom_atLocation_length(const Data* data, uint32_t location, uint32_t length);
    // Answers the bytes consumed (1) and stores the value as numberWithInt32 into *into; a byte of
    // 0x80 or more raises "The input yields a number greater than 4 bytes.".
    static int32_t readCompressedIntFrom_atLocation_into(const Data* data, uint32_t location, Ref<Number>* into);

    // ---- TXZonTLEUtilities(BinaryHelper) --------------------------------------------------------
    // The big-endian value of the first length bytes. length must be 1-4 (1-8 for bytesToInt64),
    // else "TXZonTLEUtilities::bytesToInt received an invalid length: %ld" (bytesToInt64 likewise).
    static uint32_t bytesToInt_length(const uint8_t* bytes, uint32_t length);
    static uint64_t bytesToInt64_length(const uint8_t* bytes, uint32_t length);
    // True when the first length bytes are equal; a length of 0 or less reads neither pointer.
    static bool isByteArray_equalToByteArray_length(const uint8_t* first, const uint8_t* second, int32_t length);
};

} // namespace zon
