#include "platform/io/BoundStreamPair.h"
#include "platform/io/InputStream.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/Raised.h"
#include "support/ScratchFolder.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <numeric>
#include <thread>
#include <vector>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;

namespace {

using Events = std::vector<NSStreamEvent>;

// Schedules stream on this thread's loop and records the events of mask it is handed.
void record(Stream* stream, Events& events, uint32_t mask = 31)
{
    stream->setClient(mask, [&events](Stream*, NSStreamEvent event) { events.push_back(event); });
    stream->scheduleInRunLoop_forMode(RunLoop::currentRunLoop(), NSDefaultRunLoopMode);
}

// Serves what is queued now.
void drainLoop()
{
    for (int i = 0; i < 4; ++i)
        RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.0, false);
}

std::vector<uint8_t> iota(size_t count)
{
    std::vector<uint8_t> bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t {1});
    return bytes;
}

} // namespace

TEST(BoundStreamPair, RingHoldsExactlyTheSizeAskedAndKeepsOrderAcrossTheWrap)
{
    BoundStreamPair pair = createBoundStreamPair(7);
    pair.readStream->open();
    pair.writeStream->open();
    const std::vector<uint8_t> bytes = iota(200);
    std::vector<uint8_t> received;
    size_t written = 0;
    size_t step = 1;
    while (received.size() < bytes.size()) {
        const long count = pair.writeStream->write_maxLength(bytes.data() + written, std::min(step, bytes.size() - written));
        ASSERT_GE(count, 0);
        written += size_t(count);
        if (written - received.size() == 7)
            EXPECT_EQ(pair.writeStream->write_maxLength(bytes.data(), 1), 0) << "a full buffer takes nothing";
        uint8_t chunk[5];
        const long read = pair.readStream->read_maxLength(chunk, 1 + step % 5);
        ASSERT_GT(read, 0);
        received.insert(received.end(), chunk, chunk + read);
        step = step % 9 + 1;
    }
    EXPECT_EQ(received, bytes);
    EXPECT_EQ(inconsistencyReason([] { (void)createBoundStreamPair(0); }),
        "A bound stream pair needs a buffer of at least one byte");
}

TEST(BoundStreamPair, EventsAreCoalescedFilteredByMaskAndEndTheReadSideOnceDrained)
{
    BoundStreamPair pair = createBoundStreamPair(16);
    Events readEvents, writeEvents;
    record(pair.readStream.get(), readEvents);
    record(pair.writeStream.get(), writeEvents, NSStreamEventOpenCompleted | NSStreamEventEndEncountered);
    pair.readStream->open();
    pair.writeStream->open();
    const uint8_t bytes[4] = {1, 2, 3, 4};
    EXPECT_EQ(pair.writeStream->write_maxLength(bytes, 2), 2);
    EXPECT_EQ(pair.writeStream->write_maxLength(bytes, 2), 2);
    EXPECT_TRUE(readEvents.empty()) << "events are posted, never called out from the write";
    drainLoop();
    EXPECT_THAT(readEvents, ElementsAre(NSStreamEventOpenCompleted, NSStreamEventHasBytesAvailable));
    EXPECT_THAT(writeEvents, ElementsAre(NSStreamEventOpenCompleted)) << "has-space is not in the mask";

    pair.writeStream->close();
    drainLoop();
    EXPECT_EQ(readEvents.size(), 2u) << "no end while bytes are buffered";
    uint8_t target[8];
    EXPECT_EQ(pair.readStream->read_maxLength(target, 3), 3);
    EXPECT_EQ(pair.readStream->read_maxLength(target, 8), 1);
    EXPECT_EQ(pair.readStream->streamStatus(), NSStreamStatusAtEnd);
    drainLoop();
    // The has-bytes the first read raised is void once the end is reached.
    EXPECT_THAT(readEvents,
        ElementsAre(NSStreamEventOpenCompleted, NSStreamEventHasBytesAvailable, NSStreamEventEndEncountered));
    EXPECT_EQ(pair.readStream->read_maxLength(target, 8), 0);
}

