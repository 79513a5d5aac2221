#include "genericObjects/TXZonDictionaryStore.h"

#include "genericObjects/TXZonObserver.h"
#include "genericObjects/TXZonObserverCenter.h"
#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/MethodSignature.h"
#include "platform/threads/Lock.h"
#include "platform/threads/MainQueue.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Array.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Null.h"
#include "platform/values/String.h"
#include "platform/values/Value.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string_view>

namespace zon {

ZON_DEFINE_CLASS(TXZonDictionaryStore, "TXZonDictionaryStore")

namespace {

String* keyName() { return ZSTR("name"); }
String* keyLock() { return ZSTR("lock"); }
String* keyValueType() { return ZSTR("valueType"); }
String* keyPrelogicSetter() { return ZSTR("prelogicSetter"); }
String* keyPostlogicSetter() { return ZSTR("postlogicSetter"); }
String* keyDefaultValue() { return ZSTR("defaultValue"); }
String* keyValue() { return ZSTR("value"); }
String* keyBindingValue() { return ZSTR("bindingValue"); }

// Class names that count as one kind for the type check. A type registered from a default value
// is the default's concrete class, which another value of the same kind need not be a subclass
// of. Besides the names of the original platform's concrete classes, the families hold this
// runtime's: a mutable string default is recorded as NSMutableString.
constexpr std::array<std::string_view, 3> kNumberClassNames {"NSNumber", "NSCFNumber", "NSCFBoolean"};
constexpr std::array<std::string_view, 6> kStringClassNames {
    "NSString", "NSCFString", "NSCFConstantString", "__NSCFConstantString", "__NSCFString", "NSMutableString"};

template <size_t N>
bool bothIn(const std::array<std::string_view, N>& family, const std::string& a, const std::string& b)
{
    auto contains = [&](const std::string& name) { return std::find(family.begin(), family.end(), name) != family.end(); };
    return contains(a) && contains(b);
}

bool passesTypeCheck(Object* value, Class* type)
{
    if (value->isKindOfClass(type))
        return true;
    const std::string& expected = type->name();
    const std::string& actual = value->objectClass()->name();
    return bothIn(kNumberClassNames, expected, actual) || bothIn(kStringClassNames, expected, actual);
}

Object* orNull(Object* value) { return value ? value : Null::null(); }

// The record's lock when the store is thread-safe; a null lock guards nothing.
struct OptionalLock {
    Lock* lock;
    explicit OptionalLock(Lock* held) : lock(held)
    {
        if (lock)
            lock->lock();
    }
    ~OptionalLock()
    {
        if (lock)
            lock->unlock();
    }
    OptionalLock(const OptionalLock&) = delete;
    OptionalLock& operator=(const OptionalLock&) = delete;
};

} // namespace

void TXZonDictionaryStore::exportMethods(Class& cls)
{
    cls.exportMethod("dictionaryStore:willChangeAttribute:from:", &TXZonDictionaryStore::dictionaryStore_willChangeAttribute_from);
    cls.exportMethod("dictionaryStore:didChangeAttribute:to:", &TXZonDictionaryStore::dictionaryStore_didChangeAttribute_to);
    cls.exportMethod("setBindingValue:forKey:", &TXZonDictionaryStore::setBindingValue_forKey);
}

TXZonDictionaryStore::TXZonDictionaryStore(Object* delegate)
    : store_(MutableDictionary::dictionary())
    , optionalLogicDelegate_(delegate)
    , observerCenter_(TXZonObserverCenter::observerCenter())
{
}

Ref<TXZonDictionaryStore> TXZonDictionaryStore::initWithOptionalLogicDelegateDelegate(Object* delegate)
{
    return makeObject<TXZonDictionaryStore>(delegate);
}

Ref<TXZonDictionaryStore> TXZonDictionaryStore::storeWithOptionalLogicDelegateDelegate(Object* delegate)
{
    return initWithOptionalLogicDelegateDelegate(delegate);
}

Ref<TXZonDictionaryStore> TXZonDictionaryStore::threadSafeStoreWithOptionalLogicDelegate(Object* delegate)
{
    auto store = initWithOptionalLogicDelegateDelegate(delegate);
    store->setThreadSafety(true);
    return store;
}

void TXZonDictionaryStore::set_store(MutableDictionary* store) { store_ = store; }

void TXZonDictionaryStore::set_observerCenter(TXZonObserverCenter* center) { observerCenter_ = center; }

MutableDictionary* TXZonDictionaryStore::recordFor(String* identifier) const
{
    return identifier && store_ ? store_->objectForKey<MutableDictionary>(identifier) : nullptr;
}

Lock* TXZonDictionaryStore::lockOf(MutableDictionary* record) const
{
    return record && threadSafe_ ? record->objectForKey<Lock>(keyLock()) : nullptr;
}

void TXZonDictionaryStore::registerAttributeWithIdentifier_defaultValue(String* identifier, Object* defaultValue)
{
    registerAttributeWithIdentifier_defaultValue_type(identifier, defaultValue, nullptr);
}

void TXZonDictionaryStore::registerAttributeWithIdentifier_defaultValue_type(
    String* identifier, Object* defaultValue, Class* type)
{
    registerAttributeWithIdentifier_defaultValue_type_preSetterSelector_postSetterSelector(
        identifier, defaultValue, type, nullptr, nullptr);
}

void TXZonDictionaryStore::registerAttributeWithIdentifier_defaultValue_type_preSetterSelector_postSetterSelector(
    String* identifier, Object* defaultValue, Class* type, SEL preSetter, SEL postSetter)
{
    auto record = MutableDictionary::dictionary();
    record->setObject_forKey(identifier, keyName());
    record->setObject_forKey(Lock::init(), keyLock());
    if (!type && defaultValue)
        type = defaultValue->objectClass();
    if (type)
        record->setObject_forKey(Value::valueWithClass(type), keyValueType());
    if (preSetter)
        record->setObject_forKey(Value::valueWithSelector(preSetter), keyPrelogicSetter());
    if (postSetter)
        record->setObject_forKey(Value::valueWithSelector(postSetter), keyPostlogicSetter());
    if (defaultValue) {
        record->setObject_forKey(defaultValue, keyDefaultValue());
        record->setObject_forKey(defaultValue, keyValue());
        record->setObject_forKey(defaultValue, keyBindingValue());
    }
    if (recordFor(identifier)) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
            "Identifier: %@ already exists, will be destroyed", identifier);
    }
    store_->setObject_forKey(record, identifier);
}

