#include "extensions/NSData+ZonExtensions.h"
#include "support/LogCapture.h"
#include "utilities/CodecTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cctype>

using namespace zon;
using namespace zon::test;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::Field;
using ::testing::HasSubstr;

namespace {

Bytes fromHex(std::u16string_view text) { return bytesOf(Data::dataFromHexStringRepresentation(str(text))); }

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

const size_t kPeerSizes[] = {0, 1, 55, 56, 63, 64, 65, 1000, 65536, 300001};

} // namespace

TEST(DataHex, BytesBecomeUpperCaseDigitPairs)
{
    EXPECT_EQ(utf8(dataOf({0x00, 0xAB, 0x10})->hexStringRepresentation()), "00AB10");
    EXPECT_EQ(utf8(Data::data()->hexStringRepresentation()), "");
}

TEST(DataHex, AgreesWithXxd)
{
    if (!haveCommand("xxd"))
        GTEST_SKIP() << "xxd is not installed";
    Bytes every(256);
    for (int i = 0; i < 256; ++i)
        every[i] = static_cast<uint8_t>(i);
    for (const Bytes& bytes : {every, sampleBytes(1), sampleBytes(4097, 7)}) {
        TempFile file;
        file.write(bytes);
        std::string expected = commandOutput("xxd -p " + file.path());
        std::erase(expected, '\n');
        EXPECT_EQ(utf8(dataOf(bytes)->hexStringRepresentation()), upper(expected));
    }
}

TEST(DataHex, PairsAreReadAsStrtolReadsThem)
{
    // Blanks, tabs and line feeds go first; an odd last digit is dropped.
    EXPECT_EQ(fromHex(u"0a 1B\n2"), (Bytes {0x0A, 0x1B}));
    EXPECT_EQ(fromHex(u"\tff\t00"), (Bytes {0xFF, 0x00}));
    EXPECT_EQ(fromHex(u""), Bytes {});
    // A bad first character stops the conversion at once; a bad second one keeps the first.
    EXPECT_EQ(fromHex(u"zz"), Bytes {0x00});
    EXPECT_EQ(fromHex(u"1z"), Bytes {0x01});
    // Signs and other white space are strtol's own.
    EXPECT_EQ(fromHex(u"-1+5"), (Bytes {0xFF, 0x05}));
    EXPECT_EQ(fromHex(u"\r5"), Bytes {0x05});
}

TEST(DataHex, NonASCIITextCountsItsUTF8Bytes)
{
    // "é1" is the three bytes C3 A9 31: one pair, which is not a number.
    EXPECT_EQ(fromHex(u"\u00E91"), Bytes {0x00});
    // The text ends at a U+0000, as a C string would.
    EXPECT_EQ(fromHex(std::u16string_view(u"AB\0CD", 5)), Bytes {0xAB});
    EXPECT_EQ(fromHex(std::u16string_view(u"\u00E9AB\0CD", 6)), (Bytes {0x00, 0xAB}));
    EXPECT_EQ(bytesOf(Data::dataFromHexStringRepresentation(nullptr)), Bytes {});
}

TEST(DataHex, RoundTrips)
{
    const Bytes bytes = sampleBytes(10000, 3);
    EXPECT_EQ(bytesOf(Data::dataFromHexStringRepresentation(dataOf(bytes)->hexStringRepresentation())), bytes);
}

