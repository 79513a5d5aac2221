#include "genericObjects/TXZonObserver.h"

#include "platform/runtime/Class.h"
#include "platform/threads/Thread.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(TXZonObserver, "TXZonObserver")

TXZonObserver::TXZonObserver(Object* delegate, Thread* thread)
    : name_(delegate ? String::stringWithUTF8String(delegate->objectClass()->name()) : nullptr)
    , delegate_(delegate)
    , thread_(thread ? thread : Thread::currentThread())
{
}

Ref<TXZonObserver> TXZonObserver::initWithDelegate_thread(Object* delegate, Thread* thread)
{
    return makeObject<TXZonObserver>(delegate, thread);
}

Ref<TXZonObserver> TXZonObserver::observerForDelegate_withThread(Object* delegate, Thread* thread)
{
    return initWithDelegate_thread(delegate, thread);
}

Ref<TXZonObserver> TXZonObserver::observerForDelegate(Object* delegate) { return initWithDelegate_thread(delegate, nullptr); }

Ref<TXZonObserver> TXZonObserver::mainThreadObserverForDelegate(Object* delegate)
{
    return initWithDelegate_thread(delegate, Thread::mainThread());
}

Ref<Object> TXZonObserver::copy() const
{
    auto copied = makeObject<TXZonObserver>(nullptr, thread_.get());
    copied->name_ = name_;
    copied->delegate_ = delegate_;
    return copied;
}

bool TXZonObserver::isEqual(const Object* other) const
{
    const auto* observer = dynamicCast<TXZonObserver>(other);
    return observer && hasSameDelegateAs(*observer);
}

Ref<String> TXZonObserver::description() const
{
    return String::stringWithFormat("TXObserver: %@ on thread %@", name_, thread_->name());
}

} // namespace zon
