#include "logger/CaptureSink.h"
#include "logger/FileSink.h"
#include "logger/StderrSink.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>
#include <unistd.h>

using namespace zon;
using namespace zon::logger;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

void logLine(int level, std::string_view message, std::string_view identifier = "default")
{
    write(Record {__FILE__, __LINE__, "default", level, identifier, message});
}

TEST(Logger, SinkReceivesOnlyRecordsAtOrBelowItsThreshold)
{
    auto sink = std::make_shared<CaptureSink>(kLevelInfo);
    addSink(sink);
    for (int level : {1, 2, 3, 4, 5})
        logLine(level, "level " + std::to_string(level));
    removeSink(sink);
    EXPECT_THAT(sink->lines(), ElementsAre("level 1", "level 2", "level 3"));
}

TEST(Logger, MaximumThresholdFollowsSinksAddedChangedAndRemoved)
{
    auto before = sinks();
    for (auto& sink : before)
        removeSink(sink);
    EXPECT_FALSE(isEnabled(kLevelError)) << "no sinks: everything is filtered out";

    auto low = std::make_shared<CaptureSink>(kLevelWarning);
    auto high = std::make_shared<CaptureSink>(kLevelInfo);
    addSink(low);
    addSink(high);
    EXPECT_TRUE(isEnabled(kLevelInfo));
    EXPECT_FALSE(isEnabled(kLevelDetail));

    high->setThreshold(kLevelDetail);
    EXPECT_TRUE(isEnabled(kLevelDetail));
    removeSink(high);
    EXPECT_TRUE(isEnabled(kLevelWarning));
    EXPECT_FALSE(isEnabled(kLevelInfo));

    removeSink(low);
    for (auto& sink : before)
        addSink(sink);
}

TEST(Logger, AddingTheSameSinkTwiceDeliversOnce)
{
    auto sink = std::make_shared<CaptureSink>();
    addSink(sink);
    addSink(sink);
    logLine(kLevelDetail, "once");
    removeSink(sink);
    EXPECT_THAT(sink->lines(), ElementsAre("once"));
}

TEST(Logger, StampsTheCallingThread)
{
    LogCapture capture;
    logLine(kLevelDetail, "stamped");
    std::thread([] { logLine(kLevelDetail, "from another thread"); }).join();
    auto records = capture.records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].thread, int(gettid()));
    EXPECT_NE(records[1].thread, records[0].thread);
}

TEST(LogCapture, CapturesWhileAliveAndDetachesAfterwards)
{
    size_t sinkCount = sinks().size();
    {
        LogCapture capture;
        EXPECT_EQ(sinks().size(), sinkCount + 1);
        logLine(kLevelError, "Recieved NULL Packet");
        logLine(kLevelWarning, "Identifier: x already exists, will be destroyed", "networkcomm");
        EXPECT_THAT(capture.records(), ContainsLine(kLevelError, "Recieved NULL Packet"));
        EXPECT_THAT(capture.records(), ContainsLine(kLevelWarning, HasSubstr("already exists")));
        EXPECT_THAT(capture.records(), Not(ContainsLine(kLevelWarning, "Recieved NULL Packet")));
        EXPECT_THAT(capture.records(), Not(ContainsLine(kLevelError, "Recieved NULL")));
        EXPECT_EQ(capture.records()[1].identifier, "networkcomm");
    }
    EXPECT_EQ(sinks().size(), sinkCount);
}

TEST(StderrSink, WritesOneFormattedLinePerRecord)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    auto sink = std::make_shared<StderrSink>(kLevelDetail, fds[1]);
    addSink(sink);
    logLine(kLevelWarning, "to the pipe");
    removeSink(sink);
    close(fds[1]);
    std::string text(4096, '\0');
    text.resize(size_t(std::max<ssize_t>(0, read(fds[0], text.data(), text.size()))));
    close(fds[0]);
    EXPECT_THAT(text, ::testing::MatchesRegex(".* <W> default/default [^ ]*Tests/logger/LoggerTests.cpp:[0-9]+: to the pipe\n"));
}

// Many threads log while others add and remove sinks and change thresholds: every record reaches
// the sink that stays installed, lines in the file never interleave, and TSan sees no race.
TEST(Logger, ConcurrentWritersAndReconfigurationLoseNothing)
{
    constexpr int kThreads = 8;
    constexpr int kRecordsPerThread = 1000;
    std::string path = ::testing::TempDir() + "zon-logger-concurrency.log";
    std::remove(path.c_str());
    auto capture = std::make_shared<CaptureSink>(kLevelDetail);
    auto file = std::make_shared<FileSink>(path, kLevelDetail, 0, 0);
    addSink(capture);
    addSink(file);

    std::atomic<bool> writing {true};
    std::thread reconfigurer([&] {
        while (writing.load()) {
            auto transient = std::make_shared<CaptureSink>(kLevelInfo);
            addSink(transient);
            transient->setThreshold(kLevelError);
            removeSink(transient);
        }
    });
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([t] {
            for (int i = 0; i < kRecordsPerThread; ++i)
                logLine(kLevelDetail, "writer " + std::to_string(t) + " record " + std::to_string(i));
        });
    }
    for (auto& writer : writers)
        writer.join();
    writing = false;
    reconfigurer.join();
    removeSink(capture);
    removeSink(file);

    EXPECT_EQ(capture->records().size(), size_t(kThreads * kRecordsPerThread));
    std::ifstream in(path);
    std::string line;
    int lines = 0;
    while (std::getline(in, line)) {
        ++lines;
        ASSERT_THAT(line, ::testing::MatchesRegex(".*<D> default/default .*: writer [0-9]+ record [0-9]+")) << line;
    }
    EXPECT_EQ(lines, kThreads * kRecordsPerThread);
    std::remove(path.c_str());
}

} // namespace
