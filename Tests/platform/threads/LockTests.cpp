#include "platform/threads/Condition.h"
#include "platform/threads/Lock.h"
#include "platform/threads/RecursiveLock.h"
#include "platform/values/Date.h"
#include "support/Watchdog.h"

#include <gtest/gtest.h>

#include <thread>

using namespace zon;
using test::HangGuard;

TEST(Lock, TryLockAndLockBeforeDateFailWhileHeld)
{
    auto lock = Lock::init();
    lock->lock();
    std::thread([&] {
        EXPECT_FALSE(lock->tryLock());
        EXPECT_FALSE(lock->lockBeforeDate(Date::dateWithTimeIntervalSinceNow(0.01)));
        EXPECT_FALSE(lock->lockBeforeDate(Date::distantPast()));
    }).join();
    lock->unlock();
    EXPECT_TRUE(lock->lockBeforeDate(Date::distantFuture()));
    lock->unlock();
}

TEST(RecursiveLock, HolderMayLockAgain)
{
    auto lock = RecursiveLock::init();
    lock->lock();
    EXPECT_TRUE(lock->tryLock());
    std::thread([&] { EXPECT_FALSE(lock->tryLock()); }).join();
    EXPECT_TRUE(lock->lockBeforeDate(Date::distantPast()));
    lock->unlock();
    lock->unlock();
    lock->unlock();
    std::thread([&] {
        EXPECT_TRUE(lock->tryLock());
        lock->unlock();
    }).join();
}

TEST(Condition, SignalWakesAWaiterHoldingTheLock)
{
    HangGuard guard;
    auto condition = Condition::init();
    bool ready = false;
    std::thread waiter([&] {
        condition->lock();
        while (!ready)
            condition->wait();
        condition->unlock();
    });
    condition->lock();
    ready = true;
    condition->signal();
    condition->unlock();
    waiter.join();

    condition->lock();
    EXPECT_FALSE(condition->waitUntilDate(Date::dateWithTimeIntervalSinceNow(0.01)));
    EXPECT_FALSE(condition->waitUntilDate(Date::distantPast()));
    condition->unlock();
}
