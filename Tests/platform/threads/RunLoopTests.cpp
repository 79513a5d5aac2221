#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/threads/Timer.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace zon;
using namespace std::chrono_literals;
using test::HangGuard;
using test::runLoopUntil;

namespace {

String* const kOtherMode = ZSTR("OtherTestMode");
String* const kReplyMode = ZSTR("ReplyTestMode");

// A pipe whose read end a source can watch.
struct Pipe {
    int fds[2];
    Pipe() { EXPECT_EQ(pipe(fds), 0); }
    ~Pipe()
    {
        close(fds[0]);
        close(fds[1]);
    }
    void write(char c) { EXPECT_EQ(::write(fds[1], &c, 1), 1); }
    char read()
    {
        char c = 0;
        EXPECT_EQ(::read(fds[0], &c, 1), 1);
        return c;
    }
};

} // namespace

TEST(RunLoop, BlocksQueuedFromOneThreadRunInOrder)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    constexpr int kCount = 2000;
    std::vector<int> order;
    std::thread poster([&] {
        for (int i = 0; i < kCount; ++i)
            loop->performBlock({NSDefaultRunLoopMode}, [&order, i] { order.push_back(i); });
    });
    runLoopUntil([&] { return order.size() == kCount; });
    poster.join();
    for (int i = 0; i < kCount; ++i)
        ASSERT_EQ(order[i], i);
}

TEST(RunLoop, BlockForAnotherModeWaitsUntilThatModeRuns)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    std::vector<std::string> ran;
    loop->performBlock({kOtherMode}, [&] { ran.push_back("other"); });
    loop->performBlock({NSDefaultRunLoopMode}, [&] { ran.push_back("default"); });
    runLoopUntil([&] { return !ran.empty(); });
    EXPECT_THAT(ran, testing::ElementsAre("default"));
    runLoopUntil([&] { return ran.size() == 2; }, kOtherMode);
    EXPECT_THAT(ran, testing::ElementsAre("default", "other"));
}

TEST(RunLoop, CommonModesIncludeDefaultAndAddedModes)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    static int repeat = 0; // a mode stays common for the life of the loop
    auto added = String::stringWithUTF8String("AddedCommonTestMode" + std::to_string(repeat++));
    int runs = 0;
    loop->performBlock({NSRunLoopCommonModes}, [&] { ++runs; });
    runLoopUntil([&] { return runs == 1; });

    loop->performBlock({NSRunLoopCommonModes}, [&] { ++runs; });
    EXPECT_EQ(loop->runInMode(added, 0.0, true), RunLoopRunResult::Finished) << "not yet a common mode";
    loop->addCommonMode(added);
    runLoopUntil([&] { return runs == 2; }, added);
}

TEST(RunLoop, RunOutcomes)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    EXPECT_EQ(loop->runInMode(ZSTR("EmptyTestMode"), 5.0, false), RunLoopRunResult::Finished);
    EXPECT_EQ(loop->runInMode(NSRunLoopCommonModes, 5.0, false), RunLoopRunResult::Finished);

    auto keepAlive = Timer::timerWithTimeInterval(1h, false, [] {});
    loop->addTimer_forMode(keepAlive, NSDefaultRunLoopMode);
    EXPECT_EQ(loop->runInMode(NSDefaultRunLoopMode, 0.0, true), RunLoopRunResult::TimedOut);

    loop->performBlock({NSDefaultRunLoopMode}, [] {});
    EXPECT_EQ(loop->runInMode(NSDefaultRunLoopMode, 5.0, true), RunLoopRunResult::HandledSource);

    loop->stop(); // not running: the next run ends at once
    EXPECT_EQ(loop->runInMode(NSDefaultRunLoopMode, 5.0, false), RunLoopRunResult::Stopped);

    HangGuard guard;
    std::thread stopper([&] {
        loop->performBlockAndWait({NSDefaultRunLoopMode}, [] {}); // the run has started
        loop->stop();
    });
    EXPECT_EQ(loop->runInMode(NSDefaultRunLoopMode, 1e10, false), RunLoopRunResult::Stopped);
    stopper.join();
    keepAlive->invalidate();
}

