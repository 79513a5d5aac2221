#pragma once

#include "platform/Export.h"
#include "platform/runtime/Ref.h"
#include "platform/runtime/Selector.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <type_traits>
#include <utility>

namespace zon {

class Array;
class Class;
class MethodSignature;
class Object;
class String;
class Thread;
struct Method;

// The argument objects of a call by selector, in order; nil is a null pointer.
using Arguments = std::span<Object* const>;

struct ImmortalTag {};

// Makes objects for the factories of each class; constructors stay private to their class and
// name this as a friend (ZON_OBJECT does).
class ObjectFactory {
public:
    template <class T, class... Args>
    static Ref<T> make(Args&&... args)
    {
        return adoptRef(new T(std::forward<Args>(args)...));
    }
};

template <class T, class... Args>
Ref<T> makeObject(Args&&... args)
{
    return ObjectFactory::make<T>(std::forward<Args>(args)...);
}

// Declares a class of the object runtime inside its C++ class body. The .cpp defines it with
// ZON_DEFINE_CLASS, giving the run-time name and, optionally, the methods it exports.
#define ZON_OBJECT(Self, Base)                                                                     \
public:                                                                                            \
    using Super = Base;                                                                            \
    static ::zon::Class* staticClass();                                                            \
    ::zon::Class* objectClass() const override;                                                    \
                                                                                                   \
private:                                                                                           \
    friend class ::zon::ObjectFactory;

// Defines the run-time class of Self under a run-time name. When Self declares
// `static void exportMethods(zon::Class&)`, it runs once to add the methods callable by selector.
#define ZON_DEFINE_CLASS(Self, runtimeName)                                                        \
    ::zon::Class* Self::staticClass()                                                              \
    {                                                                                              \
        static ::zon::Class* const cls = ::zon::Class::define<Self>(runtimeName);                  \
        return cls;                                                                                \
    }                                                                                              \
    ::zon::Class* Self::objectClass() const { return staticClass(); }

// The root of every object: an intrusive, thread-safe reference count, run-time class and method
// lookup, and the operations every value answers (description, equality, hash, copies).
//
// Lifetime: objects are made by their class's factories and start with one reference, which the
// returned Ref owns. release() destroys the object when the count reaches zero, on the releasing
// thread; destroying a deep graph (a million nested arrays) does not recurse once per level.
// Immortal objects (string constants, singletons) ignore retain and release.
class ZON_EXPORT Object {
public:
    static Class* staticClass();
    virtual Class* objectClass() const;

    void retain() const noexcept;
    void release() const noexcept;
    uint32_t retainCount() const noexcept;
    bool isImmortal() const noexcept { return refCount_.load(std::memory_order_relaxed) == kImmortal; }
    // Whether weak references or key-value observers were ever registered for this object; only
    // such objects look into those side tables when they die.
    bool hasSideTableEntries() const noexcept
    {
        const uint32_t count = refCount_.load(std::memory_order_relaxed);
        return count != kImmortal && (count & kSideTableFlag);
    }
    // Hands one reference to the innermost autorelease pool of this thread.
    virtual Object* autorelease() const;

    virtual Ref<String> description() const;
    virtual bool isEqual(const Object* other) const;
    virtual size_t hash() const;
    // Copies raise NSInvalidArgumentException unless the class supports copying.
    virtual Ref<Object> copy() const;
    virtual Ref<Object> mutableCopy() const;

    bool isKindOfClass(const Class* cls) const;
    bool isMemberOfClass(const Class* cls) const;
    bool respondsToSelector(SEL sel) const;
    // The signature of the method the receiver answers under sel, or nil.
    Ref<MethodSignature> methodSignatureForSelector(SEL sel) const;