bool TXZonDictionaryStore::hasAttritbuteForIdentifier(String* identifier)
{
    MutableDictionary* record = recordFor(identifier);
    if (!record)
        return false;
    OptionalLock lock(lockOf(record));
    return true;
}

Ref<Object> TXZonDictionaryStore::attributeForIdentifier(String* identifier)
{
    MutableDictionary* record = recordFor(identifier);
    if (!record)
        return nullptr;
    OptionalLock lock(lockOf(record));
    return Ref<Object>(record->objectForKey(keyValue()));
}

Ref<Dictionary> TXZonDictionaryStore::attributes() const
{
    auto values = MutableDictionary::dictionaryWithCapacity(store_ ? store_->count() : 0);
    if (store_) {
        for (auto [identifier, record] : *store_) {
            if (Object* value = static_cast<Dictionary*>(record)->objectForKey(keyValue()))
                values->setObject_forKey(value, identifier);
        }
    }
    return Dictionary::dictionaryWithDictionary(values);
}

Ref<String> TXZonDictionaryStore::description() const
{
    return String::stringWithFormat("%@ -- %@", Object::description(), store_);
}

void TXZonDictionaryStore::setAttribute_forIdentifer(Object* value, String* identifier)
{
    setAttribute_forIdentifer_withOptionalLogic(value, identifier, true);
}

