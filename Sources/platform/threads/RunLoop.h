#pragma once

// The per-thread event loop.
//
// Contract:
// - Every thread has at most one RunLoop, made on first use (RunLoop::currentRunLoop(),
//   Thread::runLoop(), RunLoop::mainRunLoop()); it lives as long as its Thread object. Only the
//   loop's own thread runs it (runInMode, run); any other thread that tries raises
//   NSInternalInconsistencyException.
// - A run happens in one named mode. Sources, timers and queued blocks each belong to a list of
//   modes and are served only by runs in one of them. The name NSRunLoopCommonModes stands for the
//   loop's set of common modes, which holds NSDefaultRunLoopMode and whatever addCommonMode adds
//   (an item added for the common modes joins later common modes too). Nobody runs the common
//   modes themselves: such a run finishes at once.
// - Blocks may be queued from any thread. Blocks run in the order they were queued (blocks queued
//   from one thread keep their order; a block waits while the loop runs modes it is not for). One
//   pass of a run serves the blocks that were queued when the pass began, then the timers that are
//   due, then the descriptors that are ready. A posting thread other than the loop's writes an
//   eventfd to wake it; the loop's own thread writes nothing.
// - Runs nest: a callback may run the loop again, in any mode. stop() ends the innermost run; when
//   the loop is not running, the next run ends at once with Stopped.
// - A queued block counts as a handled source, like a descriptor callback; a timer does not.
// - Callbacks are taken out of the loop's tables before they run, and the loop holds no lock while
//   they run, so they may queue, add, remove, stop and nest freely. An exception thrown by a
//   callback leaves the run (the loop stays usable).
// - When the thread ends, its loop drops its queued blocks (waiting posters return), its timers
//   and its source callbacks; later posts are dropped.
// - An idle loop sleeps in epoll_wait until a descriptor, the earliest due timer of its mode, the
//   run's time limit or a wake-up.

#include "platform/runtime/Object.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <span>

namespace zon {

class String;
class Thread;
class Timer;

namespace runloop_detail {
struct SourceRecord;
class LoopState;
} // namespace runloop_detail

// Mode names: "kCFRunLoopDefaultMode" and "kCFRunLoopCommonModes".
ZON_EXPORT extern String* const NSDefaultRunLoopMode;
ZON_EXPORT extern String* const NSRunLoopCommonModes;

enum class RunLoopRunResult : int {
    Finished = 1,      // the mode has no sources, timers or blocks
    Stopped = 2,       // stop() was called
    TimedOut = 3,      // the time limit passed
    HandledSource = 4, // a block or a descriptor callback ran and the caller asked to return then
};

// Descriptor events a source waits for and its callback receives.
enum RunLoopSourceEvent : uint32_t {
    RunLoopSourceReadable = 1u << 0,
    RunLoopSourceWritable = 1u << 1,
    RunLoopSourceHangUp = 1u << 2, // always reported, whether asked for or not
    RunLoopSourceError = 1u << 3,  // always reported, whether asked for or not
};

using RunLoopBlock = std::function<void()>;
using RunLoopSourceCallback = std::function<void(uint32_t events)>;
// Mode names; a null entry is ignored.
using RunLoopModes = std::span<String* const>;

// The registration of a descriptor with a run loop. It unregisters when destroyed or invalidated;
// after invalidate() returns on the loop's thread the callback does not run again (from another
// thread, a callback that already started may still be running). The descriptor stays the
// owner's: close it after the source is gone.
class ZON_EXPORT RunLoopSource {
public:
    RunLoopSource() = default;
    RunLoopSource(RunLoopSource&&) noexcept = default;
    RunLoopSource& operator=(RunLoopSource&& other) noexcept;
    ~RunLoopSource() { invalidate(); }

    void invalidate();
    bool isValid() const;
    explicit operator bool() const { return isValid(); }

private:
    friend class RunLoop;
    explicit RunLoopSource(std::shared_ptr<runloop_detail::SourceRecord> record) : record_(std::move(record)) {}
    std::shared_ptr<runloop_detail::SourceRecord> record_;
};

// Run-time class NSRunLoop. See the contract above.
class ZON_EXPORT RunLoop final : public Object {
    ZON_OBJECT(RunLoop, Object)
public:
    static RunLoop* currentRunLoop();
    static RunLoop* mainRunLoop();

