#pragma once

#include "platform/runtime/Object.h"

#include <atomic>
#include <mutex>
#include <type_traits>

namespace zon {

// The base of process-wide single objects. Each subclass has exactly one instance, made on first
// use by whichever thread asks first and published with a compare-and-swap; it lives until the
// process ends (retain and release do nothing, retainCount is all ones).
//
// A subclass owns its slot and forwards sharedInstance to the base:
//
//     class TXZonWidgetManager final : public TXZonAtomicSingleton {
//         ZON_OBJECT(TXZonWidgetManager, TXZonAtomicSingleton)
//     public:
//         static Slot* singletonInstance() { static constinit Slot slot; return &slot; }
//         static TXZonWidgetManager* sharedInstance() { return TXZonAtomicSingleton::sharedInstance<TXZonWidgetManager>(); }
//     private:
//         TXZonWidgetManager() = default;
//         void init() override; // set-up, run once on the published instance
//     };
//
// The instance is published when it is allocated, before init() runs, so init() must tolerate
// other threads already seeing the object. The constructor also runs for an allocation that loses
// the race to publish and is thrown away: keep it cheap and put set-up in init().
class ZON_EXPORT TXZonAtomicSingleton : public Object {
    ZON_OBJECT(TXZonAtomicSingleton, Object)
public:
    using Slot = std::atomic<TXZonAtomicSingleton*>;

    // The address of the class's instance slot. This version is reached only by a class that did
    // not provide its own: it fails through the assertion handler with
    // "Incomplete Singleton -- Missing sharedInstance %@".
    static Slot* singletonInstance();

    // The instance of Self, made on first call. Creators are serialised per class; a creator that
    // waited finds its own allocation refused (nil) and answers the published instance.
    template <class Self>
    static Self* sharedInstance();

    // allocWithZone: a new instance on the first allocation of Self, nil once one exists.
    template <class Self>
    static Ref<Self> allocWithZone(void* zone = nullptr);

    // Singletons must not be autoreleased or copied: both fail through the assertion handler.
    Object* autorelease() const override;
    Ref<Object> copy() const override;

protected:
    TXZonAtomicSingleton() = default;
    ~TXZonAtomicSingleton() override = default;

    // init: runs once, on the published instance, when sharedInstance makes it.
    virtual void init() {}

private:
    template <class Self>
    static Slot* slotOf();
    static Slot* missingSingletonInstance(Class* cls);
    static std::recursive_mutex& classMonitor(Class* cls);
    // Makes object immortal and publishes it in an empty slot; otherwise destroys it.
    static bool publish(Slot* slot, TXZonAtomicSingleton* object);
};

template <class Self>
TXZonAtomicSingleton::Slot* TXZonAtomicSingleton::slotOf()
{
    static_assert(std::is_base_of_v<TXZonAtomicSingleton, Self>);
    // A class without its own singletonInstance names the base's here.
    if constexpr (std::is_same_v<decltype(&Self::singletonInstance), decltype(&TXZonAtomicSingleton::singletonInstance)>) {
        if (&Self::singletonInstance == &TXZonAtomicSingleton::singletonInstance)
            return missingSingletonInstance(Self::staticClass());
    }
    return Self::singletonInstance();
}

template <class Self>
Ref<Self> TXZonAtomicSingleton::allocWithZone(void*)
{
    Slot* slot = slotOf<Self>();
    if (!slot || slot->load(std::memory_order_acquire))
        return nullptr;
    Self* object = makeObject<Self>().leakRef();
    return publish(slot, object) ? Ref<Self>(object) : nullptr;
}

template <class Self>
Self* TXZonAtomicSingleton::sharedInstance()
{
    Slot* slot = slotOf<Self>();
    if (!slot)
        return nullptr;
    if (!slot->load(std::memory_order_acquire)) {
        std::lock_guard monitor(classMonitor(Self::staticClass()));
        // Not tested again here: a creator that waited gets nil and skips init.
        if (Ref<Self> created = allocWithZone<Self>())
            static_cast<TXZonAtomicSingleton*>(created.get())->init();
    }
    return static_cast<Self*>(slot->load(std::memory_order_acquire));
}

} // namespace zon