void TXZonDictionaryStore::setAttribute_forIdentifer_withOptionalLogic(Object* value, String* identifier, bool optionalLogic)
{
    setAttribute_forIdentifer_withOptionalLogic_typeSafety(value, identifier, optionalLogic, true);
}

void TXZonDictionaryStore::setAttribute_forIdentifer_withOptionalLogic_typeSafety(
    Object* value, String* identifier, bool optionalLogic, bool typeSafety)
{
    // The write queues three blocks for the main thread (two broadcasts and the mirror): it wakes
    // the main loop once, at its end, or before a hook is called.
    RunLoop::DeferredWakeUps oneWakeUp;
    Ref<TXZonDictionaryStore> protect(this);
    Ref<Object> newValue(value);
    Ref<MutableDictionary> record(recordFor(identifier));
    if (!record) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Setting Attribute: %@ to %@ when not registered", identifier, value);
    }

    auto* boxedType = record ? record->objectForKey<Value>(keyValueType()) : nullptr;
    auto* boxedPreSetter = record ? record->objectForKey<Value>(keyPrelogicSetter()) : nullptr;
    auto* boxedPostSetter = record ? record->objectForKey<Value>(keyPostlogicSetter()) : nullptr;
    Lock* lock = lockOf(record);

    // A wrong class only warns: the value is stored all the same.
    Class* type = boxedType ? boxedType->classValue() : nullptr;
    if (typeSafety && type && newValue && !passesTypeCheck(newValue, type)) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelWarning, kDefaultLogIdentifier,
            "Unable to set %@ to %@ as it is not of type %@, it is type %@", identifier, newValue,
            String::stringWithUTF8String(type->name()), String::stringWithUTF8String(newValue->objectClass()->name()));
    }
    if (!newValue && nilToDefault_ && record)
        newValue = record->objectForKey(keyDefaultValue());

    Ref<Object> oldValue = attributeForIdentifier(identifier);
    dictionaryStore_willChangeAttribute_from(this, identifier, oldValue);

    if (optionalLogic && boxedPreSetter)
        callHook(boxedPreSetter->selectorValue(), oldValue, newValue);

    if (record) {
        OptionalLock held(lock);
        if (newValue)
            record->setObject_forKey(newValue, keyValue());
        else
            record->removeObjectForKey(keyValue());
    }

    // The mirror follows on the main thread; the task keeps the store, value and identifier alive.
    MainQueue::async([store = protect, mirrored = Ref<Object>(orNull(newValue)), key = Ref<String>(identifier)] {
        store->setBindingValue_forKey(mirrored, key);
    });

    if (optionalLogic && boxedPostSetter)
        callHook(boxedPostSetter->selectorValue(), oldValue, newValue);

    dictionaryStore_didChangeAttribute_to(this, identifier, newValue);
}

// Calls a hook of the logic delegate on this thread with as many of (old value, new value) as
// its method takes; more than two parameters fail the exact argument count check.
void TXZonDictionaryStore::callHook(SEL hook, Object* oldValue, Object* newValue)
{
    Ref<Object> delegate = optionalLogicDelegate_.load();
    if (!delegate)
        return;
    RunLoop::DeferredWakeUps::wakeHeldLoops();
    Ref<MethodSignature> signature = delegate->methodSignatureForSelector(hook);
    const unsigned explicitArguments = signature ? signature->numberOfArguments() - 2 : 2;
    Ref<Array> arguments;
    if (explicitArguments == 0)
        arguments = Array::array();
    else if (explicitArguments == 1)
        arguments = Array::arrayWithObject(orNull(oldValue));
    else
        arguments = Array::arrayWithObjects({orNull(oldValue), orNull(newValue)});
    delegate->performSelector_withObjects(hook, arguments);
}

void TXZonDictionaryStore::resetAttributeForIdentifier(String* identifier)
{
    resetAttributeForIdentifier_withOptionalLogic(identifier, true);
}

