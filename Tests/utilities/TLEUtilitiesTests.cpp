#include "utilities/data/TXZonTLEUtilities.h"

#include "platform/runtime/Class.h"
#include "platform/values/Number.h"
#include "utilities/CodecTestSupport.h"
#include "platform/io/InputStream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

using namespace zon;
using namespace zon::test;

namespace {

using TLE = TXZonTLEUtilities;

// Delivers at most one byte per read, as a slow pipe might.
class TricklingStream final : public InputStream {
    ZON_OBJECT(TricklingStream, InputStream)
public:
    long read_maxLength(uint8_t* buffer, size_t maxLength) override
    {
        if (!maxLength || next_ == bytes_.size())
            return 0;
        *buffer = bytes_[next_++];
        return 1;
    }

private:
    explicit TricklingStream(Bytes bytes) : bytes_(std::move(bytes)) {}
    Bytes bytes_;
    size_t next_ = 0;
};

ZON_DEFINE_CLASS(TricklingStream, "TricklingStream")

Ref<InputStream> streamOf(const Bytes& bytes) { return InputStream::inputStreamWithData(dataOf(bytes)); }

Bytes written(const std::function<void(MutableData*)>& write)
{
    Ref<MutableData> buffer = MutableData::data();
    write(buffer);
    return bytesOf(buffer);
}

} // namespace

TEST(TXZonTLEUtilities, CompressedIntegersUseMinimalSevenBitGroups)
{
    const struct {
        uint32_t value;
        Bytes bytes;
    } cases[] = {
        {0, {0x00}},
        {127, {0x7F}},
        {128, {0x81, 0x00}},
        {300, {0x82, 0x2C}},
        {16384, {0x81, 0x80, 0x00}},
        {0x0FFFFFFF, {0xFF, 0xFF, 0xFF, 0x7F}},
        {0x10000000, {0x81, 0x80, 0x80, 0x80, 0x00}},
        {0xFFFFFFFF, {0x8F, 0xFF, 0xFF, 0xFF, 0x7F}},
    };
    for (const auto& c : cases) {
        int32_t count = 0;
        EXPECT_EQ(written([&](MutableData* buffer) { count = TLE::writeCompressedIntTo_withValue(buffer, c.value); }),
            c.bytes)
            << c.value;
        EXPECT_EQ(count, static_cast<int32_t>(c.bytes.size()));
        EXPECT_EQ(TLE::getSizeOfLengthStructure(static_cast<int32_t>(c.value)), count);
    }
}

TEST(TXZonTLEUtilities, FieldSizes)
{
    EXPECT_EQ(TLE::getSizeOfField(127), 129);
    EXPECT_EQ(TLE::getSizeOfField(128), 131);
    EXPECT_EQ(TLE::getSizeOfLengthStructure(-1), 5);
    for (int32_t value : {0, 255})
        EXPECT_EQ(TLE::getFieldSizeOfInteger(value), 3);
    for (int32_t value : {256, 65535})
        EXPECT_EQ(TLE::getFieldSizeOfInteger(value), 4);
    for (int32_t value : {65536, -1})
        EXPECT_EQ(TLE::getFieldSizeOfInteger(value), 6);
}

