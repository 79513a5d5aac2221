#include "platform/threads/LockBeforeDate.h"

#include "platform/values/Date.h"

#include <cmath>
#include <ctime>

namespace zon {

bool lockMutexBeforeDate(pthread_mutex_t* mutex, const Date* limit)
{
    if (!limit || !(limit->timeIntervalSinceNow() > 0))
        return pthread_mutex_trylock(mutex) == 0;
    // A date is wall-clock time, which is what the absolute limit of a timed lock counts in.
    double seconds = std::min(limit->timeIntervalSince1970(), 4e9);
    timespec until {};
    until.tv_sec = static_cast<time_t>(std::floor(seconds));
    until.tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
    return pthread_mutex_timedlock(mutex, &until) == 0;
}

} // namespace zon
