#include "platform/threads/Thread.h"

#include "logger/ZonLog.h"
#include "platform/diagnostics/ExceptionHandler.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Timer.h"
#include "platform/values/Exception.h"

#include <atomic>
#include <memory>

namespace zon {

Thread* Thread::detachRunloopThread()
{
    auto thread = threadWithBody(&Thread::detachedRunloopThreadMain);
    thread->start();
    return static_cast<Thread*>(thread.leakRef()->autorelease());
}

void Thread::detachedRunloopThreadMain()
{
    Thread* thread = currentThread();
    Ref<RunLoop> loop = thread->runLoop();

    // The worker sleeps in its run loop rather than polling, so two things are added to its
    // default mode: a timer that never fires, which keeps the mode from being empty (an empty
    // mode's run would end at once), and, on cancel, a probe block that wakes the loop. The probe
    // runs after the work queued before the cancel, so the thread ends once that is done.
    auto keepAlive = Timer::timerWithTimeInterval(1e9, false, [] {});
    loop->addTimer_forMode(keepAlive, NSDefaultRunLoopMode);
    auto probeRan = std::make_shared<std::atomic<bool>>(false);
    auto probe = [loop, probeRan] {
        loop->performBlock({NSDefaultRunLoopMode}, [probeRan] { probeRan->store(true); });
    };
    thread->setCancellationHandler(probe);
    if (thread->isCancelled())
        probe();

    for (;;) {
        AutoreleasePool pool;
        try {
            const auto result = loop->runInMode(NSDefaultRunLoopMode, 1e10, true);
            // A busy loop postpones the look at the cancel flag, unless the probe was among the work.
            if (result == RunLoopRunResult::HandledSource && !probeRan->exchange(false))
                continue;
            if (thread->isCancelled())
                break;
        } catch (const Exception& exception) {
            ExceptionHandler::defaultExceptionHandler()->reportTopLevelException(exception);
            zon_log_obj(__FILE__, __LINE__, staticClass()->logCategory(), logger::kLevelError, kDefaultLogIdentifier,
                "Unhandled %@ in worker thread: %@", exception.name(), exception.reason());
        }
    }
    thread->setCancellationHandler(nullptr);
    keepAlive->invalidate();
}

} // namespace zon
