#pragma once

#include "platform/runtime/Object.h"

namespace zon {

class Array;
class Lock;
class MutableArray;
class Number;
class Thread;
class TXZonObserver;
class Value;

// A registry of observers (delegates, each with the thread it wants to be called on) to which an
// owner broadcasts one named operation with a list of arguments.
//
// A broadcast runs on the dispatch thread (the main thread unless told otherwise): from another
// thread it is handed there and returns at once. There, under the observer lock, each call is
// queued to its observer's thread, also for observers that live on the dispatch thread itself;
// no delegate is ever called while the lock is held, so delegates may register and remove
// observers from their own threads. Calls queued to one thread run in the order queued.
//
// Delegates are not retained: an owner removes a delegate before destroying it. One destroyed
// while registered is skipped by later broadcasts (and dropped from observerObjects).
class ZON_EXPORT TXZonObserverCenter : public Object {
    ZON_OBJECT(TXZonObserverCenter, Object)
public:
    // Dispatching on the main thread.
    static Ref<TXZonObserverCenter> observerCenter();
    static Ref<TXZonObserverCenter> observerCenterWithDispatchThread(Thread* thread);
    static Ref<TXZonObserverCenter> initWithDispatchThread(Thread* thread);

    // Under the lock.
    void setDispatchThread(Thread* thread);
    Ref<Thread> dispatchThread() const;

    // For calls on the calling thread. addThreadObserver is the same registration, kept as its
    // own operation.
    void addObserver(Object* delegate);
    void addThreadObserver(Object* delegate);
    // Appends the observer unless one with the same delegate is registered (whose thread stays).
    void addZonObserver(TXZonObserver* observer);
    void removeObserver(Object* delegate);
    // Removes every registered observer with the observer's delegate.
    void removeZonObserver(TXZonObserver* observer);

    // The registered delegates, in order of registration; copies of the registered observers.
    Ref<Array> observerObjects() const;
    Ref<Array> observerZonObjects() const;

    void notifyObserversWithSelector(SEL operation);
    void notifyObserversWithSelector_object(SEL operation, Object* object);
    void notifyObserversWithSelector_objects(SEL operation, Array* objects);
    // With required false, delegates that do not implement the operation are skipped; with true
    // each is asked to perform it all the same. A nil array means no arguments.
    void notifyObserversWithSelector_objects_requiredSelector(SEL operation, Array* objects, bool required);
    // The part of a broadcast that runs on the dispatch thread (the operation boxed as a value,
    // the flag as a number); exported for the cross-thread call.
    void dispatchNotifyObserversWithSelector_objects_requiredSelector(Value* operation, Array* objects, Number* required);

    // Plain accessors of the three fields; they take no lock.
    MutableArray* observers() const { return observers_.get(); }
    void setObservers(MutableArray* observers);
    Lock* observerLock() const { return observerLock_.get(); }
    void setObserverLock(Lock* lock);
    Thread* thread() const { return thread_.get(); }
    void setThread(Thread* thread);

    static void exportMethods(Class& cls);

private:
    explicit TXZonObserverCenter(Thread* thread);

    Ref<MutableArray> observers_;
    Ref<Lock> observerLock_;
    Ref<Thread> thread_;
};

} // namespace zon
