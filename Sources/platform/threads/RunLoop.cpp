#include "platform/threads/RunLoop.h"

#include "platform/runtime/Class.h"
#include "platform/system/EventCallsInternal.h"
#include "platform/threads/RunLoopModes.h"
#include "platform/threads/Thread.h"
#include "platform/threads/Timer.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <deque>
#include <limits>
#include <optional>
#include <unordered_map>
#include <vector>

namespace zon {

namespace runloop_detail {

using Clock = std::chrono::steady_clock;

// Where a poster that waits learns that its block ran (or was dropped with the loop). A mutex and
// condition variable rather than an atomic wait: that one spins with sched_yield first, which on
// a busy machine hands the processor away for a whole time slice.
struct Completion {
    enum : int { Pending, Ran, Dropped };
    std::mutex mutex;
    std::condition_variable condition;
    int state = Pending;

    void finish(int outcome)
    {
        std::lock_guard lock(mutex);
        state = outcome;
        condition.notify_one();
    }
    int wait()
    {
        std::unique_lock lock(mutex);
        condition.wait(lock, [&] { return state != Pending; });
        return state;
    }
};

struct QueuedBlock {
    uint64_t sequence;
    ModeSet modes;
    RunLoopBlock block;
    std::shared_ptr<Completion> completion; // set when the poster waits

    QueuedBlock(uint64_t sequence, ModeSet modes, RunLoopBlock block, std::shared_ptr<Completion> completion)
        : sequence(sequence), modes(std::move(modes)), block(std::move(block)), completion(std::move(completion))
    {
    }
    QueuedBlock(QueuedBlock&&) noexcept = default;
    QueuedBlock& operator=(QueuedBlock&& other) noexcept
    {
        finish(Completion::Dropped);
        sequence = other.sequence;
        modes = std::move(other.modes);
        block = std::move(other.block);
        completion = std::move(other.completion);
        return *this;
    }
    ~QueuedBlock() { finish(Completion::Dropped); }

    void finish(int outcome)
    {
        if (auto done = std::move(completion))
            done->finish(outcome);
    }
};

struct SourceRecord {
    std::weak_ptr<LoopState> loop;
    uint64_t id;
};

struct SourceEntry {
    int fd;
    uint32_t epollEvents;
    ModeSet modes;
    std::shared_ptr<RunLoopSourceCallback> callback;
};

struct TimerEntry {
    Ref<Timer> timer;
    ModeSet modes;
    bool firing = false;
};

struct ModeState {
    FileDescriptor epoll;
    std::vector<uint64_t> sources; // ids of the sources registered in this mode
};

struct RunFrame {
    ModeId mode;
    std::atomic<bool> stopped {false};
};

constexpr uint64_t kWakeId = 0;

uint32_t toEpoll(uint32_t events)
{
    uint32_t result = 0;
    if (events & RunLoopSourceReadable)
        result |= EPOLLIN | EPOLLRDHUP;
    if (events & RunLoopSourceWritable)
        result |= EPOLLOUT;
    return result;
}

uint32_t fromEpoll(uint32_t events)
{
    uint32_t result = 0;
    if (events & (EPOLLIN | EPOLLPRI))
        result |= RunLoopSourceReadable;
    if (events & EPOLLOUT)
        result |= RunLoopSourceWritable;
    if (events & (EPOLLHUP | EPOLLRDHUP))
        result |= RunLoopSourceHangUp;
    if (events & EPOLLERR)
        result |= RunLoopSourceError;
    return result;
}

// Everything a RunLoop keeps. Shared with source handles, which may outlive the loop.
class LoopState : public std::enable_shared_from_this<LoopState> {
public:
    LoopState();
    ~LoopState();

    // All below lock mutex_ themselves.
    void post(ModeSet modes, RunLoopBlock block, std::shared_ptr<Completion> completion, bool wake);
    std::shared_ptr<SourceRecord> addSource(int fd, uint32_t events, RunLoopSourceCallback callback, ModeSet modes);
    void removeSource(uint64_t id);
    bool addTimer(Timer* timer, ModeId mode);
    void removeTimer(Timer* timer);
    void addCommonMode(ModeId mode);
    void stop();
    void wakeUp();
    void shutDown();
    ModeId currentMode(bool& running) const;

