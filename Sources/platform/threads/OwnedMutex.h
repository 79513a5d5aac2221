#pragma once

namespace zon::detail {

// The Lockable methods of an object that owns one mutex (Lock, RecursiveLock, Condition): they
// pass straight through to it, and try_lock makes std::lock_guard and std::unique_lock work.
template <class Mutex>
class OwnedMutex {
public:
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }
    bool tryLock() { return mutex_.try_lock(); }
    bool try_lock() { return tryLock(); }

protected:
    OwnedMutex() = default;
    ~OwnedMutex() = default;

    Mutex mutex_;
};

} // namespace zon::detail
