#pragma once

#include "platform/runtime/Object.h"
#include "platform/runtime/WeakRef.h"

namespace zon {

class String;
class Thread;

// The registration of one delegate with an observer center: the delegate (not owned), the thread
// it wants to be called on, and its class name. Two observers are equal when they hold the very
// same delegate, whatever their threads; the hash stays the root's identity hash.
//
// The delegate is held by a zeroing weak reference: a delegate destroyed while still registered
// reads as nil and is skipped by broadcasts instead of being called through a dangling pointer.
class ZON_EXPORT TXZonObserver : public Object {
    ZON_OBJECT(TXZonObserver, Object)
public:
    static Ref<TXZonObserver> observerForDelegate_withThread(Object* delegate, Thread* thread);
    // For the calling thread.
    static Ref<TXZonObserver> observerForDelegate(Object* delegate);
    static Ref<TXZonObserver> mainThreadObserverForDelegate(Object* delegate);
    // A nil thread means the calling thread.
    static Ref<TXZonObserver> initWithDelegate_thread(Object* delegate, Thread* thread);

    // Nil once the delegate is gone.
    Ref<Object> delegate() const { return delegate_.load(); }
    Thread* thread() const { return thread_.get(); }

    // copyWithZone:, a new observer for the same delegate and thread.
    Ref<Object> copy() const override;
    bool isEqual(const Object* other) const override;
    // "TXObserver: <delegate class> on thread <thread name>".
    Ref<String> description() const override;

    // Whether both hold the same delegate (alive or not).
    bool hasSameDelegateAs(const TXZonObserver& other) const { return delegate_ == other.delegate_; }

private:
    TXZonObserver(Object* delegate, Thread* thread);

    Ref<String> name_;
    WeakRef<Object> delegate_;
    Ref<Thread> thread_;
};

} // namespace zon