TEST(TXZonTLEUtilities, IntegerAndLongFieldsTakeTheFewestBytesUnlessTold)
{
    EXPECT_EQ(written([](MutableData* b) { TLE::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(b, 7, 0x1234, false); }),
        (Bytes {7, 0x02, 0x12, 0x34}));
    EXPECT_EQ(written([](MutableData* b) { TLE::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(b, 7, 0x12, false); }),
        (Bytes {7, 0x01, 0x12}));
    EXPECT_EQ(written([](MutableData* b) { TLE::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(b, 7, 0x12345, false); }),
        (Bytes {7, 0x04, 0x00, 0x01, 0x23, 0x45}));
    // Only the low 8 bits of the type are written.
    EXPECT_EQ(written([](MutableData* b) { TLE::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(b, 0x1FF, 0x12, true); }),
        (Bytes {0xFF, 0x04, 0x00, 0x00, 0x00, 0x12}));

    EXPECT_EQ(written([](MutableData* b) { TLE::writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(b, 1, 0x100000000, false); }),
        (Bytes {1, 0x08, 0, 0, 0, 0x01, 0, 0, 0, 0}));
    EXPECT_EQ(written([](MutableData* b) { TLE::writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(b, 1, 0x10000, false); }),
        (Bytes {1, 0x04, 0, 0x01, 0, 0}));
    EXPECT_EQ(written([](MutableData* b) { TLE::writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(b, 1, 0x100, false); }),
        (Bytes {1, 0x02, 0x01, 0}));
    EXPECT_EQ(written([](MutableData* b) { TLE::writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(b, 1, 5, true); }),
        (Bytes {1, 0x08, 0, 0, 0, 0, 0, 0, 0, 5}));
}

TEST(TXZonTLEUtilities, ByteBooleanAndDataFields)
{
    EXPECT_EQ(written([](MutableData* b) {
        TLE::writeByteFieldToBuffer_ofType_withValue(b, 2, 0xAB);
        TLE::writeBooleanFieldToBuffer_ofType_withValue(b, 3, true);
        TLE::writeBooleanFieldToBuffer_ofType_withValue(b, 3, false);
    }),
        (Bytes {2, 1, 0xAB, 3, 1, 1, 3, 1, 0}));

    int32_t lengthSize = 0;
    // Without bytes only the type and the length are written.
    EXPECT_EQ(written([&](MutableData* b) { lengthSize = TLE::writeDataFieldToBuffer_ofType_withData_ofLength(b, 9, nullptr, 3); }),
        (Bytes {9, 3}));
    EXPECT_EQ(lengthSize, 1);
    const Bytes payload = sampleBytes(200);
    Bytes field = written([&](MutableData* b) {
        lengthSize = TLE::writeDataFieldToBuffer_ofType_withData_ofLength(b, 9, payload.data(), 200);
    });
    EXPECT_EQ(lengthSize, 2);
    EXPECT_EQ(field.size(), 203u);
    EXPECT_EQ(Bytes(field.begin() + 3, field.end()), payload);
}

TEST(TXZonTLEUtilities, NarrowCharacterFieldsKeepTheLowByteOfEachUnit)
{
    EXPECT_EQ(written([](MutableData* b) {
        TLE::writeDataFieldToBuffer_ofType_withValue_atIndex_ofLength_andNullTerminate(b, 4, str(u"xa\u00E9\u20AC"), 1, 3, true);
    }),
        (Bytes {4, 4, 0x61, 0xE9, 0xAC, 0x00}));
    // Past the end of the string it raises after writing the characters that exist.
    Ref<MutableData> buffer = MutableData::data();
    raisedReason(NSRangeException, [&] {
        TLE::writeDataFieldToBuffer_ofType_withValue_atIndex_ofLength_andNullTerminate(buffer, 4, str(u"abc"), 1, 5, false);
    });
    EXPECT_EQ(bytesOf(buffer), (Bytes {4, 5, 0x62, 0x63}));
}

TEST(TXZonTLEUtilities, StringFieldsCountTheirTerminator)
{
    EXPECT_EQ(written([](MutableData* b) { TLE::writeStringFieldToBuffer_ofType_withValue_andNullTerminate(b, 5, str(u"abc"), true); }),
        (Bytes {5, 4, 'a', 'b', 'c', 0}));
    EXPECT_EQ(written([](MutableData* b) { TLE::writeStringFieldToBuffer_ofType_withValue(b, 5, str(u"abc")); }),
        (Bytes {5, 3, 'a', 'b', 'c'}));
    // UTF-16 is terminated by two zero bytes, both counted.
    EXPECT_EQ(written([](MutableData* b) { TLE::writeStringFieldToBuffer_ofType_withValue_andNullTerminate(b, 5, str(u"\u03A9"), true); }),
        (Bytes {5, 6, 0xFE, 0xFF, 0x03, 0xA9, 0, 0}));
    EXPECT_EQ(written([](MutableData* b) { TLE::writeStringFieldToBuffer_ofType_withValue(b, 5, nullptr); }), (Bytes {5, 0}));
}