    RunLoopRunResult run(ModeId mode, Clock::time_point deadline, bool returnAfterSourceHandled);

private:
    bool eligible(const ModeSet& modes, ModeId running) const
    {
        return modes.contains(running) || (running != kCommonModes && modes.contains(kCommonModes) && commonModes_.contains(running));
    }
    // Each mode the set stands for, with the common modes expanded.
    template <class F>
    void forEachConcreteMode(const ModeSet& modes, F&& f) const
    {
        modes.forEach([&](ModeId id) {
            if (id == kCommonModes)
                commonModes_.forEach(f);
            else
                f(id);
        });
    }
    // The mode's epoll instance, made on first use; -1 when the system refuses one.
    SystemResult<int> epollFor(ModeId mode);
    bool registerInMode(ModeId mode, uint64_t id, const SourceEntry& source);
    bool isEmptyLocked(ModeId mode) const;
    bool hasBlocksLocked(ModeId mode, uint64_t before) const;
    std::optional<Clock::time_point> nextTimerLocked(ModeId mode) const;

    bool runQueuedBlocks(ModeId mode);
    void fireDueTimers(ModeId mode);
    bool waitAndDispatch(ModeId mode, Clock::time_point deadline);
    void drainWake();

    mutable std::mutex mutex_;
    bool shutDown_ = false;
    ModeSet commonModes_ {kDefaultMode};
    std::unordered_map<ModeId, ModeState> modes_;

    std::deque<QueuedBlock> blocks_;
    uint64_t nextSequence_ = 0;

    std::unordered_map<uint64_t, SourceEntry> sources_;
    uint64_t nextSourceId_ = kWakeId + 1;

    std::vector<TimerEntry> timers_;

    std::vector<RunFrame*> frames_;
    bool stopPending_ = false;

