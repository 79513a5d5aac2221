#include "extensions/NSError+ZonExtensions.h"
#include "extensions/NSObject+ZonExtensions.h"
#include "logger/ZonLog.h"
#include "platform/io/InputStream.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/Raised.h"
#include "support/Watchdog.h"
#include "utilities/data/TXZonBufferStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

using namespace zon;
using namespace zon::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;

namespace {

// Records the read side's callbacks and the bytes it was handed.
class Reader final : public Object, public TXZonBufferStreamReadProtocol {
    ZON_OBJECT(Reader, Object)
public:
    void bufferStreamDidOpen(TXZonBufferStream*) override { calls.push_back("open"); }
    void bufferStream_didGetBytes(TXZonBufferStream* stream, Data* data) override
    {
        chunkSizes.push_back(data->length());
        received.insert(received.end(), data->span().begin(), data->span().end());
        if (onChunk)
            onChunk(stream);
    }
    void bufferStreamDidClose(TXZonBufferStream*) override { calls.push_back("close"); }
    void bufferStream_didEncounterError(TXZonBufferStream*, Error* error) override
    {
        calls.push_back("error " + std::to_string(error ? error->code() : -1));
    }

    std::vector<std::string> calls;
    std::vector<size_t> chunkSizes;
    std::vector<uint8_t> received;
    std::function<void(TXZonBufferStream*)> onChunk;
};

// Answers bytes in pieces no longer than maxPiece (random lengths from 1 when varied).
class Writer final : public Object, public TXZonBufferStreamWriteProtocol {
    ZON_OBJECT(Writer, Object)
public:
    void bufferStreamDidOpen(TXZonBufferStream*) override { calls.push_back("open"); }
    bool bufferStream_requestingBytes(TXZonBufferStream*, Ref<Data>* data) override
    {
        if (position >= bytes.size())
            return false;
        size_t piece = std::min(maxPiece, bytes.size() - position);
        if (varied)
            piece = std::uniform_int_distribution<size_t>(1, piece)(random);
        *data = Data::dataWithBytes(bytes.data() + position, piece);
        position += piece;
        return true;
    }
    void bufferStreamDidClose(TXZonBufferStream*) override { calls.push_back("close"); }
    void bufferStream_didEncounterError(TXZonBufferStream*, Error* error) override
    {
        calls.push_back("error " + std::to_string(error ? error->code() : -1));
        lastError = error;
    }

    std::vector<uint8_t> bytes;
    size_t position = 0;
    size_t maxPiece = SIZE_MAX;
    bool varied = false;
    std::mt19937 random {7};
    std::vector<std::string> calls;
    Ref<Error> lastError;
};

ZON_DEFINE_CLASS(Reader, "BufferStreamTestReader")
ZON_DEFINE_CLASS(Writer, "BufferStreamTestWriter")

std::vector<uint8_t> randomBytes(size_t count)
{
    std::vector<uint8_t> bytes(count);
    std::mt19937 random(static_cast<unsigned>(count));
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(random()); });
    return bytes;
}

bool bothClosed(const Reader& reader, const Writer& writer)
{
    return !reader.calls.empty() && reader.calls.back() == "close" && !writer.calls.empty()
        && writer.calls.back() == "close";
}

auto LogLine(int line, int level, String* identifier, const std::string& message)
{
    return testing::Contains(AllOf(Field("file", &logger::CapturedRecord::file, HasSubstr("utilities/data/TXZonBufferStream")),
        Field("line", &logger::CapturedRecord::line, line),
        Field("level", &logger::CapturedRecord::level, level),
        Field("identifier", &logger::CapturedRecord::identifier, identifier->UTF8String()),
        Field("message", &logger::CapturedRecord::message, HasSubstr(message))));
}

} // namespace

TEST(TXZonBufferStream, DataSourceAnsweringNoAtOnceClosesBothSides)
{
    LogCapture capture;
    Ref<Reader> reader = makeObject<Reader>();
    Ref<Writer> writer = makeObject<Writer>();
    Ref<TXZonBufferStream> stream = TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(
        reader.get(), writer.get(), 64);
    ASSERT_TRUE(runLoopUntil([&] { return bothClosed(*reader, *writer); }));
    EXPECT_THAT(reader->calls, ElementsAre("open", "close"));
    EXPECT_THAT(writer->calls, ElementsAre("open", "close"));
    EXPECT_TRUE(reader->chunkSizes.empty());
    EXPECT_THAT(capture.records(), LogLine(115, 5, kLogNetworkCommIdentifier, " *| Buffer Stream Opened for <BufferStreamTestWriter"));
    EXPECT_THAT(capture.records(),
        LogLine(121, 5, kLogNetworkCommIdentifier, " *| Buffer Stream Closed for <BufferStreamTestWriter"));
    EXPECT_THAT(capture.records(), ContainsLine(5, HasSubstr("due to data write complete")));
}

