#include "platform/threads/RecursiveLock.h"

#include "platform/runtime/Class.h"
#include "platform/threads/LockBeforeDate.h"

namespace zon {

ZON_DEFINE_CLASS(RecursiveLock, "NSRecursiveLock")

Ref<RecursiveLock> RecursiveLock::init() { return makeObject<RecursiveLock>(); }

bool RecursiveLock::lockBeforeDate(const Date* limit)
{
    return lockMutexBeforeDate(mutex_.native_handle(), limit);
}

} // namespace zon
