#include "platform/threads/Timer.h"

#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"

namespace zon {

ZON_DEFINE_CLASS(Timer, "NSTimer")

namespace {

// A repeating timer needs a positive interval or it would fire without end; this is the
// smallest one it gets.
constexpr Timer::Clock::duration kMinimumRepeatInterval = std::chrono::microseconds(100);

Timer::Clock::duration fromSeconds(double seconds)
{
    if (!(seconds > 0))
        return Timer::Clock::duration::zero();
    if (seconds > 1e9) // about 30 years: never, in practice
        seconds = 1e9;
    return std::chrono::duration_cast<Timer::Clock::duration>(std::chrono::duration<double>(seconds));
}

} // namespace

Timer::Timer(Clock::duration interval, bool repeats, Block block)
    : interval_(repeats ? std::max(interval, kMinimumRepeatInterval) : std::max(interval, Clock::duration::zero()))
    , repeats_(repeats)
    , fireDate_((Clock::now() + interval_).time_since_epoch().count())
    , block_(std::make_shared<const Block>(std::move(block)))
{
}

Ref<Timer> Timer::timerWithTimeInterval(Clock::duration interval, bool repeats, Block block)
{
    return makeObject<Timer>(interval, repeats, std::move(block));
}

Ref<Timer> Timer::timerWithTimeInterval(double seconds, bool repeats, Block block)
{
    return timerWithTimeInterval(fromSeconds(seconds), repeats, std::move(block));
}

Ref<Timer> Timer::scheduledTimer(Clock::duration interval, bool repeats, Block block)
{
    auto timer = timerWithTimeInterval(interval, repeats, std::move(block));
    RunLoop::currentRunLoop()->addTimer_forMode(timer, NSDefaultRunLoopMode);
    return timer;
}

void Timer::runBlock()
{
    std::shared_ptr<const Block> block;
    {
        std::lock_guard lock(mutex_);
        block = block_;
    }
    if (block && *block)
        (*block)();
}

void Timer::fire()
{
    if (!isValid())
        return;
    Ref protect(this);
    runBlock();
    if (!repeats_)
        invalidate();
}

void Timer::invalidate()
{
    std::shared_ptr<const Block> block; // released outside the lock: it may own anything
    std::weak_ptr<runloop_detail::LoopState> loop;
    {
        std::lock_guard lock(mutex_);
        if (!valid_.exchange(false, std::memory_order_acq_rel))
            return;
        block = std::move(block_);
        loop = loop_;
    }
    Ref protect(this); // the loop may hold the last reference
    RunLoop::timerChanged(loop, this, true);
}

Timer::Clock::time_point Timer::fireDate() const
{
    return Clock::time_point(Clock::duration(fireDate_.load(std::memory_order_relaxed)));
}

void Timer::setFireDateQuietly(Clock::time_point date)
{
    fireDate_.store(date.time_since_epoch().count(), std::memory_order_relaxed);
}

void Timer::setFireDate(Clock::time_point date)
{
    setFireDateQuietly(date);
    std::weak_ptr<runloop_detail::LoopState> loop;
    {
        std::lock_guard lock(mutex_);
        loop = loop_;
    }
    RunLoop::timerChanged(loop, this, false);
}

} // namespace zon