    // Calls the method exported under sel with these arguments (missing ones are nil) and answers
    // its object result (nil for void; scalars come back boxed as numbers). An unknown selector
    // raises NSInvalidArgumentException.
    Ref<Object> performSelectorWithArguments(SEL sel, Arguments arguments);
    Ref<Object> performSelector(SEL sel) { return performSelectorWithArguments(sel, {}); }
    Ref<Object> performSelector(SEL sel, Object* argument)
    {
        Object* args[] = {argument};
        return performSelectorWithArguments(sel, args);
    }
    Ref<Object> performSelector(SEL sel, Object* first, Object* second)
    {
        Object* args[] = {first, second};
        return performSelectorWithArguments(sel, args);
    }

    // Key-value coding. valueForKey calls the method named key (scalar results come back boxed);
    // setValue_forKey calls setKey: (the key with its first letter upper-cased). Without such a
    // method both raise NSUndefinedKeyException; nil for a scalar parameter raises
    // NSInvalidArgumentException. Classes override them to serve keys of their own.
    virtual Ref<Object> valueForKey(String* key);
    virtual void setValue_forKey(Object* value, String* key);

    // Key-value observing of single keys (no key paths). willChangeValueForKey and
    // didChangeValueForKey bracket a change: the did call sends each observer of the key its
    // exported observeValueForKeyPath:ofObject:change:context: at once, on the calling thread, with
    // a change dictionary ("kind" 1, and "old" and "new" as the options ask; nil reads as the null
    // marker). Observers are not retained: one that dies while registered is skipped. An object
    // that dies with observers registered logs an error and drops them. The context is retained.
    void addObserver_forKeyPath_options_context(Object* observer, String* keyPath, unsigned long options, Object* context);
    // Removes the observer's latest registration for the key; one it never made raises
    // NSRangeException. The context form removes the one made with that context.
    void removeObserver_forKeyPath(Object* observer, String* keyPath);
    void removeObserver_forKeyPath_context(Object* observer, String* keyPath, Object* context);
    void willChangeValueForKey(String* key);
    void didChangeValueForKey(String* key);

    // The method that answers sel for this receiver, or null. Classes answer their class
    // methods; proxies answer for the object they stand for.
    virtual const Method* methodForSelector(SEL sel) const;

    // NSObject(ZonLoggingExtensions): the category of this object's log lines, that of its class
    // ("default" unless the class or a base class overrides the class operation).
    virtual String* objectLogCategory() const;

    // NSObject(ZonThreadExtensions): calls a method with its arguments taken from an array, now
    // or on another thread's run loop. Modes are an array of mode names; without them the call is
    // queued in the common modes. A wrong argument count fails through the assertion handler: the
    // immediate form wants exactly as many objects as the method takes, the queued forms at most
    // that many (missing ones are nil).
    Ref<Object> performSelector_withObjects(SEL sel, Array* objects);
    void performSelector_onThread_withObjects_waitUntilDone_modes(
        SEL sel, Thread* thread, Array* objects, bool waitUntilDone, Array* modes);
    void performSelector_onThread_withObjects_waitUntilDone(SEL sel, Thread* thread, Array* objects, bool waitUntilDone);
    void performSelectorOnMainThread_withObjects_waitUntilDone_modes(
        SEL sel, Array* objects, bool waitUntilDone, Array* modes);
    void performSelectorOnMainThread_withObjects_waitUntilDone(SEL sel, Array* objects, bool waitUntilDone);
    // The argument list forms: objects fill the parameters in order, unchecked; a nil first
    // object means no arguments at all. Extra objects are ignored, missing ones are nil.
    template <class... More>
        requires(std::is_convertible_v<const More&, Object*> && ...)
    void performSelector_onThread_waitUntilDone_withObjects(
        SEL sel, Thread* thread, bool waitUntilDone, Object* first, const More&... more)
    {
        Object* const objects[] = {first, static_cast<Object*>(more)...};
        performSelectorOnThreadWithObjectList(sel, thread, waitUntilDone, nullptr, objects);
    }
    template <class... More>
        requires(std::is_convertible_v<const More&, Object*> && ...)
    void performSelector_onThread_waitUntilDone_modes_withObjects(
        SEL sel, Thread* thread, bool waitUntilDone, Array* modes, Object* first, const More&... more)
    {
        Object* const objects[] = {first, static_cast<Object*>(more)...};
        performSelectorOnThreadWithObjectList(sel, thread, waitUntilDone, modes, objects);
    }