    FileDescriptor wakeCounter_;
    std::atomic<bool> wakePending_ {false};
};

LoopState::LoopState()
{
    auto counter = createEventCounter();
    if (!counter)
        raisePlatformException(NSInternalInconsistencyException, "Cannot make a run loop: " + counter.error().text());
    wakeCounter_ = std::move(counter).value();
}

LoopState::~LoopState() = default;

SystemResult<int> LoopState::epollFor(ModeId mode)
{
    ModeState& state = modes_[mode];
    if (state.epoll)
        return state.epoll.get();
    auto epoll = createEpoll();
    if (!epoll)
        return epoll.error();
    if (auto added = epollAdd(epoll.value().get(), wakeCounter_.get(), EPOLLIN, kWakeId); !added)
        return added.error();
    state.epoll = std::move(epoll).value();
    return state.epoll.get();
}

bool LoopState::registerInMode(ModeId mode, uint64_t id, const SourceEntry& source)
{
    auto epoll = epollFor(mode);
    if (!epoll || !epollAdd(epoll.value(), source.fd, source.epollEvents, id))
        return false;
    modes_[mode].sources.push_back(id);
    return true;
}

void LoopState::post(ModeSet modes, RunLoopBlock block, std::shared_ptr<Completion> completion, bool wake)
{
    {
        std::lock_guard lock(mutex_);
        if (shutDown_ || modes.empty()) {
            if (completion)
                completion->finish(Completion::Dropped);
            return; // the block is destroyed outside the lock
        }
        blocks_.emplace_back(nextSequence_++, std::move(modes), std::move(block), std::move(completion));
    }
    if (wake)
        wakeUp();
}

std::shared_ptr<SourceRecord> LoopState::addSource(int fd, uint32_t events, RunLoopSourceCallback callback, ModeSet modes)
{
    std::lock_guard lock(mutex_);
    if (shutDown_ || fd < 0 || modes.empty())
        return nullptr;
    const uint64_t id = nextSourceId_++;
    SourceEntry source {fd, toEpoll(events), std::move(modes), std::make_shared<RunLoopSourceCallback>(std::move(callback))};
    bool registered = true;
    forEachConcreteMode(source.modes, [&](ModeId mode) { registered = registered && registerInMode(mode, id, source); });
    sources_.emplace(id, std::move(source));
    if (!registered) {
        // Undo the modes that took it; the caller gets an invalid source.
        for (auto& [modeId, state] : modes_) {
            auto& ids = state.sources;
            if (auto it = std::find(ids.begin(), ids.end(), id); it != ids.end()) {
                (void)epollRemove(state.epoll.get(), fd);
                ids.erase(it);
            }
        }
        sources_.erase(id);
        return nullptr;
    }
    auto record = std::make_shared<SourceRecord>();
    record->loop = weak_from_this();
    record->id = id;
    return record;
}

void LoopState::removeSource(uint64_t id)
{
    std::shared_ptr<RunLoopSourceCallback> callback; // destroyed after the lock is released
    std::lock_guard lock(mutex_);
    auto it = sources_.find(id);
    if (it == sources_.end())
        return;
    for (auto& [modeId, state] : modes_) {
        auto& ids = state.sources;
        if (auto found = std::find(ids.begin(), ids.end(), id); found != ids.end()) {
            (void)epollRemove(state.epoll.get(), it->second.fd);
            ids.erase(found);
        }
    }
    callback = std::move(it->second.callback);
    sources_.erase(it);
}

bool LoopState::addTimer(Timer* timer, ModeId mode)
{
    {
        std::lock_guard lock(mutex_);
        if (shutDown_)
            return false;
        auto it = std::find_if(timers_.begin(), timers_.end(), [&](const TimerEntry& e) { return e.timer.get() == timer; });
        if (it == timers_.end())
            timers_.push_back({Ref(timer), ModeSet(mode)});
        else
            it->modes.add(mode);
    }
    wakeUp();
    return true;
}

void LoopState::removeTimer(Timer* timer)
{
    Ref<Timer> removed; // released after the lock
    {
        std::lock_guard lock(mutex_);
        auto it = std::find_if(timers_.begin(), timers_.end(), [&](const TimerEntry& e) { return e.timer.get() == timer; });
        if (it == timers_.end())
            return;
        removed = std::move(it->timer);
        timers_.erase(it);
    }
}

void LoopState::addCommonMode(ModeId mode)
{
    if (mode == kCommonModes)
        return;
    {
        std::lock_guard lock(mutex_);
        if (commonModes_.contains(mode))
            return;
        commonModes_.add(mode);
        // Sources of the common modes join the new one; timers and blocks match it from now on.
        for (auto& [id, source] : sources_) {
            if (source.modes.contains(kCommonModes) && !source.modes.contains(mode))
                (void)registerInMode(mode, id, source);
        }
    }
    wakeUp(); // a run sleeping in that mode recomputes its next timer
}

void LoopState::stop()
{
    {
        std::lock_guard lock(mutex_);
        if (frames_.empty())
            stopPending_ = true;
        else
            frames_.back()->stopped.store(true, std::memory_order_relaxed);
    }
    wakeUp();
}

void LoopState::wakeUp()
{
    // One write until the loop drains it: posts that find the flag set need not write again.
    if (!wakePending_.exchange(true))
        signalEventCounter(wakeCounter_.get());
}

void LoopState::drainWake()
{
    drainEventCounter(wakeCounter_.get());
    // Cleared after the read: a poster that still saw it set posted before the scan that follows.
    wakePending_.store(false);
}

void LoopState::shutDown()
{
    std::deque<QueuedBlock> blocks;
    std::vector<TimerEntry> timers;
    std::vector<std::shared_ptr<RunLoopSourceCallback>> callbacks;
    {
        std::lock_guard lock(mutex_);
        shutDown_ = true;
        blocks.swap(blocks_);
        timers.swap(timers_);
        for (auto& [id, source] : sources_)
            callbacks.push_back(std::move(source.callback));
    }
    for (auto& entry : timers)
        entry.timer->invalidate();
    // blocks (their waiters learn they were dropped), timers and callbacks go here, unlocked.
}

ModeId LoopState::currentMode(bool& running) const
{
    std::lock_guard lock(mutex_);
    running = !frames_.empty();
    return running ? frames_.back()->mode : kCommonModes;
}

bool LoopState::hasBlocksLocked(ModeId mode, uint64_t before) const
{
    for (const auto& block : blocks_) {
        if (block.sequence >= before)
            break;
        if (eligible(block.modes, mode))
            return true;
    }
    return false;
}

bool LoopState::isEmptyLocked(ModeId mode) const
{
    if (auto it = modes_.find(mode); it != modes_.end() && !it->second.sources.empty())
        return false;
    for (const auto& entry : timers_) {
        if (eligible(entry.modes, mode))
            return false;
    }
    return !hasBlocksLocked(mode, std::numeric_limits<uint64_t>::max());
}

std::optional<Clock::time_point> LoopState::nextTimerLocked(ModeId mode) const
{
    std::optional<Clock::time_point> next;
    for (const auto& entry : timers_) {
        if (entry.firing || !eligible(entry.modes, mode) || !entry.timer->isValid())
            continue;
        const auto date = entry.timer->fireDate();
        if (!next || date < *next)
            next = date;
    }
    return next;
}

bool LoopState::runQueuedBlocks(ModeId mode)
{
    bool handled = false;
    uint64_t limit;
    {
        std::lock_guard lock(mutex_);
        limit = nextSequence_;
    }
    for (;;) {
        std::optional<QueuedBlock> next;
        {
            std::lock_guard lock(mutex_);
            for (auto it = blocks_.begin(); it != blocks_.end() && it->sequence < limit; ++it) {
                if (eligible(it->modes, mode)) {
                    next.emplace(std::move(*it));
                    blocks_.erase(it);
                    break;
                }
            }
        }
        if (!next)
            return handled;
        handled = true;
        struct Finish {
            QueuedBlock& block;
            ~Finish() { block.finish(Completion::Ran); }
        } finish {*next};
        next->block();
    }
}

void LoopState::fireDueTimers(ModeId mode)
{
    for (;;) {
        Ref<Timer> timer;
        {
            std::lock_guard lock(mutex_);
            const auto now = Clock::now();
            TimerEntry* due = nullptr;
            for (auto& entry : timers_) {
                if (entry.firing || !eligible(entry.modes, mode) || !entry.timer->isValid() || entry.timer->fireDate() > now)
                    continue;
                if (!due || entry.timer->fireDate() < due->timer->fireDate())
                    due = &entry;
            }
            if (!due)
                return;
            due->firing = true;
            timer = due->timer;
            if (timer->repeats()) {
                // The next interval boundary after now; missed ones are skipped, not made up.
                const auto interval = timer->timeInterval();
                const auto late = now - timer->fireDate();
                timer->setFireDateQuietly(timer->fireDate() + (late / interval + 1) * interval);
            }
        }
        struct Done {
            LoopState& loop;
            Timer* timer;
            ~Done()
            {
                if (!timer->repeats())
                    timer->invalidate();
                std::lock_guard lock(loop.mutex_);
                for (auto& entry : loop.timers_) {
                    if (entry.timer.get() == timer)
                        entry.firing = false;
                }
            }
        } done {*this, timer.get()};
        timer->runBlock();
    }
}

// Sleeps until a descriptor of the mode is ready, a wake-up, the next timer or the deadline, and
// runs the callbacks of the ready descriptors; answers whether one ran.
bool LoopState::waitAndDispatch(ModeId mode, Clock::time_point deadline)
{
    int epollFd;
    std::chrono::milliseconds timeout {0};
    {
        std::lock_guard lock(mutex_);
        auto epoll = epollFor(mode);
        if (!epoll)
            raisePlatformException(NSInternalInconsistencyException, "Cannot wait in a run loop: " + epoll.error().text());
        epollFd = epoll.value();
        if (!hasBlocksLocked(mode, std::numeric_limits<uint64_t>::max())) {
            auto until = deadline;
            if (auto timer = nextTimerLocked(mode); timer && *timer < until)
                until = *timer;
            if (until == Clock::time_point::max())
                timeout = std::chrono::milliseconds(-1);
            else
                timeout = std::max(std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()), timeout);
        }
    }
    epoll_event events[16];
    auto ready = epollWait(epollFd, events, timeout);
    if (!ready)
        return false; // the caller looks at its limits and waits again
    bool handled = false;
    for (size_t i = 0; i < ready.value(); ++i) {
        const uint64_t id = events[i].data.u64;
        if (id == kWakeId) {
            drainWake();
            continue;
        }
        std::shared_ptr<RunLoopSourceCallback> callback;
        {
            // An earlier callback of this batch may have removed it, or moved it out of this mode.
            std::lock_guard lock(mutex_);
            auto it = sources_.find(id);
            if (it == sources_.end() || !eligible(it->second.modes, mode) || !it->second.callback)
                continue;
            callback = it->second.callback;
        }
        handled = true;
        (*callback)(fromEpoll(events[i].events));
    }
    return handled;
}

RunLoopRunResult LoopState::run(ModeId mode, Clock::time_point deadline, bool returnAfterSourceHandled)
{
    RunFrame frame {mode};
    {
        std::lock_guard lock(mutex_);
        if (mode == kCommonModes || isEmptyLocked(mode))
            return RunLoopRunResult::Finished;
        if (stopPending_) {
            stopPending_ = false;
            return RunLoopRunResult::Stopped;
        }
        frames_.push_back(&frame);
    }
    struct PopFrame {
        LoopState& loop;
        ~PopFrame()
        {
            std::lock_guard lock(loop.mutex_);
            loop.frames_.pop_back();
        }
    } popFrame {*this};

    auto outcome = [&](bool handled) -> std::optional<RunLoopRunResult> {
        if (handled && returnAfterSourceHandled)
            return RunLoopRunResult::HandledSource;
        if (frame.stopped.load(std::memory_order_relaxed))
            return RunLoopRunResult::Stopped;
        if (Clock::now() >= deadline)
            return RunLoopRunResult::TimedOut;
        return std::nullopt;
    };
    for (;;) {
        bool handled = runQueuedBlocks(mode);
        fireDueTimers(mode);
        if (auto result = outcome(handled))
            return *result;
        if (auto result = outcome(waitAndDispatch(mode, deadline)))
            return *result;
        std::lock_guard lock(mutex_);
        if (isEmptyLocked(mode))
            return RunLoopRunResult::Finished;
    }
}

} // namespace runloop_detail

