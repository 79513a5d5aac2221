#pragma once

#include "platform/runtime/Object.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

namespace zon {

class RunLoop;
class String;

namespace runloop_detail {
class LoopState;
}

// A one-shot or repeating timer; run-time class NSTimer. Fire dates are on the monotonic clock.
//
// A timer fires on the thread of the run loop it was added to, only while that loop runs one of
// the timer's modes, and never from a nested run inside its own callback. A repeating timer that
// missed several intervals fires once and is rescheduled on the next interval boundary after
// now. A one-shot timer invalidates itself after it fires. The loop holds the timer until it is
// invalidated; invalidate() may be called from any thread.
class ZON_EXPORT Timer final : public Object {
    ZON_OBJECT(Timer, Object)
public:
    using Clock = std::chrono::steady_clock;
    using Block = std::function<void()>;

    // A timer not yet added to a run loop; its first fire date is now + interval.
    static Ref<Timer> timerWithTimeInterval(Clock::duration interval, bool repeats, Block block);
    static Ref<Timer> timerWithTimeInterval(double seconds, bool repeats, Block block);
    // As timerWithTimeInterval, added to the current thread's run loop in the default mode.
    static Ref<Timer> scheduledTimer(Clock::duration interval, bool repeats, Block block);
    static Ref<Timer> scheduledTimer(Clock::duration interval, Block block)
    {
        return scheduledTimer(interval, false, std::move(block));
    }

    // Runs the block now, on the calling thread; a one-shot timer is invalidated afterwards. The
    // schedule of a repeating timer is unchanged.
    void fire();
    void invalidate();
    bool isValid() const { return valid_.load(std::memory_order_acquire); }

    Clock::time_point fireDate() const;
    void setFireDate(Clock::time_point date);
    Clock::duration timeInterval() const { return interval_; }
    bool repeats() const { return repeats_; }

private:
    friend class RunLoop;
    friend class runloop_detail::LoopState;
    Timer(Clock::duration interval, bool repeats, Block block);

    // Runs the block; the loop decides about invalidation.
    void runBlock();
    void setFireDateQuietly(Clock::time_point date);

    const Clock::duration interval_;
    const bool repeats_;
    std::atomic<bool> valid_ {true};
    std::atomic<Clock::rep> fireDate_; // time since the clock's epoch
    mutable std::mutex mutex_;         // guards what follows
    std::shared_ptr<const Block> block_; // dropped by invalidate(), so captures are released
    std::weak_ptr<runloop_detail::LoopState> loop_; // set when first added to a loop
};

} // namespace zon
