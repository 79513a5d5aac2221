#include "atomic/TXZonBarrier.h"

#include "support/Watchdog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace zon;
using namespace std::chrono_literals;

TEST(TXZonBarrier, PlainInitGivesNil) { EXPECT_EQ(TXZonBarrier::init(), nullptr); }

TEST(TXZonBarrier, SingleThreadPassesAtOnce)
{
    test::HangGuard guard;
    TXZonBarrier::initToSynchronizeNumberOfThreads(1)->wait();
}

TEST(TXZonBarrier, NobodyPassesBeforeTheLastArrives)
{
    test::HangGuard guard;
    auto barrier = TXZonBarrier::initToSynchronizeNumberOfThreads(3);
    std::atomic<int> passed = 0;
    std::vector<std::thread> early;
    for (int i = 0; i < 2; ++i) {
        early.emplace_back([&] {
            barrier->wait();
            ++passed;
        });
    }
    std::this_thread::sleep_for(20ms); // gives a broken barrier the chance to let them through
    EXPECT_EQ(passed, 0);
    barrier->wait();
    for (auto& thread : early)
        thread.join();
    EXPECT_EQ(passed, 2);
}

TEST(TXZonBarrier, WaitAfterItOpenedBlocksForEver)
{
    auto barrier = TXZonBarrier::initToSynchronizeNumberOfThreads(1);
    barrier->wait();
    auto returned = std::make_shared<std::atomic<bool>>(false);
    // This thread stays blocked until the process ends.
    std::thread([barrier, returned] {
        barrier->wait();
        *returned = true;
    }).detach();
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(*returned);
}

TEST(TXZonBarrierDeathTest, CountOfZeroStopsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(TXZonBarrier::initToSynchronizeNumberOfThreads(0), "");
}