using namespace runloop_detail;

ZON_DEFINE_CLASS(RunLoop, "NSRunLoop")

RunLoopSource& RunLoopSource::operator=(RunLoopSource&& other) noexcept
{
    if (this != &other) {
        invalidate();
        record_ = std::move(other.record_);
    }
    return *this;
}

void RunLoopSource::invalidate()
{
    if (auto record = std::move(record_)) {
        if (auto loop = record->loop.lock())
            loop->removeSource(record->id);
    }
}

bool RunLoopSource::isValid() const { return record_ && !record_->loop.expired(); }

RunLoop::RunLoop(Thread* thread) : thread_(thread), state_(std::make_shared<LoopState>()) {}

RunLoop::~RunLoop() = default;

RunLoop* RunLoop::currentRunLoop() { return Thread::currentThread()->runLoop(); }

RunLoop* RunLoop::mainRunLoop() { return Thread::mainThread()->runLoop(); }

bool RunLoop::isLoopThread() const { return Thread::currentThread() == thread_.load(std::memory_order_relaxed); }

RunLoopRunResult RunLoop::runInMode(String* mode, double seconds, bool returnAfterSourceHandled)
{
    using namespace std::chrono;
    if (std::isnan(seconds))
        seconds = 0;
    // Beyond about 30 years a limit means "no limit", and saves the time arithmetic from overflow.
    if (!(seconds < 1e9))
        return runInMode(mode, nanoseconds::max(), returnAfterSourceHandled);
    return runInMode(mode, duration_cast<nanoseconds>(duration<double>(std::max(seconds, 0.0))), returnAfterSourceHandled);
}

