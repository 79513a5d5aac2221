// Key-value observing of single keys: registrations in a side table, notifications sent
// synchronously by didChangeValueForKey.

#include "platform/runtime/KeyValueCoding.h"

#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/ObjectSideTablesInternal.h"
#include "platform/runtime/WeakRef.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace zon {

ZON_STRING_CONSTANT(NSKeyValueChangeKindKey, "kind");
ZON_STRING_CONSTANT(NSKeyValueChangeNewKey, "new");
ZON_STRING_CONSTANT(NSKeyValueChangeOldKey, "old");
ZON_STRING_CONSTANT(NSKeyValueChangeNotificationIsPriorKey, "notificationIsPrior");

namespace {

struct Registration {
    WeakRef<Object> observer;
    Ref<String> key;
    unsigned long options;
    Ref<Object> context;
};

using Registrations = std::vector<Registration>;

// Observed objects to their registrations, oldest first. Notifications copy what they need and
// call observers with the lock released, so observers may register and remove freely.
struct ObservationTable {
    std::mutex mutex;
    std::unordered_map<const Object*, Registrations> objects;

    static ObservationTable& shared()
    {
        static auto* const table = new ObservationTable(); // objects may die during static destruction
        return *table;
    }

    Registrations registrationsFor(const Object* object, const String* key)
    {
        Registrations matching;
        std::lock_guard lock(mutex);
        if (auto found = objects.find(object); found != objects.end()) {
            for (const Registration& registration : found->second) {
                if (registration.key->isEqual(key))
                    matching.push_back(registration);
            }
        }
        return matching;
    }
};

// A change announced by willChangeValueForKey on this thread and not yet completed; changes
// nest, and the innermost one of an object and key is completed first.
struct PendingChange {
    const Object* object;
    Ref<String> key;
    Ref<Object> oldValue; // when an observer asked for it
};
thread_local std::vector<PendingChange> pendingChanges;

bool mayHaveObservers(const Object* object) { return object->hasSideTableEntries() || object->isImmortal(); }

bool anyWants(const Registrations& registrations, unsigned long option)
{
    return std::any_of(registrations.begin(), registrations.end(),
        [option](const Registration& registration) { return registration.options & option; });
}

Object* orNull(Object* value) { return value ? value : Null::null(); }

void notify(const Registration& registration, Object* object, Dictionary* change)
{
    static const SEL observe = selector("observeValueForKeyPath:ofObject:change:context:");
    Ref<Object> observer = registration.observer.load();
    if (!observer)
        return;
    Object* arguments[] = {registration.key.get(), object, change, registration.context.get()};
    observer->performSelectorWithArguments(observe, arguments);
}

Ref<Dictionary> changeDictionary(unsigned long options, Object* oldValue, Object* newValue, bool prior)
{
    auto change = MutableDictionary::dictionary();
    change->setObject_forKey(Number::numberWithLong(NSKeyValueChangeSetting), NSKeyValueChangeKindKey);
    if (prior)
        change->setObject_forKey(Number::yes(), NSKeyValueChangeNotificationIsPriorKey);
    if ((options & NSKeyValueObservingOptionOld) && oldValue)
        change->setObject_forKey(oldValue, NSKeyValueChangeOldKey);
    if (!prior && (options & NSKeyValueObservingOptionNew) && newValue)
        change->setObject_forKey(newValue, NSKeyValueChangeNewKey);
    return change;
}

std::string addressText(const void* address)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", address);
    return text;
}

} // namespace

void Object::addObserver_forKeyPath_options_context(Object* observer, String* keyPath, unsigned long options, Object* context)
{
    if (!observer || !keyPath)
        return;
    Registration registration {WeakRef<Object>(observer), Ref<String>(keyPath), options, Ref<Object>(context)};
    {
        auto& table = ObservationTable::shared();
        std::lock_guard lock(table.mutex);
        table.objects[this].push_back(registration);
        ObjectSideTables::mark(this);
    }
    if (options & NSKeyValueObservingOptionInitial) {
        Ref<Object> value = (options & NSKeyValueObservingOptionNew) ? Ref<Object>(orNull(valueForKey(keyPath))) : nullptr;
        notify(registration, this, changeDictionary(options & ~NSKeyValueObservingOptionOld, nullptr, value, false));
    }
}

void Object::removeObserver_forKeyPath(Object* observer, String* keyPath)
{
    removeObserver_forKeyPath_context(observer, keyPath, nullptr);
}

void Object::removeObserver_forKeyPath_context(Object* observer, String* keyPath, Object* context)
{
    const bool anyContext = context == nullptr;
    if (observer && keyPath) {
        const WeakRef<Object> probe(observer);
        auto& table = ObservationTable::shared();
        std::lock_guard lock(table.mutex);
        if (auto found = table.objects.find(this); found != table.objects.end()) {
            Registrations& registrations = found->second;
            // The latest matching registration goes.
            for (auto it = registrations.rbegin(); it != registrations.rend(); ++it) {
                if (it->observer == probe && it->key->isEqual(keyPath) && (anyContext || it->context == context)) {
                    registrations.erase(std::next(it).base());
                    if (registrations.empty())
                        table.objects.erase(found);
                    return;
                }
            }
        }
    }
    raisePlatformException(NSRangeException,
        "Cannot remove an observer <" + (observer ? observer->objectClass()->name() : std::string("nil")) + " "
            + addressText(observer) + "> for the key path \"" + (keyPath ? keyPath->UTF8String() : "(null)")
            + "\" from <" + objectClass()->name() + " " + addressText(this)
            + "> because it is not registered as an observer.");
}

void Object::willChangeValueForKey(String* key)
{
    if (!key || !mayHaveObservers(this))
        return;
    const Registrations registrations = ObservationTable::shared().registrationsFor(this, key);
    Ref<Object> oldValue;
    if (anyWants(registrations, NSKeyValueObservingOptionOld))
        oldValue = orNull(valueForKey(key));
    pendingChanges.push_back({this, Ref<String>(key), oldValue});
    for (const Registration& registration : registrations) {
        if (registration.options & NSKeyValueObservingOptionPrior)
            notify(registration, this, changeDictionary(registration.options, oldValue, nullptr, true));
    }
}

void Object::didChangeValueForKey(String* key)
{
    if (!key || !mayHaveObservers(this))
        return;
    Ref<Object> oldValue;
    for (auto it = pendingChanges.rbegin(); it != pendingChanges.rend(); ++it) {
        if (it->object == this && it->key->isEqual(key)) {
            oldValue = std::move(it->oldValue);
            pendingChanges.erase(std::next(it).base());
            break;
        }
    }
    const Registrations registrations = ObservationTable::shared().registrationsFor(this, key);
    if (registrations.empty())
        return;
    Ref<Object> newValue;
    if (anyWants(registrations, NSKeyValueObservingOptionNew))
        newValue = orNull(valueForKey(key));
    for (const Registration& registration : registrations)
        notify(registration, this, changeDictionary(registration.options, oldValue, newValue, false));
}

void ObjectSideTables::clearKeyValueObservers(const Object* object) noexcept
{
    Registrations dropped;
    {
        auto& table = ObservationTable::shared();
        std::lock_guard lock(table.mutex);
        auto found = table.objects.find(object);
        if (found == table.objects.end())
            return;
        dropped = std::move(found->second);
        table.objects.erase(found);
    }
    zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
        "An instance %s of class %s was deallocated while key value observers were still registered with it; "
        "%lu registrations were removed",
        addressText(object).c_str(), object->objectClass()->name().c_str(), static_cast<unsigned long>(dropped.size()));
}

} // namespace zon
