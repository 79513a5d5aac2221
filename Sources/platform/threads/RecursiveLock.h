#pragma once

#include "platform/runtime/Object.h"

#include <mutex>

namespace zon {

class Date;

// A lock the holding thread may take again; it is free once unlocked as often as locked.
// Run-time class NSRecursiveLock.
class ZON_EXPORT RecursiveLock final : public Object {
    ZON_OBJECT(RecursiveLock, Object)
public:
    static Ref<RecursiveLock> init();

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }
    bool tryLock() { return mutex_.try_lock(); }
    bool try_lock() { return tryLock(); }
    bool lockBeforeDate(const Date* limit);

private:
    RecursiveLock() = default;
    std::recursive_mutex mutex_;
};

} // namespace zon
