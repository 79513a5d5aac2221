#include "platform/threads/Condition.h"

#include "platform/runtime/Class.h"
#include "platform/values/Date.h"

namespace zon {

ZON_DEFINE_CLASS(Condition, "NSCondition")

Ref<Condition> Condition::init() { return makeObject<Condition>(); }

void Condition::wait()
{
    std::unique_lock held(mutex_, std::adopt_lock);
    condition_.wait(held);
    held.release(); // the caller still holds the mutex
}

bool Condition::waitUntilDate(const Date* limit)
{
    const double seconds = limit ? limit->timeIntervalSinceNow() : 0;
    if (!(seconds > 0))
        return false;
    std::unique_lock held(mutex_, std::adopt_lock);
    const auto status = condition_.wait_for(held, std::chrono::duration<double>(std::min(seconds, 1e9)));
    held.release();
    return status == std::cv_status::no_timeout;
}

} // namespace zon
