#include "atomic/TXZonAtomicSingleton.h"

#include "platform/runtime/Class.h"
#include "platform/values/AssertionHandler.h"

#include <memory>
#include <unordered_map>

namespace zon {

ZON_DEFINE_CLASS(TXZonAtomicSingleton, "TXZonAtomicSingleton")

TXZonAtomicSingleton::Slot* TXZonAtomicSingleton::singletonInstance() { return missingSingletonInstance(staticClass()); }

TXZonAtomicSingleton::Slot* TXZonAtomicSingleton::missingSingletonInstance(Class* cls)
{
    AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("singletonInstance"), cls,
        __FILE__, __LINE__, "Incomplete Singleton -- Missing sharedInstance %@", cls);
}

std::recursive_mutex& TXZonAtomicSingleton::classMonitor(Class* cls)
{
    static std::mutex mutex;
    static auto* monitors = new std::unordered_map<Class*, std::unique_ptr<std::recursive_mutex>>; // never freed
    std::lock_guard lock(mutex);
    auto& monitor = (*monitors)[cls];
    if (!monitor)
        monitor = std::make_unique<std::recursive_mutex>();
    return *monitor;
}

bool TXZonAtomicSingleton::publish(Slot* slot, TXZonAtomicSingleton* object)
{
    // Immortal before anyone can see it, so no reader ever finds an ordinary count.
    object->makeImmortal();
    TXZonAtomicSingleton* expected = nullptr;
    if (slot->compare_exchange_strong(expected, object, std::memory_order_seq_cst))
        return true;
    delete object; // lost the race; nobody else ever saw it
    return false;
}

Object* TXZonAtomicSingleton::autorelease() const
{
    AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("autorelease"), this,
        __FILE__, __LINE__, "Calling autorelease from singleton %@", objectClass());
}

Ref<Object> TXZonAtomicSingleton::copy() const
{
    AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("copyWithZone:"), this,
        __FILE__, __LINE__, "Calling copyWithZone from singleton %@", objectClass());
}

} // namespace zon