// Buffer sizes from 1 byte to 64 KiB and data from nothing to 16 MiB, in pieces no longer than
// the buffer: every byte arrives in order, in chunks that are neither empty nor over the size.
TEST(TXZonBufferStream, PumpsEveryByteInChunksWithinTheBufferSize)
{
    struct Case {
        int32_t bufferSize;
        size_t dataSize;
    };
    const Case cases[] = {{1, 0}, {1, 1}, {1, 3000}, {7, 10000}, {4096, 4095}, {4096, 4097}, {4096, 1 << 20},
        {65536, 0}, {65536, 65537}, {65536, 16 << 20}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "buffer " << c.bufferSize << ", data " << c.dataSize);
        Ref<Reader> reader = makeObject<Reader>();
        Ref<Writer> writer = makeObject<Writer>();
        writer->bytes = randomBytes(c.dataSize);
        writer->maxPiece = size_t(c.bufferSize);
        writer->varied = c.dataSize < 100000;
        Ref<TXZonBufferStream> stream = TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(
            reader.get(), writer.get(), c.bufferSize);
        ASSERT_TRUE(runLoopUntil([&] { return bothClosed(*reader, *writer); }, NSDefaultRunLoopMode, std::chrono::seconds(60)));
        EXPECT_TRUE(reader->received == writer->bytes);
        EXPECT_EQ(std::count(reader->chunkSizes.begin(), reader->chunkSizes.end(), 0u), 0);
        EXPECT_TRUE(std::all_of(reader->chunkSizes.begin(), reader->chunkSizes.end(),
            [&](size_t size) { return size <= size_t(c.bufferSize); }));
        EXPECT_THAT(writer->calls, ElementsAre("open", "close"));
    }
}

TEST(TXZonBufferStream, AnswerLargerThanTheBufferIsWrittenInOneCallbackWithForcedRuns)
{
    LogCapture capture;
    Ref<Reader> reader = makeObject<Reader>();
    Ref<Writer> writer = makeObject<Writer>();
    writer->bytes = randomBytes(10000);
    Ref<TXZonBufferStream> stream = TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(
        reader.get(), writer.get(), 4096);
    ASSERT_TRUE(runLoopUntil([&] { return bothClosed(*reader, *writer); }));
    EXPECT_TRUE(reader->received == writer->bytes);
    EXPECT_THAT(reader->chunkSizes, ElementsAre(4096, 4096, 1808));
    EXPECT_THAT(capture.records(), LogLine(133, 5, kLogNetworkCommIdentifier, " *| Buffer Stream Wrote 4096 of 10000 from <BufferStreamTestWriter"));
    EXPECT_THAT(capture.records(), LogLine(133, 5, kLogNetworkCommIdentifier, " *| Buffer Stream Wrote 0 of 10000 from"));
    EXPECT_THAT(capture.records(), LogLine(141, 2, kDefaultLogIdentifier, " *| Buffer Stream forced run loop run for <BufferStreamTestWriter"));
}

TEST(TXZonBufferStream, ReadEndClosedEarlyEndsTheWriteSideWithPrematureClosure)
{
    LogCapture capture;
    Ref<Reader> reader = makeObject<Reader>();
    Ref<Writer> writer = makeObject<Writer>();
    writer->bytes = randomBytes(1000);
    writer->maxPiece = 100;
    reader->onChunk = [](TXZonBufferStream* stream) { stream->outputStream()->close(); };
    Ref<TXZonBufferStream> stream = TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(
        reader.get(), writer.get(), 100);
    ASSERT_TRUE(runLoopUntil([&] { return !writer->calls.empty() && writer->calls.back() == "close"; }));
    EXPECT_THAT(writer->calls, ElementsAre("open", "error 47872", "close"));
    ASSERT_TRUE(writer->lastError);
    EXPECT_TRUE(writer->lastError->domain()->isEqual(NSCocoaErrorDomain));
    EXPECT_EQ(writer->lastError->userInfo(), nullptr);
    EXPECT_EQ(writer->lastError->code(), kZonBufferPrematureClosureError);
    EXPECT_THAT(capture.records(), LogLine(156, 1, kDefaultLogIdentifier,
                                       " *| Buffer Stream Closed for <BufferStreamTestWriter"));
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("due to write stream closure (premature?)")));
    EXPECT_EQ(reader->chunkSizes.size(), 1u);
}