TEST(TXZonTLEUtilities, TheEndOfAStringRangeIsTheLengthMinusTheOffset)
{
    // Offset 1 and length 4 encode the units [1, 3), not [1, 5).
    EXPECT_EQ(written([](MutableData* b) { TLE::writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength(b, 5, str(u"abcdef"), 1, 4); }),
        (Bytes {5, 2, 'b', 'c'}));
    // When that end falls below the offset the count is negative: its 5-byte length is written,
    // then copying the counted bytes raises.
    Ref<MutableData> buffer = MutableData::data();
    raisedReason(NSRangeException, [&] {
        TLE::writeStringFieldToBuffer_ofType_withValue_atOffset_ofLength(buffer, 5, str(u"abcdef"), 4, 6);
    });
    EXPECT_EQ(bytesOf(buffer), (Bytes {5, 0x8F, 0xFF, 0xFF, 0xFF, 0x7E}));
}

TEST(TXZonTLEUtilities, AStringEncodedShorterThanCountedRaises)
{
    // D800 "a" counts as a 3-byte pair, but U+FFFD, "a" and "b" are written and the last unit is
    // dropped: 8 bytes are written of the 9 counted.
    Ref<MutableData> buffer = MutableData::data();
    raisedReason(NSRangeException, [&] { TLE::writeStringFieldToBuffer_ofType_withValue(buffer, 5, str(u"\xD800" u"ab\u00E9")); });
}

TEST(TXZonTLEUtilities, StreamReadersReadBigEndianValues)
{
    Ref<InputStream> stream = streamOf({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E,
        0x0F, 'h', 'i', 0, 'x', 0xC3, 0xA9});
    EXPECT_EQ(TLE::readUInt32From(stream), 0x01020304u);
    EXPECT_EQ(TLE::readUInt64From_length(stream, 3), 0x050607u);
    EXPECT_EQ(TLE::readUInt32From_length(stream, 2), 0x0809u);
    EXPECT_EQ(bytesOf(TLE::readBytesFrom_length(stream, 3)), (Bytes {0x0A, 0x0B, 0x0C}));
    EXPECT_EQ(TLE::readUInt64From_length(stream, 3), 0x0D0E0Fu);
    // The string ends at its first zero byte.
    EXPECT_EQ(utf8(TLE::readStringFrom_length(stream, 4)), "hi");
    EXPECT_EQ(utf8(TLE::readStringFrom_length(stream, 2)), "\u00E9");
    EXPECT_EQ(TLE::readUInt64From(streamOf({0, 0, 0, 0, 0, 0, 0x01, 0x02})), 0x0102u);
}

TEST(TXZonTLEUtilities, AShortReadRaisesWithTheReadersName)
{
    EXPECT_EQ(inconsistencyReason([] { TLE::readUInt64From(streamOf({1, 2, 3})); }),
        "TXZonTLEUtilities::readUInt64From couldn't read from provided stream.");
    EXPECT_EQ(inconsistencyReason([] { TLE::readUInt32From(streamOf({1, 2, 3})); }),
        "TXZonTLEUtilities::readUInt32From couldn't read from provided stream.");
    EXPECT_EQ(inconsistencyReason([] { TLE::readBytesFrom_length(streamOf({}), 1); }),
        "TXZonTLEUtilities::readBytesFrom couldn't read from provided stream.");
    EXPECT_EQ(inconsistencyReason([] { TLE::readStringFrom_length(nullptr, 1); }),
        "TXZonTLEUtilities::readStringFrom couldn't read from provided stream.");
    // One read only: a stream that trickles is not read again.
    EXPECT_EQ(inconsistencyReason([] { TLE::readUInt32From(makeObject<TricklingStream>(Bytes {1, 2, 3, 4})); }),
        "TXZonTLEUtilities::readUInt32From couldn't read from provided stream.");
}