void TXZonDictionaryStore::resetAttributeForIdentifier_withOptionalLogic(String* identifier, bool optionalLogic)
{
    MutableDictionary* record = recordFor(identifier);
    Ref<Object> defaultValue(record ? record->objectForKey(keyDefaultValue()) : nullptr);
    setAttribute_forIdentifer_withOptionalLogic_typeSafety(defaultValue, identifier, optionalLogic, false);
}

void TXZonDictionaryStore::loadAttributes(Dictionary* attributes) { loadAttributes_withOptionalLogic(attributes, false); }

void TXZonDictionaryStore::loadAttributes_withOptionalLogic(Dictionary* attributes, bool optionalLogic)
{
    if (!attributes)
        return;
    Ref<Dictionary> protect(attributes);
    for (auto [identifier, value] : *attributes)
        setAttribute_forIdentifer_withOptionalLogic(value, dynamicCast<String>(identifier), optionalLogic);
}

void TXZonDictionaryStore::addChangeObserver(Object* observer)
{
    if (auto* zonObserver = dynamicCast<TXZonObserver>(observer))
        observerCenter_->addZonObserver(zonObserver);
    else
        observerCenter_->addObserver(observer);
}

void TXZonDictionaryStore::removeChangeObserver(Object* observer)
{
    if (auto* zonObserver = dynamicCast<TXZonObserver>(observer))
        observerCenter_->removeZonObserver(zonObserver);
    else
        observerCenter_->removeObserver(observer);
}

namespace {

// store, identifier, value: the list ends at the first nil.
Ref<Array> changeArguments(TXZonDictionaryStore* store, String* identifier, Object* value)
{
    Object* const all[] = {store, identifier, value};
    size_t count = 0;
    while (count < 3 && all[count])
        ++count;
    return Array::arrayWithObjects_count(all, count);
}

} // namespace

void TXZonDictionaryStore::dictionaryStore_willChangeAttribute_from(
    TXZonDictionaryStore* store, String* identifier, Object* value)
{
    static const SEL operation = selector("dictionaryStore:willChangeAttribute:from:");
    if (observerCenter_)
        observerCenter_->notifyObserversWithSelector_objects(operation, changeArguments(store, identifier, value));
}

void TXZonDictionaryStore::dictionaryStore_didChangeAttribute_to(TXZonDictionaryStore* store, String* identifier, Object* value)
{
    static const SEL operation = selector("dictionaryStore:didChangeAttribute:to:");
    if (observerCenter_)
        observerCenter_->notifyObserversWithSelector_objects(operation, changeArguments(store, identifier, value));
}

void TXZonDictionaryStore::assertMainThread(const char* operation) const
{
    if (Thread::isMainThread())
        return;
    AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(
        selector(operation), this, __FILE__, __LINE__, "Not on main thread calling valueForKey");
}

Ref<Object> TXZonDictionaryStore::valueForKey(String* key)
{
    assertMainThread("valueForKey:");
    MutableDictionary* record = recordFor(key);
    if (!record)
        return nullptr;
    // The mirror shares the record with the value other threads write, so with thread safety on
    // it is read and written under the attribute's lock too.
    OptionalLock lock(lockOf(record));
    return Ref<Object>(record->objectForKey(keyBindingValue()));
}

void TXZonDictionaryStore::setValue_forKey(Object* value, String* key)
{
    assertMainThread("setValue:forKey:");
    setAttribute_forIdentifer(value, key);
}

void TXZonDictionaryStore::setBindingValue_forKey(Object* value, String* key)
{
    assertMainThread("setBindingValue:forKey:");
    willChangeValueForKey(key);
    if (MutableDictionary* record = recordFor(key)) {
        OptionalLock lock(lockOf(record));
        if (value && value != Null::null())
            record->setObject_forKey(value, keyBindingValue());
        else
            record->removeObjectForKey(keyBindingValue());
    }
    didChangeValueForKey(key);
}

} // namespace zon