TEST(BoundStreamPair, ReadEndClosingFirstEndsTheWriterAndLaterWritesFail)
{
    BoundStreamPair pair = createBoundStreamPair(4);
    Events writeEvents;
    record(pair.writeStream.get(), writeEvents);
    pair.readStream->open();
    pair.writeStream->open();
    drainLoop();
    pair.readStream->close();
    drainLoop();
    EXPECT_THAT(writeEvents, ElementsAre(NSStreamEventOpenCompleted, NSStreamEventHasSpaceAvailable,
                                 NSStreamEventEndEncountered));
    EXPECT_EQ(pair.writeStream->streamStatus(), NSStreamStatusAtEnd);
    const uint8_t byte = 1;
    EXPECT_EQ(pair.writeStream->write_maxLength(&byte, 1), -1);
    EXPECT_EQ(pair.writeStream->streamStatus(), NSStreamStatusError);
    Ref<Error> error = pair.writeStream->streamError();
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->domain()->isEqual(NSCocoaErrorDomain));
    EXPECT_EQ(error->code(), EPIPE);
    EXPECT_EQ(error->localizedDescription()->UTF8String(), "write: Broken pipe");
}

TEST(BoundStreamPair, EventRaisedDuringItsOwnCallbackWaitsUntilTheCallbackReturns)
{
    BoundStreamPair pair = createBoundStreamPair(4);
    std::vector<std::string> trace;
    bool inWriterCallback = false;
    pair.readStream->setClient(NSStreamEventHasBytesAvailable, [&](Stream* stream, NSStreamEvent) {
        uint8_t target[4];
        trace.push_back("read " + std::to_string(static_cast<InputStream*>(stream)->read_maxLength(target, 4)));
    });
    int spaceEvents = 0;
    pair.writeStream->setClient(NSStreamEventHasSpaceAvailable, [&](Stream* stream, NSStreamEvent) {
        EXPECT_FALSE(inWriterCallback) << "re-entered";
        if (++spaceEvents > 2)
            return;
        inWriterCallback = true;
        const uint8_t bytes[4] = {};
        trace.push_back("wrote " + std::to_string(static_cast<OutputStream*>(stream)->write_maxLength(bytes, 4)));
        // The reader drains during this nested run; the writer's has-space must wait.
        RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.02, false);
        trace.push_back("writer returns");
        inWriterCallback = false;
    });
    for (Stream* end : {static_cast<Stream*>(pair.readStream.get()), static_cast<Stream*>(pair.writeStream.get())}) {
        end->scheduleInRunLoop_forMode(RunLoop::currentRunLoop(), NSDefaultRunLoopMode);
        end->open();
    }
    ASSERT_TRUE(runLoopUntil([&] { return spaceEvents >= 3; }));
    EXPECT_THAT(trace, ElementsAre("wrote 4", "read 4", "writer returns", "wrote 4", "read 4", "writer returns"));
}

TEST(BoundStreamPair, EndReleasedInsideItsCallbackLivesUntilTheCallbackReturns)
{
    BoundStreamPair pair = createBoundStreamPair(4);
    Ref<InputStream> reader = std::move(pair.readStream);
    long statusAfterRelease = -1;
    reader->setClient(NSStreamEventOpenCompleted, [&](Stream* stream, NSStreamEvent) {
        reader = nullptr; // the last reference
        statusAfterRelease = stream->streamStatus();
    });
    reader->scheduleInRunLoop_forMode(RunLoop::currentRunLoop(), NSDefaultRunLoopMode);
    reader->open();
    drainLoop();
    EXPECT_EQ(reader, nullptr);
    EXPECT_EQ(statusAfterRelease, NSStreamStatusOpen);
}

TEST(BoundStreamPair, UnscheduledEndKeepsItsEventsAndClosedEndGetsNone)
{
    BoundStreamPair pair = createBoundStreamPair(4);
    Events readEvents;
    pair.readStream->setClient(31, [&](Stream*, NSStreamEvent event) { readEvents.push_back(event); });
    pair.readStream->open();
    drainLoop();
    EXPECT_TRUE(readEvents.empty());
    pair.readStream->scheduleInRunLoop_forMode(RunLoop::currentRunLoop(), NSDefaultRunLoopMode);
    drainLoop();
    EXPECT_THAT(readEvents, ElementsAre(NSStreamEventOpenCompleted));

    pair.writeStream->open();
    const uint8_t byte = 1;
    EXPECT_EQ(pair.writeStream->write_maxLength(&byte, 1), 1);
    pair.readStream->close();
    drainLoop();
    EXPECT_THAT(readEvents, ElementsAre(NSStreamEventOpenCompleted));
    EXPECT_EQ(pair.readStream->read_maxLength(nullptr, 0), -1);
}