TEST(TXZonTLEUtilities, StreamReadersPassTheirLengthToTheByteHelpersAfterReading)
{
    Ref<InputStream> stream = streamOf(sampleBytes(9));
    EXPECT_EQ(inconsistencyReason([&] { TLE::readUInt64From_length(stream, 9); }),
        "TXZonTLEUtilities::bytesToInt64 received an invalid length: 9");
    EXPECT_EQ(inconsistencyReason([&] { TLE::readUInt32From_length(stream, 0); }),
        "TXZonTLEUtilities::bytesToInt received an invalid length: 0");
}

TEST(TXZonTLEUtilities, LongValuesAreReadWholeInGrowingSteps)
{
    const Bytes value = sampleBytes(300000, 3);
    Ref<InputStream> stream = streamOf(value);
    EXPECT_EQ(bytesOf(TLE::readBytesFrom_length(stream, 300000)), value);
    // Past the first step, a read the stream cannot fill fails the whole value.
    EXPECT_EQ(inconsistencyReason([&] { TLE::readBytesFrom_length(streamOf(value), 300001); }),
        "TXZonTLEUtilities::readBytesFrom couldn't read from provided stream.");
}

TEST(TXZonTLEUtilities, ALengthTheStreamDoesNotBackRaisesUnderAMemoryLimit)
{
    if (!kMemoryLimitsApply)
        GTEST_SKIP() << "memory limits do not apply under the sanitizers";
    // A forged length of 4 GiB - 1 over ten bytes must cost no more than the ten bytes.
    const Bytes tenBytes = sampleBytes(10);
    const std::function<void(InputStream*)> readers[] = {
        [](InputStream* stream) { TLE::readUInt64From_length(stream, UINT32_MAX); },
        [](InputStream* stream) { TLE::readUInt32From_length(stream, UINT32_MAX); },
        [](InputStream* stream) { TLE::readBytesFrom_length(stream, UINT32_MAX); },
        [](InputStream* stream) { TLE::readStringFrom_length(stream, UINT32_MAX); },
    };
    for (const auto& read : readers) {
        const int status = exitStatusUnderMemoryLimit(64 << 20, [&] {
            try {
                read(streamOf(tenBytes));
            } catch (const Exception& exception) {
                const bool expected = exception.name()->isEqualToString(NSInternalInconsistencyException)
                    && utf8(exception.reason()).ends_with("couldn't read from provided stream.");
                return expected ? 0 : 1;
            } catch (const std::bad_alloc&) {
                return 2;
            }
            return 3;
        });
        EXPECT_EQ(status, 0) << "1: another exception, 2: std::bad_alloc, 3: nothing raised";
    }
}

TEST(TXZonTLEUtilities, TheStringReaderDoesNotUnderstandWhatTheStringWriterMakesOfLatin1)
{
    Bytes field = written([](MutableData* b) { TLE::writeStringFieldToBuffer_ofType_withValue(b, 5, str(u"caf\u00E9")); });
    EXPECT_EQ(TLE::readStringFrom_atLocation_length(dataOf(field), 2, 4).get(), nullptr);
}

TEST(TXZonTLEUtilities, LocationReaders)
{
    Ref<Data> data = dataOf({0xFF, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 'o', 'k', 0, 'z'});
    EXPECT_EQ(TLE::readUInt64From_atLocation(data, 1), 0x0102030405060708u);
    EXPECT_EQ(TLE::readUInt32From_atLocation(data, 5), 0x05060708u);
    EXPECT_EQ(bytesOf(TLE::readBytesFrom_atLocation_length(data, 0, 2)), (Bytes {0xFF, 0x01}));
    EXPECT_EQ(utf8(TLE::readStringFrom_atLocation_length(data, 9, 4)), "ok");
    // The data's ranged copy raises past the end.
    for (auto read : std::vector<std::function<void()>> {
             [&] { TLE::readUInt64From_atLocation(data, 6); },
             [&] { TLE::readUInt32From_atLocation(data, 10); },
             [&] { TLE::readBytesFrom_atLocation_length(data, 12, 2); },
             [&] { TLE::readStringFrom_atLocation_length(data, 0, UINT32_MAX); },
         })
        EXPECT_EQ(raisedReason(NSRangeException, read).rfind("-[NSData getBytes:range:]", 0), 0u);
}

