#include "platform/threads/MainQueue.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "support/Watchdog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace zon;
using test::HangGuard;
using test::runLoopUntil;

TEST(Thread, MainAndCurrentThreads)
{
    EXPECT_TRUE(Thread::isMainThread());
    EXPECT_EQ(Thread::currentThread(), Thread::mainThread());
    EXPECT_EQ(Thread::mainThread()->name()->UTF8String(), "main");
    EXPECT_EQ(RunLoop::currentRunLoop(), RunLoop::mainRunLoop());
    EXPECT_EQ(RunLoop::mainRunLoop()->thread(), Thread::mainThread());

    Thread* seen[2] {};
    bool isMain = true;
    std::thread other([&] {
        seen[0] = Thread::currentThread();
        seen[1] = Thread::currentThread();
        isMain = Thread::isMainThread();
        EXPECT_EQ(RunLoop::currentRunLoop()->thread(), seen[0]);
    });
    other.join();
    EXPECT_EQ(seen[0], seen[1]);
    EXPECT_NE(seen[0], Thread::mainThread());
    EXPECT_FALSE(isMain);
}

TEST(Thread, RunsItsBodyOnceStartedAndReportsItsState)
{
    HangGuard guard;
    Thread* inside = nullptr;
    auto thread = Thread::threadWithBody([&] { inside = Thread::currentThread(); });
    EXPECT_FALSE(thread->isExecuting());
    EXPECT_FALSE(thread->isFinished());
    EXPECT_EQ(thread->name()->UTF8String(), "");
    thread->setName(ZSTR("worker"));
    thread->start();
    ASSERT_TRUE(thread->waitUntilFinished(test::kHangLimit));
    EXPECT_EQ(inside, thread.get());
    EXPECT_FALSE(thread->isExecuting());
    EXPECT_EQ(thread->name()->UTF8String(), "worker");
    EXPECT_THROW(thread->start(), Exception);
}

TEST(Thread, WorkQueuedBeforeTheThreadRunsItsLoopRunsThen)
{
    HangGuard guard;
    auto thread = Thread::threadWithBody([] {
        RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 1e10, true);
    });
    std::atomic<bool> ran = false;
    thread->runLoop()->performBlock({NSDefaultRunLoopMode}, [&] { ran = true; });
    thread->start();
    ASSERT_TRUE(thread->waitUntilFinished(test::kHangLimit));
    EXPECT_TRUE(ran);
}

TEST(MainQueue, RunsBlocksOnTheMainThreadInOrder)
{
    std::vector<int> order;
    std::atomic<bool> allOnMain = true;
    std::thread poster([&] {
        for (int i = 0; i < 100; ++i) {
            MainQueue::async([&, i] {
                allOnMain = allOnMain && Thread::isMainThread();
                order.push_back(i);
            });
        }
    });
    runLoopUntil([&] { return order.size() == 100; });
    poster.join();
    EXPECT_TRUE(allOnMain);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(order[i], i);

    bool ranInline = false;
    MainQueue::sync([&] { ranInline = true; });
    EXPECT_TRUE(ranInline);
}
