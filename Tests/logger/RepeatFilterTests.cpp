#include "logger/RepeatFilter.h"
#include "logger/StderrSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

using namespace zon::logger;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

using Clock = std::chrono::system_clock;

const Clock::time_point kStart = Clock::time_point {} + 1000h;

Record recordAt(Clock::time_point time, std::string_view message, int level = kLevelError, int line = 7)
{
    Record record {"Sources/platform/io/MessagePort.cpp", line, "default", level, "default", message};
    record.time = time;
    return record;
}

// Runs records through one filter and keeps what would be written, summaries included.
class FilterRun {
public:
    void send(const Record& record)
    {
        if (filter_.admit(record, [this](const Record& summary) { keep(summary); }))
            keep(record);
    }
    void flush(Clock::time_point now)
    {
        filter_.flush(now, [this](const Record& summary) { keep(summary); });
    }
    const std::vector<std::string>& written() const { return written_; }

private:
    void keep(const Record& record) { written_.emplace_back(record.message); }

    RepeatFilter filter_;
    std::vector<std::string> written_;
};

} // namespace

TEST(RepeatFilter, ALineRepeatedWithinASecondIsWrittenOnceThenSummarised)
{
    FilterRun run;
    for (int i = 0; i < 1000; ++i)
        run.send(recordAt(kStart + i * 900us, "closed a connection"));
    EXPECT_THAT(run.written(), ElementsAre("closed a connection"));
    // The next record after the second ends brings the summary out before it.
    run.send(recordAt(kStart + 1500ms, "service started", kLevelInfo));
    EXPECT_THAT(run.written(),
        ElementsAre("closed a connection", "closed a connection (repeated 999 times)", "service started"));
}

TEST(RepeatFilter, ASteadyFloodComesOutAsTheLineAndItsCountOnceASecond)
{
    FilterRun run;
    constexpr int kRecords = 10000;
    for (int i = 0; i < kRecords; ++i)
        run.send(recordAt(kStart + i * 350us, "garbage")); // 3.5 s
    run.flush(kStart + 4s);
    ASSERT_EQ(run.written().size(), 8u);
    int counted = 0;
    for (size_t i = 0; i < run.written().size(); i += 2) {
        EXPECT_EQ(run.written()[i], "garbage");
        int repeats = 0;
        ASSERT_EQ(std::sscanf(run.written()[i + 1].c_str(), "garbage (repeated %d times)", &repeats), 1);
        counted += 1 + repeats;
    }
    EXPECT_EQ(counted, kRecords);
}

TEST(RepeatFilter, LinesDifferingInAnyShownFieldAreCountedApartEvenInterleaved)
{
    FilterRun run;
    for (int i = 0; i < 3; ++i) {
        run.send(recordAt(kStart, "refused"));
        run.send(recordAt(kStart, "refused", kLevelWarning));
        run.send(recordAt(kStart, "refused", kLevelError, 8));
        run.send(recordAt(kStart, "closed"));
    }
    EXPECT_EQ(run.written().size(), 4u);
    run.flush(kStart);
    EXPECT_EQ(std::count(run.written().begin(), run.written().end(), "refused (repeated 2 times)"), 3);
    EXPECT_EQ(std::count(run.written().begin(), run.written().end(), "closed (repeated 2 times)"), 1);

    // Flushing again, or a line never repeated, adds nothing.
    run.flush(kStart);
    run.send(recordAt(kStart, "once"));
    run.flush(kStart);
    EXPECT_EQ(run.written().size(), 9u);
}

TEST(RepeatFilter, MoreLinesThanItTracksSummariseTheOldestFirst)
{
    FilterRun run;
    run.send(recordAt(kStart, "first"));
    run.send(recordAt(kStart, "first"));
    for (size_t i = 0; i < RepeatFilter::kTrackedLines; ++i)
        run.send(recordAt(kStart + 1ms, "other " + std::to_string(i)));
    // The last new line takes the slot of "first", whose count goes out just before it.
    ASSERT_EQ(run.written().size(), RepeatFilter::kTrackedLines + 2);
    EXPECT_EQ(run.written()[RepeatFilter::kTrackedLines], "first (repeated 1 times)");
    run.send(recordAt(kStart + 2ms, "first"));
    EXPECT_EQ(run.written().back(), "first");
}

TEST(RepeatFilter, AClockSetBackEndsTheWindow)
{
    FilterRun run;
    run.send(recordAt(kStart, "tick"));
    run.send(recordAt(kStart, "tick"));
    run.send(recordAt(kStart - 1h, "tick"));
    EXPECT_THAT(run.written(), ElementsAre("tick", "tick (repeated 1 times)", "tick"));
}

TEST(RepeatFilter, AFloodThatStopsIsSummarisedAtExit)
{
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        addSink(std::make_shared<StderrSink>(kLevelDetail, pipeEnds[1]));
        for (int i = 0; i < 500; ++i)
            write(Record {"Sources/platform/io/MessagePort.cpp", 337, "default", kLevelDetail, "default",
                "closed a connection that sent something other than messages"});
        std::exit(0);
    }
    close(pipeEnds[1]);
    std::string output;
    char chunk[4096];
    for (ssize_t count; (count = read(pipeEnds[0], chunk, sizeof chunk)) > 0;)
        output.append(chunk, static_cast<size_t>(count));
    close(pipeEnds[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 2) << output;
    EXPECT_THAT(output, HasSubstr("other than messages (repeated 499 times)\n"));
}
