#pragma once

// A run-loop worker thread for one test: started at once, cancelled and waited for at the end.

#include "platform/runtime/AutoreleasePool.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "support/Watchdog.h"

#include <gtest/gtest.h>

#include <functional>

namespace zon::test {

struct RunLoopWorker {
    AutoreleasePool pool;
    Ref<Thread> thread = Thread::detachRunloopThread();

    ~RunLoopWorker()
    {
        thread->cancel();
        EXPECT_TRUE(thread->waitUntilFinished(kHangLimit));
    }
    // Runs block on the worker and waits for it.
    void runAndWait(std::function<void()> block)
    {
        thread->runLoop()->performBlockAndWait({NSDefaultRunLoopMode}, std::move(block));
    }
};

} // namespace zon::test
