#include "platform/threads/Lock.h"

#include "platform/runtime/Class.h"
#include "platform/threads/LockBeforeDate.h"

namespace zon {

ZON_DEFINE_CLASS(Lock, "NSLock")

Ref<Lock> Lock::init() { return makeObject<Lock>(); }

bool Lock::lockBeforeDate(const Date* limit)
{
    return lockMutexBeforeDate(mutex_.native_handle(), limit);
}

} // namespace zon