    // Runs the loop in mode until the time limit (seconds, from now; 0 makes one pass that does
    // not wait), stop(), or, with returnAfterSourceHandled, the first pass that ran a block or a
    // descriptor callback. A mode with nothing in it finishes at once.
    RunLoopRunResult runInMode(String* mode, double seconds, bool returnAfterSourceHandled);
    RunLoopRunResult runInMode(String* mode, std::chrono::nanoseconds limit, bool returnAfterSourceHandled);
    // Runs the default mode until it is stopped or has nothing left in it.
    void run();
    // Ends the innermost run of this loop; from any thread.
    void stop();
    // Makes a sleeping run look at its queue and timers again; from any thread.
    void wakeUp();
    // The mode of the innermost run, or nil when the loop is not running. Loop's thread only.
    String* currentMode() const;
    bool isRunning() const { return currentMode() != nullptr; }

    // Adds a mode to the set the name NSRunLoopCommonModes stands for; from any thread.
    void addCommonMode(String* mode);

    // Queues block to run on this loop in one of modes; from any thread.
    void performBlock(RunLoopModes modes, RunLoopBlock block);
    void performBlock(std::initializer_list<String*> modes, RunLoopBlock block)
    {
        performBlock(RunLoopModes(modes.begin(), modes.size()), std::move(block));
    }
    // Holds back the wake-ups of the blocks this thread queues to other loops until the scope
    // ends, then wakes each of those loops once. A burst of posts (a broadcast to many observers)
    // then costs one wake-up per loop instead of one each time a fast consumer has gone back to
    // sleep; the blocks run no earlier than the scope's end. Scopes nest; performBlockAndWait
    // wakes the held loops before it waits. (ObserverBenchmarks, BM_Broadcast_ObserverCenter.)
    class ZON_EXPORT DeferredWakeUps {
    public:
        DeferredWakeUps();
        ~DeferredWakeUps();
        // Wakes the loops held so far, the scope staying open: for code about to call out to
        // something that may wait for those loops.
        static void wakeHeldLoops();
        DeferredWakeUps(const DeferredWakeUps&) = delete;
        DeferredWakeUps& operator=(const DeferredWakeUps&) = delete;
    };

    // As performBlock, then waits until the block has run. On the loop's own thread it runs the
    // block at once instead. Answers false when the block was dropped because the thread ended.
    bool performBlockAndWait(RunLoopModes modes, RunLoopBlock block);
    bool performBlockAndWait(std::initializer_list<String*> modes, RunLoopBlock block)
    {
        return performBlockAndWait(RunLoopModes(modes.begin(), modes.size()), std::move(block));
    }

    // Watches fd for events in modes; callback runs on the loop's thread with the events seen.
    // From any thread. An invalid source comes back when the descriptor cannot be watched (bad
    // descriptor, or already watched by this loop in one of the modes) or the thread ended.
    [[nodiscard]] RunLoopSource addSource(int fd, uint32_t events, RunLoopSourceCallback callback, RunLoopModes modes);
    [[nodiscard]] RunLoopSource addSource(
        int fd, uint32_t events, RunLoopSourceCallback callback, std::initializer_list<String*> modes)
    {
        return addSource(fd, events, std::move(callback), RunLoopModes(modes.begin(), modes.size()));
    }

    // Schedules timer in mode (NSRunLoopCommonModes for all common modes); the loop keeps it until
    // it is invalidated. A timer belongs to one loop: adding it to another raises
    // NSInvalidArgumentException. From any thread.
    void addTimer_forMode(Timer* timer, String* mode);

    // The thread this loop belongs to; nil once that Thread object is gone.
    Thread* thread() const { return thread_.load(std::memory_order_acquire); }

    ~RunLoop() override;

private:
    friend class Thread;
    friend class Timer;
    explicit RunLoop(Thread* thread);

    bool isLoopThread() const;
    // Called on the loop's thread as it ends.
    void threadDidExit();
    // Called by the Thread as it is destroyed.
    void threadDidDestruct() { thread_.store(nullptr, std::memory_order_release); }
    // Called by Timer when it is invalidated or its fire date changes.
    static void timerChanged(const std::weak_ptr<runloop_detail::LoopState>& loop, Timer* timer, bool invalidated);

    std::atomic<Thread*> thread_; // not retained: the thread owns its loop
    std::shared_ptr<runloop_detail::LoopState> state_;
};

} // namespace zon
