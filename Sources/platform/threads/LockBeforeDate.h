#pragma once

// Waits for a system mutex until a wall-clock date. Internal to the threads layer.

#include <pthread.h>

namespace zon {

class Date;

// Answers whether the mutex was taken before the date; a nil or past date only tries once.
bool lockMutexBeforeDate(pthread_mutex_t* mutex, const Date* limit);

} // namespace zon