TEST(FileInputStream, ReadsTheFileWithEventsOffsetAndFailures)
{
    ScratchFolder folder;
    const std::string path = folder.write("data", "abcdef");
    Ref<InputStream> stream = InputStream::inputStreamWithFileAtPath(String::stringWithUTF8String(path).get());
    uint8_t buffer[4];
    EXPECT_EQ(stream->read_maxLength(buffer, 4), -1) << "not open";
    EXPECT_TRUE(stream->setProperty_forKey(Number::numberWithInt(2).get(), NSStreamFileCurrentOffsetKey));
    Events events;
    record(stream.get(), events);
    stream->open();
    EXPECT_TRUE(stream->hasBytesAvailable());
    EXPECT_EQ(stream->read_maxLength(buffer, 3), 3);
    EXPECT_EQ(std::string(buffer, buffer + 3), "cde");
    EXPECT_EQ(static_cast<Number*>(stream->propertyForKey(NSStreamFileCurrentOffsetKey).get())->longLongValue(), 5);
    EXPECT_EQ(stream->read_maxLength(buffer, 4), 1);
    EXPECT_EQ(stream->read_maxLength(buffer, 4), 0);
    EXPECT_EQ(stream->streamStatus(), NSStreamStatusAtEnd);
    drainLoop();
    EXPECT_THAT(events, ElementsAre(NSStreamEventOpenCompleted, NSStreamEventHasBytesAvailable, NSStreamEventEndEncountered));

    Ref<InputStream> missing = InputStream::inputStreamWithFileAtPath(String::stringWithUTF8String(folder.file("none")).get());
    missing->open();
    EXPECT_EQ(missing->streamStatus(), NSStreamStatusError);
    ASSERT_TRUE(missing->streamError());
    EXPECT_EQ(missing->streamError()->code(), ENOENT);
    EXPECT_EQ(missing->streamError()->localizedDescription()->UTF8String(), "open: No such file or directory");
    EXPECT_EQ(InputStream::inputStreamWithFileAtPath(nullptr), nullptr);
}

TEST(DataInputStream, ReadsBeforeOpenAndPostsEventsOnceOpen)
{
    Ref<Data> data = Data::dataWithBytes("xyz", 3);
    Ref<InputStream> stream = InputStream::inputStreamWithData(data.get());
    uint8_t buffer[2];
    EXPECT_EQ(stream->read_maxLength(buffer, 1), 1);
    Events events;
    record(stream.get(), events);
    stream->open();
    EXPECT_EQ(stream->read_maxLength(buffer, 2), 2);
    EXPECT_FALSE(stream->hasBytesAvailable());
    drainLoop();
    EXPECT_THAT(events, ElementsAre(NSStreamEventOpenCompleted, NSStreamEventHasBytesAvailable, NSStreamEventEndEncountered));
}

TEST(BoundStreamPair, EndsOnTwoThreadsPassEveryByteAndTheReaderWaitsForData)
{
    BoundStreamPair pair = createBoundStreamPair(1000);
    pair.readStream->open();
    pair.writeStream->open();
    const std::vector<uint8_t> bytes = iota(1 << 20);
    std::thread writer([&] {
        size_t written = 0;
        while (written < bytes.size()) {
            const long count = pair.writeStream->write_maxLength(bytes.data() + written, std::min<size_t>(777, bytes.size() - written));
            ASSERT_GE(count, 0);
            written += size_t(count);
            if (count == 0)
                std::this_thread::yield();
        }
        pair.writeStream->close();
    });
    std::vector<uint8_t> received;
    uint8_t chunk[1500];
    for (long n; (n = pair.readStream->read_maxLength(chunk, sizeof chunk)) > 0;)
        received.insert(received.end(), chunk, chunk + n);
    writer.join();
    EXPECT_TRUE(received == bytes);
}