TEST(TXZonTLEUtilities, TheCompressedIntReaderNeverAdvances)
{
    Ref<Number> value;
    EXPECT_EQ(TLE::readCompressedIntFrom_atLocation_into(dataOf({0x05}), 0, &value), 1);
    EXPECT_STREQ(value->objCType(), "i");
    EXPECT_EQ(value->int32Value(), 5);
    EXPECT_EQ(TLE::readCompressedIntFrom_atLocation_into(dataOf({0x81, 0x00, 0x7F}), 2, &value), 1);
    EXPECT_EQ(value->int32Value(), 127);
    // 81 00 is a valid 128, but the reader sees 81 again and again.
    for (uint8_t first : {0x81, 0x80, 0x8F, 0xFF})
        EXPECT_EQ(inconsistencyReason([&] { TLE::readCompressedIntFrom_atLocation_into(dataOf({first, 0x00}), 0, &value); }),
            "The input yields a number greater than 4 bytes.");
    raisedReason(NSRangeException, [&] { TLE::readCompressedIntFrom_atLocation_into(dataOf({}), 0, &value); });
}

TEST(TXZonTLEUtilities, ByteHelpers)
{
    const uint8_t bytes[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09};
    EXPECT_EQ(TLE::bytesToInt_length(bytes, 2), 0x0102u);
    EXPECT_EQ(TLE::bytesToInt_length(bytes, 4), 0x01020304u);
    EXPECT_EQ(TLE::bytesToInt64_length(bytes, 8), 0x0102030405060708u);
    EXPECT_EQ(inconsistencyReason([&] { TLE::bytesToInt_length(bytes, 5); }),
        "TXZonTLEUtilities::bytesToInt received an invalid length: 5");
    EXPECT_EQ(inconsistencyReason([&] { TLE::bytesToInt64_length(bytes, 0); }),
        "TXZonTLEUtilities::bytesToInt64 received an invalid length: 0");

    const uint8_t other[] = {0x01, 0x02, 0x0F};
    EXPECT_TRUE(TLE::isByteArray_equalToByteArray_length(bytes, other, 2));
    EXPECT_FALSE(TLE::isByteArray_equalToByteArray_length(bytes, other, 3));
    EXPECT_TRUE(TLE::isByteArray_equalToByteArray_length(nullptr, nullptr, 0));
    EXPECT_TRUE(TLE::isByteArray_equalToByteArray_length(nullptr, nullptr, -4));
}

TEST(TXZonTLEUtilities, FieldsReadBackThroughTheLocationReaders)
{
    Ref<MutableData> buffer = MutableData::data();
    TLE::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(buffer, 1, 0xCAFEF00D, true);
    TLE::writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(buffer, 2, 0x0123456789ABCDEF, false);
    TLE::writeStringFieldToBuffer_ofType_withValue_andNullTerminate(buffer, 3, str(u"device"), true);
    Ref<Number> length;
    EXPECT_EQ(TLE::readCompressedIntFrom_atLocation_into(buffer, 1, &length), 1);
    EXPECT_EQ(length->int32Value(), 4);
    EXPECT_EQ(TLE::readUInt32From_atLocation(buffer, 2), 0xCAFEF00Du);
    EXPECT_EQ(TLE::readUInt64From_atLocation(buffer, 8), 0x0123456789ABCDEFu);
    EXPECT_EQ(utf8(TLE::readStringFrom_atLocation_length(buffer, 18, 7)), "device");
}
