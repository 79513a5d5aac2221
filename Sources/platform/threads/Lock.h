#pragma once

#include "platform/runtime/Object.h"
#include "platform/threads/OwnedMutex.h"

#include <mutex>

namespace zon {

class Date;

// A mutual-exclusion lock; run-time class NSLock. Not recursive: locking it twice on one thread
// deadlocks. Meets the standard Lockable requirements, so std::lock_guard and std::unique_lock
// work with it.
class ZON_EXPORT Lock final : public Object, public detail::OwnedMutex<std::mutex> {
    ZON_OBJECT(Lock, Object)
public:
    static Ref<Lock> init();

    // Waits for the lock until the date; answers whether it was taken.
    bool lockBeforeDate(const Date* limit);

private:
    Lock() = default;
};

} // namespace zon