RunLoopRunResult RunLoop::runInMode(String* mode, std::chrono::nanoseconds limit, bool returnAfterSourceHandled)
{
    if (!isLoopThread())
        raisePlatformException(NSInternalInconsistencyException, "A run loop can only be run by its own thread");
    ModeId id;
    if (!internMode(mode, id))
        return RunLoopRunResult::Finished;
    const auto now = Clock::now();
    const auto deadline = limit >= Clock::time_point::max() - now ? Clock::time_point::max() : now + limit;
    Ref protect(this);
    return state_->run(id, deadline, returnAfterSourceHandled);
}

void RunLoop::run()
{
    for (;;) {
        auto result = runInMode(NSDefaultRunLoopMode, std::chrono::nanoseconds::max(), false);
        if (result == RunLoopRunResult::Stopped || result == RunLoopRunResult::Finished)
            return;
    }
}

void RunLoop::stop() { state_->stop(); }

void RunLoop::wakeUp() { state_->wakeUp(); }

String* RunLoop::currentMode() const
{
    bool running;
    ModeId id = state_->currentMode(running);
    return running ? modeName(id) : nullptr;
}

void RunLoop::addCommonMode(String* mode)
{
    ModeId id;
    if (internMode(mode, id))
        state_->addCommonMode(id);
}

