#include "atomic/TXZonBarrier.h"

#include "platform/runtime/Class.h"
#include "platform/threads/Condition.h"
#include "platform/threads/Lock.h"

#include <cstdlib>

namespace zon {

ZON_DEFINE_CLASS(TXZonBarrier, "TXZonBarrier")

TXZonBarrier::TXZonBarrier(uint32_t count)
    : condition_(Condition::init())
    , lock_(Lock::init())
    , numberOfThreadsStillRunning_(count)
{
}

TXZonBarrier::~TXZonBarrier() { numberOfThreadsStillRunning_ = 0; }

Ref<TXZonBarrier> TXZonBarrier::init() { return nullptr; }

Ref<TXZonBarrier> TXZonBarrier::initToSynchronizeNumberOfThreads(uint32_t count)
{
    // Nobody could ever pass a barrier for no threads; that is a caller's bug, and fatal.
    if (count == 0)
        std::abort();
    return makeObject<TXZonBarrier>(count);
}

void TXZonBarrier::wait()
{
    lock_->lock();
    const uint32_t left = --numberOfThreadsStillRunning_;
    condition_->lock();
    if (left == 0) {
        condition_->broadcast();
        condition_->unlock();
        lock_->unlock();
        return;
    }
    // The condition's mutex is held before lock_ is given up, so the last arriver's broadcast
    // cannot fall between the test below and the wait.
    lock_->unlock();
    while (numberOfThreadsStillRunning_ != 0)
        condition_->wait();
    condition_->unlock();
}

} // namespace zon
