#include "platform/io/FileEventStream.h"
#include "platform/io/InotifyEventDecoderInternal.h"

#include "platform/threads/RunLoop.h"
#include "support/InotifyInstances.h"
#include "support/ScratchFolder.h"
#include "support/Watchdog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

using namespace zon;
using namespace std::chrono_literals;

namespace {

// One event as the kernel packs it, the name padded with NULs to padTo bytes.
void appendEvent(std::vector<uint8_t>& bytes, int watch, uint32_t mask, std::string_view name, uint32_t padTo)
{
    const uint32_t header[4] = {static_cast<uint32_t>(watch), mask, 7, padTo};
    const auto* raw = reinterpret_cast<const uint8_t*>(header);
    bytes.insert(bytes.end(), raw, raw + sizeof header);
    bytes.insert(bytes.end(), name.begin(), name.end());
    bytes.insert(bytes.end(), padTo - name.size(), 0);
}

TEST(InotifyEventDecoder, SplitsEventsAndStopsAtOneThatDoesNotFit)
{
    std::vector<uint8_t> bytes;
    appendEvent(bytes, 1, 0x100, "made.txt", 16);
    appendEvent(bytes, 2, 0x400, "", 0);
    appendEvent(bytes, 3, 0x2, "written", 16);
    const size_t whole = bytes.size();
    bytes.resize(whole + 20); // a header claiming a longer name than what follows
    const uint32_t longName = 64;
    std::memcpy(bytes.data() + whole + 12, &longName, sizeof longName);

    InotifyEventDecoder decoder(bytes);
    auto first = decoder.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->watch, 1);
    EXPECT_EQ(first->mask, 0x100u);
    EXPECT_EQ(first->cookie, 7u);
    EXPECT_EQ(first->name, "made.txt");
    auto second = decoder.next();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->name, "");
    auto third = decoder.next();
    ASSERT_TRUE(third);
    EXPECT_EQ(third->name, "written");
    EXPECT_FALSE(decoder.next());
    EXPECT_EQ(decoder.consumed(), whole);

    InotifyEventDecoder shortHeader(std::span<const uint8_t>(bytes.data(), 15));
    EXPECT_FALSE(shortHeader.next());
}

struct Counter {
    int calls = 0;
    std::unique_ptr<FileEventStream> watch(const std::string& directory, std::chrono::nanoseconds latency = 50ms)
    {
        return FileEventStream::create(directory, directory + "/probe", latency, [this] { ++calls; });
    }
};

void runFor(std::chrono::milliseconds span)
{
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, std::chrono::nanoseconds(span), false);
}

TEST(FileEventStream, StreamsOfAThreadShareOneInstanceAndOneWatchPerFolder)
{
    test::ScratchFolder folder;
    const size_t before = test::openInotifyInstances();
    Counter first, second, third;
    auto a = first.watch(folder.path);
    auto b = second.watch(folder.path);
    auto c = third.watch(folder.makeFolder("other"));
    EXPECT_EQ(test::openInotifyInstances(), before + 1);
    EXPECT_EQ(a->method(), FileEventStream::Method::Inotify);

    // Dropping one stream of the shared watch leaves the other watching.
    a.reset();
    folder.write("file", "x");
    ASSERT_TRUE(test::runLoopUntil([&] { return second.calls == 1; }));
    runFor(150ms);
    EXPECT_EQ(first.calls, 0);
    EXPECT_EQ(third.calls, 0);
}

TEST(FileEventStream, BurstIsOneBatchThatEndsAfterTheWindow)
{
    test::ScratchFolder folder;
    Counter counter;
    auto stream = counter.watch(folder.path, 300ms);
    const auto first = std::chrono::steady_clock::now();
    for (int i = 0; i < 200; ++i)
        folder.write("f" + std::to_string(i), "data");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == 1; }));
    EXPECT_GE(std::chrono::steady_clock::now() - first, 300ms);
    runFor(400ms);
    EXPECT_EQ(counter.calls, 1);
}

// More events than the queue holds: the window still ends in a change, and the stream keeps
// watching afterwards.
TEST(FileEventStream, FloodedQueueIsAChangeAndWatchingGoesOn)
{
    test::ScratchFolder folder;
    Counter counter;
    auto stream = counter.watch(folder.path, 100ms);
    for (int i = 0; i < 10'000; ++i)
        folder.write("f" + std::to_string(i), "data");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls >= 1; }));
    runFor(300ms);
    const int afterBurst = counter.calls;
    folder.write("quiet", "x");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == afterBurst + 1; }));
}

// After an overflowed queue the watch is checked by path: a folder replaced while its events were
// being dropped is watched anew, not left on the old one.
TEST(FileEventStream, FolderReplacedDuringAFloodIsFollowed)
{
    test::ScratchFolder folder;
    const std::string watched = folder.makeFolder("watched");
    const std::string a = folder.write("watched/a", "x"), b = folder.write("watched/b", "x");
    Counter counter;
    auto stream = counter.watch(watched, 1500ms);
    // Alternating files keep the kernel from merging the events: more than its 16,384 queue.
    for (int i = 0; i < 17'000; ++i)
        std::filesystem::last_write_time(i % 2 ? a : b, std::filesystem::file_time_type(std::chrono::seconds(i)));
    std::filesystem::rename(watched, folder.file("old"));
    folder.makeFolder("watched");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls >= 1; }));
    const int afterFlood = counter.calls;
    folder.write("old/ignored", "x");
    runFor(1800ms);
    EXPECT_EQ(counter.calls, afterFlood);
    folder.write("watched/new", "x");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == afterFlood + 1; }));
}

TEST(FileEventStream, MissingFolderIsAwaitedThroughItsAncestorAndFollowedByPath)
{
    test::ScratchFolder folder;
    const std::string deep = folder.file("a/b/c");
    Counter counter;
    auto stream = counter.watch(deep);
    folder.makeFolder("a"); // on the way, not there yet: no change
    runFor(200ms);
    EXPECT_EQ(counter.calls, 0);

    folder.makeFolder("a/b/c");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == 1; }));
    folder.write("a/b/c/file", "x");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == 2; }));

    // Removed and made again: the new folder is watched.
    std::filesystem::remove_all(folder.file("a/b"));
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == 3; }));
    folder.makeFolder("a/b/c");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == 4; }));
    folder.write("a/b/c/again", "x");
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == 5; }));

    // Renamed away: what happens in the moved folder is no longer reported.
    std::filesystem::rename(deep, folder.file("a/b/moved"));
    ASSERT_TRUE(test::runLoopUntil([&] { return counter.calls == 6; }));
    folder.write("a/b/moved/late", "x");
    runFor(200ms);
    EXPECT_EQ(counter.calls, 6);
}

TEST(FileEventStream, CallbackMayDestroyItsOwnStreamAndOthers)
{
    test::ScratchFolder folder;
    std::unique_ptr<FileEventStream> first, second;
    int calls = 0;
    auto dropBoth = [&] {
        ++calls;
        first.reset();
        second.reset();
    };
    first = FileEventStream::create(folder.path, "", 50ms, dropBoth);
    second = FileEventStream::create(folder.path, "", 50ms, dropBoth);
    folder.write("file", "x");
    ASSERT_TRUE(test::runLoopUntil([&] { return calls > 0; }));
    runFor(150ms);
    EXPECT_EQ(calls, 1);
}

} // namespace