TEST(RunLoop, NestedRunServesItsModeAndOuterRunContinues)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    std::vector<std::string> events;
    loop->performBlock({NSDefaultRunLoopMode}, [&] {
        events.push_back("outer");
        EXPECT_EQ(loop->currentMode(), NSDefaultRunLoopMode);
        // A reply arrives from another thread while this callback waits in a private mode.
        std::thread replier([&] { loop->performBlock({kReplyMode}, [&] { events.push_back("reply"); }); });
        runLoopUntil([&] { return events.size() == 2; }, kReplyMode);
        replier.join();
        EXPECT_EQ(loop->currentMode(), NSDefaultRunLoopMode);
        events.push_back("after nested");
    });
    loop->performBlock({NSDefaultRunLoopMode}, [&] { events.push_back("second"); });
    runLoopUntil([&] { return events.size() == 4; });
    EXPECT_THAT(events, testing::ElementsAre("outer", "reply", "after nested", "second"));
    EXPECT_EQ(loop->currentMode(), nullptr);
}

TEST(RunLoop, StopEndsOnlyTheInnermostRun)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    RunLoopRunResult inner {};
    bool outerGoesOn = false;
    loop->performBlock({NSDefaultRunLoopMode}, [&] {
        loop->performBlock({kOtherMode}, [&] { loop->stop(); });
        auto keepAlive = Timer::timerWithTimeInterval(1h, false, [] {});
        loop->addTimer_forMode(keepAlive, kOtherMode);
        inner = loop->runInMode(kOtherMode, 1e10, false);
        keepAlive->invalidate();
        loop->performBlock({NSDefaultRunLoopMode}, [&] { outerGoesOn = true; });
    });
    runLoopUntil([&] { return outerGoesOn; });
    EXPECT_EQ(inner, RunLoopRunResult::Stopped);
}

TEST(RunLoop, ExceptionFromBlockLeavesRunAndLoopStaysUsable)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    loop->performBlock({NSDefaultRunLoopMode}, [] { raisePlatformException(NSGenericException, "from block"); });
    EXPECT_THROW(loop->runInMode(NSDefaultRunLoopMode, 1.0, false), Exception);
    EXPECT_EQ(loop->currentMode(), nullptr);
    bool ran = false;
    loop->performBlock({NSDefaultRunLoopMode}, [&] { ran = true; });
    EXPECT_TRUE(runLoopUntil([&] { return ran; }));
}

TEST(RunLoop, OnlyItsOwnThreadRunsALoop)
{
    RunLoop* main = RunLoop::currentRunLoop();
    std::thread other([&] { EXPECT_THROW(main->runInMode(NSDefaultRunLoopMode, 0.0, false), Exception); });
    other.join();
}

TEST(RunLoop, WaitingPostFromAnotherThreadReturnsAfterTheBlockRan)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    std::atomic<bool> ran = false;
    std::atomic<bool> returned = false;
    bool sawRun = false;
    std::thread poster([&] {
        HangGuard guard;
        EXPECT_TRUE(loop->performBlockAndWait({NSDefaultRunLoopMode}, [&] { ran = true; }));
        sawRun = ran;
        returned = true;
    });
    runLoopUntil([&] { return returned.load(); });
    poster.join();
    EXPECT_TRUE(sawRun);
}

TEST(RunLoop, EndedThreadDropsQueuedAndLaterBlocks)
{
    HangGuard guard;
    auto thread = Thread::threadWithBody([] {});
    RunLoop* loop = thread->runLoop();
    auto dropped = std::make_shared<int>(0);
    loop->performBlock({NSDefaultRunLoopMode}, [dropped] {});
    EXPECT_EQ(dropped.use_count(), 2);
    thread->start();
    ASSERT_TRUE(thread->waitUntilFinished(test::kHangLimit));
    EXPECT_EQ(dropped.use_count(), 1) << "the queued block was destroyed with the loop";
    EXPECT_FALSE(loop->performBlockAndWait({NSDefaultRunLoopMode}, [] { ADD_FAILURE(); }));
}

TEST(RunLoopSource, ReadyDescriptorRunsCallbackInItsModesOnly)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    Pipe pipe;
    std::vector<char> received;
    uint32_t seen = 0;
    RunLoopSource source = loop->addSource(pipe.fds[0], RunLoopSourceReadable, [&](uint32_t events) {
        seen |= events;
        received.push_back(pipe.read());
    }, {kOtherMode});
    ASSERT_TRUE(source.isValid());

    pipe.write('a');
    loop->performBlock({NSDefaultRunLoopMode}, [] {});
    loop->runInMode(NSDefaultRunLoopMode, 0.0, false);
    EXPECT_TRUE(received.empty());

    EXPECT_EQ(loop->runInMode(kOtherMode, 5.0, true), RunLoopRunResult::HandledSource);
    EXPECT_THAT(received, testing::ElementsAre('a'));
    EXPECT_TRUE(seen & RunLoopSourceReadable);

    source.invalidate();
    pipe.write('b');
    EXPECT_EQ(loop->runInMode(kOtherMode, 0.0, true), RunLoopRunResult::Finished);
    EXPECT_THAT(received, testing::ElementsAre('a'));
}

