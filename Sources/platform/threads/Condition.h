#pragma once

#include "platform/runtime/Object.h"
#include "platform/threads/OwnedMutex.h"

#include <condition_variable>
#include <mutex>

namespace zon {

class Date;

// A condition variable with its own mutex; run-time class NSCondition. The usual pattern:
//
//     condition->lock();
//     while (!ready)
//         condition->wait();
//     condition->unlock();
//
// wait() gives up the mutex while it sleeps and holds it again when it returns; it may return
// without a signal, so test the predicate in a loop.
class ZON_EXPORT Condition final : public Object, public detail::OwnedMutex<std::mutex> {
    ZON_OBJECT(Condition, Object)
public:
    static Ref<Condition> init();

    // The caller holds the lock.
    void wait();
    // Answers false when the date passed without a signal.
    bool waitUntilDate(const Date* limit);
    void signal() { condition_.notify_one(); }
    void broadcast() { condition_.notify_all(); }

private:
    Condition() = default;
    std::condition_variable condition_;
};

} // namespace zon
