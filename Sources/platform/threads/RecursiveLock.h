#pragma once

#include "platform/runtime/Object.h"
#include "platform/threads/OwnedMutex.h"

#include <mutex>

namespace zon {

class Date;

// A lock the holding thread may take again; it is free once unlocked as often as locked.
// Run-time class NSRecursiveLock.
class ZON_EXPORT RecursiveLock final : public Object, public detail::OwnedMutex<std::recursive_mutex> {
    ZON_OBJECT(RecursiveLock, Object)
public:
    static Ref<RecursiveLock> init();

    bool lockBeforeDate(const Date* limit);

private:
    RecursiveLock() = default;
};

} // namespace zon