    // NSObject(ZonThreadLockExtensions): calls a method on another thread, waits for it and
    // answers its object result (nil for other result types). On the target thread itself the
    // method is called directly with the whole array as its one argument.
    Ref<Object> performSelectorWithExpectedReturn_onThread_withObjects_modes(
        SEL sel, Thread* thread, Array* objects, Array* modes);
    Ref<Object> performSelectorWithExpectedReturn_onThread_withObjects(SEL sel, Thread* thread, Array* objects);
    Ref<Object> performSelectorWithExpectedReturn_onThread_withObject(SEL sel, Thread* thread, Object* object);

protected:
    constexpr Object() noexcept = default;
    constexpr explicit Object(ImmortalTag) noexcept : refCount_(kImmortal) {}
    // A copy (such as a thrown exception) starts with its own count of one.
    Object(const Object&) noexcept : refCount_(1) {}
    Object& operator=(const Object&) noexcept { return *this; }
    virtual ~Object();

    // Makes this object ignore retain and release from now on; for objects that live as long as
    // the process.
    void makeImmortal() noexcept { refCount_.store(kImmortal, std::memory_order_relaxed); }

    // The object that answers selectors this receiver has no method for, or null.
    virtual Object* forwardingTargetForSelector(SEL sel) const;
    [[noreturn]] void doesNotRecognizeSelector(SEL sel) const;

private:
    friend struct ObjectSideTables;

    // The count's top bit marks an object with side-table entries (weak references, key-value
    // observers): set once by a holder of a strong reference, never cleared, and tested by the
    // same load that reads the count, so objects without entries pay nothing when they die.
    static constexpr uint32_t kImmortal = UINT32_MAX;
    static constexpr uint32_t kSideTableFlag = 0x80000000u;
    static void destroy(const Object* object) noexcept;
    // Marks the object (the caller holds a strong reference); immortal objects stay unmarked.
    void markSideTableEntries() const noexcept;
    // Takes a reference unless the count already reached zero (the object is dying); for loading
    // weak references, under their table's lock.
    bool tryRetain() const noexcept;

    // The argument list forms of NSObject(ZonThreadExtensions); modes nil means the common modes.
    void performSelectorOnThreadWithObjectList(SEL sel, Thread* thread, bool waitUntilDone, Array* modes, Arguments objects);

    mutable std::atomic<uint32_t> refCount_ {1};
};

// The options of addObserver_forKeyPath_options_context; the values are the platform's.
enum KeyValueObservingOptions : unsigned long {
    NSKeyValueObservingOptionNew = 0x01,
    NSKeyValueObservingOptionOld = 0x02,
    NSKeyValueObservingOptionInitial = 0x04,
    NSKeyValueObservingOptionPrior = 0x08,
};
inline constexpr long NSKeyValueChangeSetting = 1;

// Answers object as a T when it is of class T or a subclass, else null.
template <class T>
T* dynamicCast(Object* object)
{
    return object && object->isKindOfClass(T::staticClass()) ? static_cast<T*>(object) : nullptr;
}
template <class T>
const T* dynamicCast(const Object* object)
{
    return object && object->isKindOfClass(T::staticClass()) ? static_cast<const T*>(object) : nullptr;
}
template <class T>
Ref<T> dynamicCast(const Ref<Object>& object)
{
    return Ref<T>(dynamicCast<T>(object.get()));
}
// For a Ref that is known to hold a T (the caller checked, or the API guarantees it).
template <class T, class U>
Ref<T> staticRefCast(Ref<U> object)
{
    return adoptRef(static_cast<T*>(object.leakRef()));
}

// Equality as collections use it: both nil, or isEqual.
ZON_EXPORT bool objectsEqual(const Object* a, const Object* b);

} // namespace zon