TEST(TXZonBufferStream, WriteErrorAndUnknownEventsAreReportedAndLogged)
{
    LogCapture capture;
    Ref<Reader> reader = makeObject<Reader>();
    Ref<Writer> writer = makeObject<Writer>();
    writer->bytes = randomBytes(10);
    Ref<TXZonBufferStream> stream = TXZonBufferStream::initWithWriteStreamDataSource(writer.get());
    stream->set_readStreamDelegate(reader.get());
    stream->writeStreamCallback(static_cast<NSStreamEvent>(64));
    EXPECT_THAT(writer->calls, ElementsAre("error 47873", "close"));
    EXPECT_THAT(capture.records(), LogLine(160, 1, kDefaultLogIdentifier, " *| Buffer Stream Encountered Unknown State (64) with <BufferStreamTestWriter"));
    stream->readStreamCallback(static_cast<NSStreamEvent>(64));
    EXPECT_THAT(reader->calls, ElementsAre("error 0"));

    // A write after the read end closed fails: logged with the status and reported.
    Ref<Writer> second = makeObject<Writer>();
    second->bytes = randomBytes(10);
    Ref<TXZonBufferStream> other = TXZonBufferStream::initWithWriteStreamDataSource(second.get());
    other->outputStream()->open();
    other->outputStream()->close();
    other->writeStreamCallback(NSStreamEventHasSpaceAvailable);
    EXPECT_THAT(second->calls, ElementsAre("error 32", "close"));
    EXPECT_THAT(capture.records(), LogLine(137, 1, kDefaultLogIdentifier, " *| Buffer Stream Write Error(7) Error Domain=NSCocoaErrorDomain Code=32"));
}

TEST(TXZonBufferStream, DelegateReleasingTheStreamInItsCallbackIsSafe)
{
    Ref<Reader> reader = makeObject<Reader>();
    Ref<Writer> writer = makeObject<Writer>();
    writer->bytes = randomBytes(500);
    writer->maxPiece = 50;
    Ref<TXZonBufferStream> stream = TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(
        reader.get(), writer.get(), 50);
    Ref<InputStream> readEnd = stream->readStream();
    Ref<OutputStream> writeEnd = stream->writeStream();
    reader->onChunk = [&](TXZonBufferStream* current) {
        EXPECT_EQ(current, stream.get());
        stream = nullptr;
        EXPECT_EQ(current->streamBufferSize(), 50) << "alive until the callback returns";
    };
    ASSERT_TRUE(runLoopUntil([&] { return !stream; }));
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.05, false);
    EXPECT_EQ(reader->chunkSizes.size(), 1u) << "no callback after destruction";
    EXPECT_EQ(readEnd->streamStatus(), NSStreamStatusClosed) << "destruction closes the ends";
    EXPECT_EQ(writeEnd->streamStatus(), NSStreamStatusClosed);
}

TEST(TXZonBufferStream, InitialisersAccessorsAndTheCrossedNames)
{
    Ref<TXZonBufferStream> plain = TXZonBufferStream::init();
    EXPECT_EQ(plain->streamBufferSize(), kTXZonBufferStreamDefaultSize);
    EXPECT_EQ(kTXZonBufferStreamDefaultSize, 4096);
    EXPECT_EQ(plain->inputStream(), plain->writeStream());
    EXPECT_EQ(plain->outputStream(), plain->readStream());
    EXPECT_EQ(plain->readStream()->streamStatus(), NSStreamStatusNotOpen) << "no partner, not opened";
    Ref<Reader> reader = makeObject<Reader>();
    Ref<TXZonBufferStream> reading = TXZonBufferStream::initWithReadStreamDelegate(reader.get());
    EXPECT_EQ(reading->_readStreamDelegate(), reader.get());
    EXPECT_EQ(reading->_writeStreamDataSource(), nullptr);
    EXPECT_EQ(reading->readStream()->streamStatus(), NSStreamStatusOpen);
    {
        AutoreleasePool pool;
        TXZonBufferStream* autoreleased = TXZonBufferStream::bufferStreamWithReadDelegate(reader.get());
        EXPECT_EQ(autoreleased->streamBufferSize(), 4096);
        EXPECT_EQ(TXZonBufferStream::bufferStreamWithWriteDataSource(nullptr)->_readStreamDelegate(), nullptr);
    }
    EXPECT_EQ(inconsistencyReason([] { TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(nullptr, nullptr, 0); }),
        "Buffer stream size must be greater than zero, not 0");
    EXPECT_EQ(inconsistencyReason([] { TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(nullptr, nullptr, -5); }),
        "Buffer stream size must be greater than zero, not -5");
}