TEST(DataMD5, EmptyDataHasTheWellKnownDigest)
{
    EXPECT_EQ(utf8(Data::data()->md5Hash()), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST(DataMD5, AgreesWithMd5sum)
{
    if (!haveCommand("md5sum"))
        GTEST_SKIP() << "md5sum is not installed";
    for (size_t size : kPeerSizes) {
        const Bytes bytes = sampleBytes(size, static_cast<uint32_t>(size));
        TempFile file;
        file.write(bytes);
        const std::string expected = upper(commandOutput("md5sum " + file.path()).substr(0, 32));
        EXPECT_EQ(utf8(dataOf(bytes)->md5Hash()), expected) << size << " bytes";
    }
}

TEST(DataGzip, EmptyDataIsAnsweredAsItIs)
{
    Ref<Data> empty = Data::data();
    EXPECT_EQ(empty->gzipWithZlib().get(), empty.get());
    EXPECT_EQ(empty->gunzipWithZlib().get(), empty.get());
}

TEST(DataGzip, RoundTripsAtManySizes)
{
    for (size_t size : kPeerSizes) {
        const Bytes bytes = sampleBytes(size, 11);
        Ref<Data> compressed = dataOf(bytes)->gzipWithZlib();
        ASSERT_TRUE(compressed);
        if (size) {
            EXPECT_EQ(bytesOf(compressed->gunzipWithZlib()), bytes) << size << " bytes";
        }
    }
}

// The bytes of the platform's loop: a buffer grown by 16 KB steps, deflate with finish until it
// leaves room.
Bytes deflateInFixedSteps(const Bytes& input)
{
    z_stream stream {};
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    EXPECT_EQ(deflateInit2(&stream, -1, 8, 31, 8, 0), Z_OK);
    Bytes out(16384);
    do {
        if (stream.total_out >= out.size())
            out.resize(out.size() + 16384);
        stream.next_out = out.data() + stream.total_out;
        stream.avail_out = static_cast<uInt>(out.size() - stream.total_out);
        deflate(&stream, Z_FINISH);
    } while (stream.avail_out == 0);
    deflateEnd(&stream);
    out.resize(stream.total_out);
    return out;
}

TEST(DataGzip, WritesTheSameBytesAsFixedStepGrowth)
{
    for (size_t size : {size_t {1}, size_t {20000}, size_t {300001}}) {
        const Bytes incompressible = [&] {
            Bytes bytes(size);
            uint32_t seed = 5;
            for (auto& byte : bytes)
                byte = static_cast<uint8_t>((seed = seed * 1103515245u + 12345u) >> 23);
            return bytes;
        }();
        for (const Bytes& bytes : {sampleBytes(size), incompressible})
            EXPECT_EQ(bytesOf(dataOf(bytes)->gzipWithZlib()), deflateInFixedSteps(bytes)) << size << " bytes";
    }
}

TEST(DataGzip, GzipCommandReadsWhatGzipWithZlibWrites)
{
    if (!haveCommand("gzip"))
        GTEST_SKIP() << "gzip is not installed";
    for (size_t size : {size_t {1}, size_t {65536}, size_t {300001}}) {
        const Bytes bytes = sampleBytes(size, 2);
        TempFile file;
        file.write(bytesOf(dataOf(bytes)->gzipWithZlib()));
        const std::string output = commandOutput("gzip -dc < " + file.path());
        EXPECT_EQ(Bytes(output.begin(), output.end()), bytes) << size << " bytes";
    }
}

TEST(DataGzip, ReadsWhatGzipAndPythonZlibWrite)
{
    const Bytes bytes = sampleBytes(200000, 9);
    TempFile plain;
    plain.write(bytes);
    if (haveCommand("gzip")) {
        const std::string gzipped = commandOutput("gzip -c < " + plain.path());
        EXPECT_EQ(bytesOf(dataOf(Bytes(gzipped.begin(), gzipped.end()))->gunzipWithZlib()), bytes);
    }
    if (haveCommand("python3")) {
        const std::string zlibbed = commandOutput("python3 -c 'import sys, zlib; "
            "sys.stdout.buffer.write(zlib.compress(open(sys.argv[1], \"rb\").read()))' " + plain.path());
        ASSERT_EQ(zlibbed.substr(0, 1), "\x78");
        EXPECT_EQ(bytesOf(dataOf(Bytes(zlibbed.begin(), zlibbed.end()))->gunzipWithZlib()), bytes);
    }
}

TEST(DataGzip, CorruptInputGivesNilAndAnErrorLine)
{
    LogCapture capture;
    EXPECT_FALSE(dataOf(sampleBytes(1000, 4))->gunzipWithZlib());
    EXPECT_THAT(capture.records(),
        Contains(AllOf(Field("level", &logger::CapturedRecord::level, 1),
            Field("line", &logger::CapturedRecord::line, 199),
            Field("file", &logger::CapturedRecord::file, EndsWith("Sources/extensions/NSData+ZonExtensions.cpp")),
            Field("category", &logger::CapturedRecord::category, "default"),
            Field("message", &logger::CapturedRecord::message, "Failed to inflate compressed data: -3/data error"))));
}

TEST(DataGzip, EachInflateStepIsTracedAtDetailLevel)
{
    Ref<Data> compressed = dataOf(sampleBytes(5000))->gzipWithZlib();
    LogCapture capture;
    ASSERT_TRUE(compressed->gunzipWithZlib());
    EXPECT_THAT(capture.records(),
        Contains(AllOf(Field("level", &logger::CapturedRecord::level, 5),
            Field("line", &logger::CapturedRecord::line, 187),
            Field("message", &logger::CapturedRecord::message, "ZLIB - inflate() rc=1/stream end"))));
}

TEST(DataGzip, AStreamCutShortAnswersWhatItInflated)
{
    // The loop stops on a partly filled buffer, not on the end code, so truncation is no error.
    const Bytes bytes = sampleBytes(100000, 6);
    Bytes compressed = bytesOf(dataOf(bytes)->gzipWithZlib());
    compressed.resize(compressed.size() / 2);
    Ref<Data> partial = dataOf(compressed)->gunzipWithZlib();
    ASSERT_TRUE(partial);
    EXPECT_GT(partial->length(), 0u);
    EXPECT_LT(partial->length(), bytes.size());
    EXPECT_TRUE(std::equal(partial->span().begin(), partial->span().end(), bytes.begin()));
}

namespace {

struct InflateTrace {
    size_t lines = 0;
    size_t bufferErrors = 0;
    std::string last;
};

// The level-5 lines of one gunzipWithZlib call.
InflateTrace traceOfGunzip(const Bytes& compressed)
{
    LogCapture capture;
    dataOf(compressed)->gunzipWithZlib();
    InflateTrace trace;
    for (const logger::CapturedRecord& record : capture.records()) {
        if (record.level != 5 || !record.file.ends_with("Sources/extensions/NSData+ZonExtensions.cpp"))
            continue;
        ++trace.lines;
        trace.bufferErrors += record.line == 190;
        trace.last = record.message;
    }
    return trace;
}

} // namespace

TEST(DataGzip, TracedInflateTakesOneCallPerHalfOfTheInputLength)
{
    // The buffer starts at L + L/2 bytes and grows by L/2, one traced inflate call per step:
    // 133 bytes of gzip give 100,000 bytes in 199 + 1,512 x 66 + a last partial step.
    const Bytes as = bytesOf(dataOf(Bytes(100000, 'a'))->gzipWithZlib());
    ASSERT_EQ(as.size(), 133u);
    InflateTrace whole = traceOfGunzip(as);
    EXPECT_EQ(whole.lines, 1514u);
    EXPECT_EQ(whole.bufferErrors, 0u);
    EXPECT_EQ(whole.last, "ZLIB - inflate() rc=1/stream end");

    // Cut after 32 bytes, the output ends exactly on a step: one more call finds neither input
    // nor anything to write, and says so at line 190.
    InflateTrace cut = traceOfGunzip(Bytes(as.begin(), as.begin() + 32));
    EXPECT_EQ(cut.lines, 370u);
    EXPECT_EQ(cut.bufferErrors, 1u);
    EXPECT_EQ(cut.last, "ZLIB - inflate() rc=-5/buffer error");

    // 200 bytes of a less regular stream inflate to 413 bytes: 300, then 100, then 13.
    Bytes sample = bytesOf(dataOf(sampleBytes(3000, 1))->gzipWithZlib());
    sample.resize(200);
    EXPECT_EQ(traceOfGunzip(sample).lines, 3u);
    EXPECT_EQ(dataOf(sample)->gunzipWithZlib()->length(), 413u);
}

TEST(DataGzip, RunningOutOfMemoryGivesNilAndTheMemoryErrorLine)
{
    if (!kMemoryLimitsApply)
        GTEST_SKIP() << "memory limits do not apply under the sanitizers";
    // 64 MiB of zeros in 64 KiB, inflated with 16 MiB to spare.
    z_stream stream {};
    ASSERT_EQ(deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kDeflateToGZipFileFormat, 8, Z_DEFAULT_STRATEGY), Z_OK);
    const Bytes zeros(1 << 20, 0);
    Bytes bomb(1 << 20);
    for (int chunk = 0; chunk < 64; ++chunk) {
        stream.next_in = const_cast<Bytef*>(zeros.data());
        stream.avail_in = static_cast<uInt>(zeros.size());
        stream.next_out = bomb.data() + stream.total_out;
        stream.avail_out = static_cast<uInt>(bomb.size() - stream.total_out);
        ASSERT_EQ(deflate(&stream, chunk == 63 ? Z_FINISH : Z_NO_FLUSH), chunk == 63 ? Z_STREAM_END : Z_OK);
    }
    bomb.resize(stream.total_out);
    deflateEnd(&stream);
    Ref<Data> compressed = dataOf(bomb);

    const int status = exitStatusUnderMemoryLimit(16 << 20, [&] {
        auto errors = std::make_shared<logger::CaptureSink>(logger::kLevelError);
        logger::addSink(errors);
        try {
            if (compressed->gunzipWithZlib())
                return 1;
        } catch (const std::bad_alloc&) {
            return 2;
        }
        const auto records = errors->records();
        const bool logged = std::any_of(records.begin(), records.end(), [](const logger::CapturedRecord& record) {
            return record.line == 199 && record.message == "Failed to inflate compressed data: -4/insufficient memory";
        });
        return logged ? 0 : 3;
    });
    EXPECT_EQ(status, 0) << "1: data answered, 2: std::bad_alloc escaped, 3: no log line";
}

TEST(DataGzip, OnlyTheFirstMemberOfAMultiMemberFileIsRead)
{
    Bytes joined = bytesOf(dataOf(sampleBytes(3000, 1))->gzipWithZlib());
    const Bytes second = bytesOf(dataOf(sampleBytes(3000, 2))->gzipWithZlib());
    joined.insert(joined.end(), second.begin(), second.end());
    EXPECT_EQ(bytesOf(dataOf(joined)->gunzipWithZlib()), sampleBytes(3000, 1));
}

TEST(DataFetch, ValuesAreCopiedInHostOrderAndTheOffsetAdvances)
{
    Ref<Data> data = dataOf({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09});
    uint32_t offset = 0;
    uint8_t byte = 0;
    uint16_t shortValue = 0;
    uint32_t integer = 0;
    uint64_t longLong = 0;
    EXPECT_TRUE(data->getByte_offset(&byte, &offset));
    EXPECT_TRUE(data->getShort_offset(&shortValue, &offset));
    EXPECT_TRUE(data->getInteger_offset(&integer, &offset));
    EXPECT_EQ(offset, 7u);
    EXPECT_EQ(byte, 0x01);
    EXPECT_EQ(shortValue, 0x0302);
    EXPECT_EQ(integer, 0x07060504u);
    offset = 1;
    EXPECT_TRUE(data->getLongLong_offset(&longLong, &offset));
    EXPECT_EQ(longLong, 0x0908070605040302u);
    EXPECT_EQ(offset, 9u);
}

TEST(DataFetch, AShortBufferLeavesValueAndOffsetAlone)
{
    Ref<Data> two = dataOf({0xAA, 0xBB});
    uint16_t value = 7;
    uint32_t offset = 1;
    EXPECT_FALSE(two->getShort_offset(&value, &offset));
    EXPECT_EQ(value, 7);
    EXPECT_EQ(offset, 1u);
    offset = 0;
    EXPECT_TRUE(two->getShort_offset(&value, &offset));
    EXPECT_EQ(offset, 2u);

    uint8_t byte = 0;
    uint32_t integer = 0;
    uint64_t longLong = 0;
    offset = 2;
    EXPECT_FALSE(two->getByte_offset(&byte, &offset));
    offset = 0;
    EXPECT_FALSE(two->getInteger_offset(&integer, &offset));
    EXPECT_FALSE(dataOf(sampleBytes(7))->getLongLong_offset(&longLong, &offset));
    // An offset near 2^32 must not wrap around into the buffer.
    offset = UINT32_MAX;
    EXPECT_FALSE(two->getShort_offset(&value, &offset));
    EXPECT_EQ(offset, UINT32_MAX);
}

TEST(MutableDataAppend, BothOrdersUnderBothNames)
{
    Ref<MutableData> data = MutableData::data();
    data->appendLong_asBigEndian(0x01020304, true);
    data->appendLong_asBigEndian(0x01020304, false);
    data->appendUInt16_asBigEndian(0x0A0B, true);
    data->appendUInt64_asBigEndian(0x1122334455667788, true);
    data->appendShort(0x0A0B);
    data->appendUInt8(0xFE);
    data->appendUInt64(0x1122334455667788);
    EXPECT_EQ(bytesOf(data), (Bytes {0x01, 0x02, 0x03, 0x04, 0x04, 0x03, 0x02, 0x01, 0x0A, 0x0B, 0x11, 0x22, 0x33,
                                 0x44, 0x55, 0x66, 0x77, 0x88, 0x0B, 0x0A, 0xFE, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33,
                                 0x22, 0x11}));
}

