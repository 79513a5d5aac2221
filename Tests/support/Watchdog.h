#pragma once

// Guards for tests that run loops or block on other threads, so that a hang fails fast.

#include "platform/threads/RunLoop.h"
#include "platform/threads/Timer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

namespace zon::test {

inline constexpr std::chrono::seconds kHangLimit {10};

// Runs the current thread's loop in mode until done() holds. A watchdog timer in that mode keeps
// the mode from being empty and fails the test when the limit passes first. Runs are short, since
// a timer's block or another thread may make done() hold without waking the loop.
inline bool runLoopUntil(const std::function<bool()>& done, String* mode = NSDefaultRunLoopMode,
    std::chrono::nanoseconds limit = kHangLimit)
{
    RunLoop* loop = RunLoop::currentRunLoop();
    bool hung = false;
    auto watchdog = Timer::timerWithTimeInterval(
        std::chrono::duration_cast<Timer::Clock::duration>(limit), false, [&] {
            ADD_FAILURE() << "run loop hung";
            hung = true;
            loop->stop();
        });
    loop->addTimer_forMode(watchdog, mode);
    while (!done() && !hung)
        loop->runInMode(mode, 0.01, true);
    watchdog->invalidate();
    return !hung;
}

// Aborts the test program when a blocking call has not come back within the limit.
class HangGuard {
public:
    explicit HangGuard(std::chrono::nanoseconds limit = kHangLimit)
        : watcher_([this, limit] {
            std::unique_lock lock(mutex_);
            if (!condition_.wait_for(lock, limit, [&] { return done_; })) {
                std::fprintf(stderr, "blocking call hung\n");
                std::abort();
            }
        })
    {
    }
    ~HangGuard()
    {
        {
            std::lock_guard lock(mutex_);
            done_ = true;
        }
        condition_.notify_all();
        watcher_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    bool done_ = false;
    std::thread watcher_;
};

} // namespace zon::test