namespace {

// The loops whose wake-ups this thread holds back, while a DeferredWakeUps scope is open.
struct HeldWakeUps {
    unsigned depth = 0;
    std::vector<std::shared_ptr<LoopState>> loops;

    bool hold(const std::shared_ptr<LoopState>& loop)
    {
#if ZON_PLAIN_WAKEUPS
        return false; // the plain fallback: every post wakes its loop at once
#endif
        if (depth == 0)
            return false;
        if (std::find(loops.begin(), loops.end(), loop) == loops.end())
            loops.push_back(loop);
        return true;
    }
    void release()
    {
        for (auto& loop : loops)
            loop->wakeUp();
        loops.clear();
    }
};
thread_local HeldWakeUps heldWakeUps;

} // namespace

RunLoop::DeferredWakeUps::DeferredWakeUps() { ++heldWakeUps.depth; }

void RunLoop::DeferredWakeUps::wakeHeldLoops() { heldWakeUps.release(); }

RunLoop::DeferredWakeUps::~DeferredWakeUps()
{
    if (--heldWakeUps.depth == 0)
        heldWakeUps.release();
}

void RunLoop::performBlock(RunLoopModes modes, RunLoopBlock block)
{
    const bool wake = !isLoopThread() && !heldWakeUps.hold(state_);
    state_->post(ModeSet(modes), std::move(block), nullptr, wake);
}

bool RunLoop::performBlockAndWait(RunLoopModes modes, RunLoopBlock block)
{
    heldWakeUps.release();
    if (isLoopThread()) {
        block();
        return true;
    }
    auto completion = std::make_shared<Completion>();
    state_->post(ModeSet(modes), std::move(block), completion, true);
    return completion->wait() == Completion::Ran;
}

RunLoopSource RunLoop::addSource(int fd, uint32_t events, RunLoopSourceCallback callback, RunLoopModes modes)
{
    auto record = state_->addSource(fd, events, std::move(callback), ModeSet(modes));
    return RunLoopSource(std::move(record));
}

void RunLoop::addTimer_forMode(Timer* timer, String* mode)
{
    ModeId id;
    if (!timer || !internMode(mode, id))
        return;
    {
        std::lock_guard lock(timer->mutex_);
        if (!timer->isValid())
            return;
        auto owner = timer->loop_.lock();
        if (owner && owner != state_)
            raisePlatformException(NSInvalidArgumentException, "A timer can only be scheduled on one run loop");
        timer->loop_ = state_;
    }
    if (!state_->addTimer(timer, id))
        timer->invalidate();
    // An invalidate() that ran while the timer was being added did not find it in the table.
    if (!timer->isValid())
        state_->removeTimer(timer);
}

void RunLoop::timerChanged(const std::weak_ptr<LoopState>& loop, Timer* timer, bool invalidated)
{
    if (auto state = loop.lock()) {
        if (invalidated)
            state->removeTimer(timer);
        else
            state->wakeUp();
    }
}

void RunLoop::threadDidExit() { state_->shutDown(); }

} // namespace zon