TEST(RunLoopSource, WritesFromAnotherThreadWakeASleepingRun)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    Pipe pipe;
    std::string received;
    RunLoopSource source = loop->addSource(pipe.fds[0], RunLoopSourceReadable,
        [&](uint32_t) { received += pipe.read(); }, {NSRunLoopCommonModes});
    std::thread writer([&] {
        for (char c : std::string("hello"))
            pipe.write(c);
    });
    runLoopUntil([&] { return received.size() == 5; });
    writer.join();
    EXPECT_EQ(received, "hello");
}

TEST(RunLoopSource, CallbackMayRemoveItselfAndOutlivingTheLoopIsSafe)
{
    Pipe pipe;
    RunLoopSource outlives;
    auto thread = Thread::threadWithBody([] {});
    outlives = thread->runLoop()->addSource(pipe.fds[0], RunLoopSourceReadable, [](uint32_t) {}, {NSDefaultRunLoopMode});
    EXPECT_TRUE(outlives.isValid());

    RunLoop* loop = RunLoop::currentRunLoop();
    RunLoopSource self;
    int calls = 0;
    self = loop->addSource(pipe.fds[0], RunLoopSourceReadable, [&](uint32_t) {
        ++calls;
        self.invalidate();
    }, {NSDefaultRunLoopMode});
    pipe.write('x');
    runLoopUntil([&] { return calls == 1; });
    loop->runInMode(NSDefaultRunLoopMode, 0.0, false);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(self.isValid());

    thread = nullptr; // the loop goes with its thread
    EXPECT_FALSE(outlives.isValid());
    outlives.invalidate();
}

TEST(Timer, FiresOnlyInItsModes)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    int fired = 0;
    auto timer = Timer::timerWithTimeInterval(0ms, false, [&] { ++fired; });
    loop->addTimer_forMode(timer, kOtherMode);
    loop->performBlock({NSDefaultRunLoopMode}, [] {});
    loop->runInMode(NSDefaultRunLoopMode, 0.0, false);
    EXPECT_EQ(fired, 0);
    runLoopUntil([&] { return fired == 1; }, kOtherMode);
    EXPECT_FALSE(timer->isValid()) << "a one-shot timer ends after it fired";
}

TEST(Timer, RepeatsUntilInvalidatedFromItsBlock)
{
    int fired = 0;
    Ref<Timer> timer;
    timer = Timer::scheduledTimer(1ms, true, [&] {
        if (++fired == 3)
            timer->invalidate();
    });
    runLoopUntil([&] { return !timer->isValid(); });
    EXPECT_EQ(fired, 3);
    EXPECT_EQ(RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.0, false), RunLoopRunResult::Finished);
}

TEST(Timer, DoesNotFireFromANestedRunInsideItsOwnBlock)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    int fired = 0;
    Ref<Timer> timer;
    timer = Timer::timerWithTimeInterval(1ms, true, [&] {
        if (++fired > 1)
            return;
        auto nestedDone = Timer::timerWithTimeInterval(20ms, false, [] {});
        loop->addTimer_forMode(nestedDone, NSDefaultRunLoopMode);
        runLoopUntil([&] { return !nestedDone->isValid(); });
        EXPECT_EQ(fired, 1);
        timer->invalidate();
    });
    loop->addTimer_forMode(timer, NSRunLoopCommonModes);
    runLoopUntil([&] { return !timer->isValid(); });
}

TEST(Timer, InvalidateFromAnotherThreadAndSecondLoopRaises)
{
    auto timer = Timer::scheduledTimer(1h, [] { ADD_FAILURE(); });
    auto other = Thread::threadWithBody([] {});
    EXPECT_THROW(other->runLoop()->addTimer_forMode(timer, NSDefaultRunLoopMode), Exception);
    std::thread([&] { timer->invalidate(); }).join();
    EXPECT_FALSE(timer->isValid());
    EXPECT_EQ(RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.0, false), RunLoopRunResult::Finished);
}
