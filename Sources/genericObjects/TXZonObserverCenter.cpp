#include "genericObjects/TXZonObserverCenter.h"

#include "genericObjects/TXZonObserver.h"
#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/threads/Lock.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Array.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/Value.h"

#include <mutex>

namespace zon {

ZON_DEFINE_CLASS(TXZonObserverCenter, "TXZonObserverCenter")

void TXZonObserverCenter::exportMethods(Class& cls)
{
    cls.exportMethod("dispatchNotifyObserversWithSelector:objects:requiredSelector:",
        &TXZonObserverCenter::dispatchNotifyObserversWithSelector_objects_requiredSelector);
}

TXZonObserverCenter::TXZonObserverCenter(Thread* thread)
    : observers_(MutableArray::array())
    , observerLock_(Lock::init())
    , thread_(thread)
{
}

Ref<TXZonObserverCenter> TXZonObserverCenter::initWithDispatchThread(Thread* thread)
{
    return makeObject<TXZonObserverCenter>(thread);
}

Ref<TXZonObserverCenter> TXZonObserverCenter::observerCenterWithDispatchThread(Thread* thread)
{
    return initWithDispatchThread(thread);
}

Ref<TXZonObserverCenter> TXZonObserverCenter::observerCenter() { return initWithDispatchThread(Thread::mainThread()); }

void TXZonObserverCenter::setDispatchThread(Thread* thread)
{
    std::lock_guard lock(*observerLock_);
    thread_ = thread;
}

Ref<Thread> TXZonObserverCenter::dispatchThread() const
{
    std::lock_guard lock(*observerLock_);
    return thread_;
}

void TXZonObserverCenter::addObserver(Object* delegate)
{
    addZonObserver(TXZonObserver::observerForDelegate_withThread(delegate, Thread::currentThread()));
}

void TXZonObserverCenter::addThreadObserver(Object* delegate)
{
    addZonObserver(TXZonObserver::observerForDelegate_withThread(delegate, nullptr));
}

void TXZonObserverCenter::addZonObserver(TXZonObserver* observer)
{
    std::lock_guard lock(*observerLock_);
    if (!observers_->containsObject(observer))
        observers_->addObject(observer);
}

void TXZonObserverCenter::removeObserver(Object* delegate)
{
    removeZonObserver(TXZonObserver::observerForDelegate(delegate));
}

void TXZonObserverCenter::removeZonObserver(TXZonObserver* observer)
{
    std::lock_guard lock(*observerLock_);
    observers_->removeObject(observer);
}

Ref<Array> TXZonObserverCenter::observerObjects() const
{
    std::vector<Ref<Object>> delegates;
    std::lock_guard lock(*observerLock_);
    delegates.reserve(observers_->count());
    for (Object* observer : *observers_) {
        if (Ref<Object> delegate = static_cast<TXZonObserver*>(observer)->delegate())
            delegates.push_back(std::move(delegate));
    }
    return Array::arrayWithVector(std::move(delegates));
}

Ref<Array> TXZonObserverCenter::observerZonObjects() const
{
    std::vector<Ref<Object>> copies;
    std::lock_guard lock(*observerLock_);
    copies.reserve(observers_->count());
    for (Object* observer : *observers_)
        copies.push_back(observer->copy());
    return Array::arrayWithVector(std::move(copies));
}

void TXZonObserverCenter::notifyObserversWithSelector(SEL operation)
{
    notifyObserversWithSelector_objects(operation, nullptr);
}

void TXZonObserverCenter::notifyObserversWithSelector_object(SEL operation, Object* object)
{
    notifyObserversWithSelector_objects(operation, Array::arrayWithObject(object));
}

void TXZonObserverCenter::notifyObserversWithSelector_objects(SEL operation, Array* objects)
{
    notifyObserversWithSelector_objects_requiredSelector(operation, objects, false);
}

void TXZonObserverCenter::notifyObserversWithSelector_objects_requiredSelector(SEL operation, Array* objects, bool required)
{
    Ref<Array> arguments = objects ? Ref<Array>(objects) : Array::array();
    Ref<Thread> thread = dispatchThread();
    if (!thread) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
            "Cannot perform selector %@ on observers, no dispatch thread", operation);
        return;
    }
    auto boxedOperation = Value::valueWithSelector(operation);
    auto boxedRequired = Number::numberWithBool(required);
    if (thread == Thread::currentThread()) {
        dispatchNotifyObserversWithSelector_objects_requiredSelector(boxedOperation, arguments, boxedRequired);
        return;
    }
    static const SEL dispatch = selector("dispatchNotifyObserversWithSelector:objects:requiredSelector:");
    performSelector_onThread_withObjects_waitUntilDone(
        dispatch, thread, Array::arrayWithObjects({boxedOperation, arguments, boxedRequired}), false);
}

void TXZonObserverCenter::dispatchNotifyObserversWithSelector_objects_requiredSelector(
    Value* boxedOperation, Array* objects, Number* boxedRequired)
{
    const SEL operation = boxedOperation ? boxedOperation->selectorValue() : nullptr;
    const bool required = boxedRequired && boxedRequired->boolValue();
    // The calls are queued in one burst: each observer thread is woken once, after the lock.
    RunLoop::DeferredWakeUps oneWakeUpPerThread;
    std::lock_guard lock(*observerLock_);
    for (Object* item : *observers_) {
        auto* observer = static_cast<TXZonObserver*>(item);
        Ref<Object> delegate = observer->delegate();
        if (!delegate)
            continue; // destroyed while registered
        Thread* thread = observer->thread() ? observer->thread() : Thread::currentThread();
        if (!required && !delegate->respondsToSelector(operation))
            continue;
        try {
            delegate->performSelector_onThread_withObjects_waitUntilDone(operation, thread, objects, false);
        } catch (const Exception&) {
            zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
                "Exception sending %@ with params %@ to %@", operation, objects, observer);
        }
    }
}

void TXZonObserverCenter::setObservers(MutableArray* observers) { observers_ = observers; }

void TXZonObserverCenter::setObserverLock(Lock* lock) { observerLock_ = lock; }

void TXZonObserverCenter::setThread(Thread* thread) { thread_ = thread; }

} // namespace zon
