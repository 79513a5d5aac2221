#pragma once

#include "platform/runtime/Object.h"

#include <atomic>
#include <cstdint>

namespace zon {

class Condition;
class Lock;

// A single-use meeting point for a fixed number of threads: each calls wait(), and none returns
// before the last has arrived. Once open it stays open, so each of the threads must call wait()
// exactly once; a call after it opened blocks for ever (the count wraps below zero).
class ZON_EXPORT TXZonBarrier final : public Object {
    ZON_OBJECT(TXZonBarrier, Object)
public:
    // Always nil: only the counted initialiser makes a barrier.
    static Ref<TXZonBarrier> init();
    // A count of 0 is a fatal programming error: the process stops.
    static Ref<TXZonBarrier> initToSynchronizeNumberOfThreads(uint32_t count);

    void wait();

    ~TXZonBarrier() override;

private:
    explicit TXZonBarrier(uint32_t count);

    Ref<Condition> condition_; // where threads wait; its mutex guards reading the count
    Ref<Lock> lock_;           // guards changing the count; always taken before condition_
    std::atomic<uint32_t> numberOfThreadsStillRunning_;
};

} // namespace zon
