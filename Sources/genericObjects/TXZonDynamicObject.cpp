#include "genericObjects/TXZonDynamicObject.h"

#include "genericObjects/DynamicAccessorNamesInternal.h"
#include "platform/io/Coder.h"
#include "platform/values/Array.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"
#include "platform/values/Value.h"
#include "platform/threads/Lock.h"

#include <mutex>
#include <optional>
#include <vector>

namespace zon {

ZON_STRING_CONSTANT(ZonDynamicPropertyClassKey, "Class");
ZON_STRING_CONSTANT(ZonDynamicPropertyVarNameKey, "Name");
ZON_STRING_CONSTANT(ZonDynamicPropertyVarValueKey, "Value");
ZON_STRING_CONSTANT(ZonDynamicPropertyDefaultVarValueKey, "DefaultValue");
ZON_STRING_CONSTANT(ZonDynamicPropertyLockKey, "Lock");
ZON_STRING_CONSTANT(ZonDynamicPropertyPreSetterKey, "BuisnessSetterPre");
ZON_STRING_CONSTANT(ZonDynamicPropertyPostSetterKey, "BuisnessSetterPost");
ZON_STRING_CONSTANT(ZonDynamicPropertyVariableAccessKey, "VariableAccess");
ZON_STRING_CONSTANT(ZonDynamicPropertyContextKey, "Context");
ZON_STRING_CONSTANT(ZonDynamicPropertyContainedClassKey, "ContainedClass");
ZON_STRING_CONSTANT(ZonDynamicPropertyPostAddSelectorKey, "BuisnessPostAdd");
ZON_STRING_CONSTANT(ZonDynamicPropertyPostRemoveSelectorKey, "BuisnessPostRemove");
ZON_STRING_CONSTANT(ZonDynamicPropertyContainerKey, "Container");
ZON_STRING_CONSTANT(ZonDynamicPropertyVariableAccessReadOnly, "ReadOnlyAccess");
ZON_STRING_CONSTANT(ZonDynamicPropertyVariableAccessStandard, "StandardAccess");

ZON_DEFINE_CLASS(TXZonDynamicObject, "TXZonDynamicObject")

namespace {

// A record entry. Records are dictionaries; anything else answers the lookup as the platform
// does, by raising that it does not recognise objectForKey:.
Object* entryOf(Object* record, String* key)
{
    if (auto* dictionary = dynamicCast<Dictionary>(record))
        return dictionary->objectForKey(key);
    static const SEL objectForKey = selector("objectForKey:");
    record->performSelector(objectForKey, key);
    return nullptr;
}

// Stores or removes (nil) a record entry; an immutable record raises as the platform does.
void storeEntry(Object* record, String* key, Object* value)
{
    if (auto* dictionary = dynamicCast<MutableDictionary>(record)) {
        if (value)
            dictionary->setObject_forKey(value, key);
        else
            dictionary->removeObjectForKey(key);
        return;
    }
    static const SEL setObjectForKey = selector("setObject:forKey:");
    static const SEL removeObjectForKey = selector("removeObjectForKey:");
    if (value)
        record->performSelector(setObjectForKey, value, key);
    else
        record->performSelector(removeObjectForKey, key);
}

// Classes and selectors are kept boxed in a Value; a Class object itself and a selector's name as
// a string are taken too.
Class* classIn(Object* entry)
{
    if (auto* cls = dynamicCast<Class>(entry))
        return cls;
    auto* value = dynamicCast<Value>(entry);
    return value ? value->classValue() : nullptr;
}

SEL selectorIn(Object* entry)
{
    if (auto* name = dynamicCast<String>(entry))
        return selector(name->UTF8String());
    auto* value = dynamicCast<Value>(entry);
    return value ? value->selectorValue() : nullptr;
}

bool isNull(const Object* object) { return object == Null::null(); }

// The elements of a collection in its own order: an array's, a set's, a dictionary's keys.
// Anything else raises as the platform's enumeration does.
std::vector<Object*> elementsOf(Object* collection)
{
    std::vector<Object*> elements;
    if (auto* array = dynamicCast<Array>(collection)) {
        elements.assign(array->begin(), array->end());
    } else if (auto* set = dynamicCast<Set>(collection)) {
        for (Object* element : *set)
            elements.push_back(element);
    } else if (auto* dictionary = dynamicCast<Dictionary>(collection)) {
        for (auto [key, value] : *dictionary)
            elements.push_back(key);
    } else if (collection) {
        static const SEL enumerate = selector("countByEnumeratingWithState:objects:count:");
        collection->performSelector(enumerate);
    }
    return elements;
}

enum class ContainerChange { Add, Remove };

// Adds to or removes from a mutable array or set; another container raises as the platform does.
void changeContainer(Object* container, Object* element, ContainerChange change)
{
    if (!container)
        return;
    if (auto* array = dynamicCast<MutableArray>(container)) {
        change == ContainerChange::Add ? array->addObject(element) : array->removeObject(element);
    } else if (auto* set = dynamicCast<MutableSet>(container)) {
        change == ContainerChange::Add ? set->addObject(element) : set->removeObject(element);
    } else {
        static const SEL addObject = selector("addObject:");
        static const SEL removeObject = selector("removeObject:");
        container->performSelector(change == ContainerChange::Add ? addObject : removeObject, element);
    }
}

void callHook(TXZonDynamicObject* object, SEL hook, Object* argument)
{
    if (hook)
        object->performSelector(hook, argument);
}

TXZonDynamicObject* dynamicSelf(Object* self) { return static_cast<TXZonDynamicObject*>(self); }

// The generic accessors, as objectProperty and setObjectProperty: and as installed under each
// property's names. Installed, they know the name of the selector they were added under, so the
// common call does not map the selector's text again; under any other selector they map it.
Implementation getterImplementation(SEL installedUnder)
{
    Ref<String> name = installedUnder ? propertyNameForGetter(installedUnder) : nullptr;
    return [installedUnder, name](Object* self, SEL cmd, Arguments) -> Ref<Object> {
        if (cmd == installedUnder)
            return dynamicSelf(self)->valueForPropertyName(name.get());
        return dynamicSelf(self)->valueForPropertyName(propertyNameForGetter(cmd).get());
    };
}

Implementation setterImplementation(SEL installedUnder)
{
    Ref<String> name;
    if (installedUnder) {
        // A name the mapping cannot cut raises when the setter is called, not when it is added.
        try {
            name = propertyNameForSetter(installedUnder);
        } catch (const Exception&) {
        }
    }
    return [installedUnder, name](Object* self, SEL cmd, Arguments arguments) -> Ref<Object> {
        Object* value = arguments.empty() ? nullptr : arguments[0];
        if (cmd == installedUnder && name)
            dynamicSelf(self)->setValue_forPropertyName(value, name.get());
        else
            dynamicSelf(self)->setValue_forPropertyName(value, propertyNameForSetter(cmd).get());
        return nullptr;
    };
}

} // namespace

void TXZonDynamicObject::exportMethods(Class& cls)
{
    registerInstanceFactory<TXZonDynamicObject>(cls);
    cls.exportMethod("objcAttributes", &TXZonDynamicObject::objcAttributes);
    cls.exportMethod("objcAttributesAreThreadSafe", &TXZonDynamicObject::objcAttributesAreThreadSafe);
    cls.exportMethod("setZonObjcAttributes:", &TXZonDynamicObject::setZonObjcAttributes);
    cls.exportMethod("zonObjcAttributes", &TXZonDynamicObject::zonObjcAttributes);
    cls.exportMethod("setupDynamicAttributeSelectors", &TXZonDynamicObject::setupDynamicAttributeSelectors);
    cls.exportMethod("allProperties", &TXZonDynamicObject::allProperties);
    cls.exportMethod("contextForPropertyName:", &TXZonDynamicObject::contextForPropertyName);
    cls.exportMethod("valueForPropertyName:", &TXZonDynamicObject::valueForPropertyName);
    cls.exportMethod("setValue:forPropertyName:", &TXZonDynamicObject::setValue_forPropertyName);
    cls.exportMethod("setValue:forPropertyName:withSetterLogic:",
        &TXZonDynamicObject::setValue_forPropertyName_withSetterLogic);
    cls.exportMethod("addObjects:toContainerWithPropertyName:", &TXZonDynamicObject::addObjects_toContainerWithPropertyName);
    cls.exportMethod(
        "removeObjects:fromContainerWithPropertyName:", &TXZonDynamicObject::removeObjects_fromContainerWithPropertyName);
    cls.exportMethod("encodeWithCoder:", &TXZonDynamicObject::encodeWithCoder);
    cls.exportMethod("initWithCoder:", &TXZonDynamicObject::initWithCoder);
    cls.addMethod(selector("objectProperty"), "@@:", getterImplementation(nullptr));
    cls.addMethod(selector("setObjectProperty:"), "v@:@", setterImplementation(nullptr));
}

TXZonDynamicObject::~TXZonDynamicObject() = default;

void TXZonDynamicObject::init()
{
    if (Ref<Dictionary> attributes = objcAttributes())
        setZonObjcAttributes(attributes.get());
}

Ref<Dictionary> TXZonDynamicObject::objcAttributes() const { return Dictionary::dictionary(); }

bool TXZonDynamicObject::objcAttributesAreThreadSafe() const { return false; }

void TXZonDynamicObject::setZonObjcAttributes(Dictionary* attributes)
{
    if (attributes_) {
        static const SEL method = selector("setZonObjcAttributes:");
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(
            method, this, __FILE__, __LINE__, "__zonObjcAttributes set multiple times");
    }
    attributes_ = attributes ? staticRefCast<Dictionary>(attributes->copy()) : Dictionary::dictionary();
    for (auto [key, record] : *attributes_) {
        auto* name = dynamicCast<String>(key);
        if (!name)
            continue;
        properties_.emplace(name->view(), Property {record, dynamicCast<Lock>(entryOf(record, ZonDynamicPropertyLockKey))});
    }
    setupDynamicAttributeSelectors();
}

void TXZonDynamicObject::setupDynamicAttributeSelectors()
{
    Class* cls = objectClass();
    for (auto [key, record] : *attributes_) {
        auto* name = dynamicCast<String>(key);
        if (!name || name->length() == 0)
            continue;
        SEL getter = selector(name->UTF8String());
        SEL setter = selector(setterNameForProperty(name));
        if (!cls->instanceMethod(getter))
            cls->addMethod(getter, "@@:", getterImplementation(getter));
        if (!cls->instanceMethod(setter))
            cls->addMethod(setter, "v@:@", setterImplementation(setter));
    }
}

Ref<Array> TXZonDynamicObject::allProperties() const
{
    return attributes_ ? attributes_->allKeys() : Array::array();
}

const TXZonDynamicObject::Property& TXZonDynamicObject::property(String* name) const
{
    if (name) {
        if (auto it = properties_.find(name->view()); it != properties_.end())
            return it->second;
    }
    raisePlatformException(NSInternalInconsistencyException, String::stringWithFormat("Property '%@' does not exist", name)->UTF8String());
}

Lock* TXZonDynamicObject::lockOf(const Property& property) const
{
    return objcAttributesAreThreadSafe() ? property.lock : nullptr;
}

namespace {

// Holds a property's lock when there is one to hold.
class PropertyLockScope {
public:
    explicit PropertyLockScope(Lock* lock) : lock_(lock)
    {
        if (lock_)
            lock_->lock();
    }
    ~PropertyLockScope() { unlock(); }
    void unlock()
    {
        if (lock_)
            std::exchange(lock_, nullptr)->unlock();
    }
    PropertyLockScope(const PropertyLockScope&) = delete;
    PropertyLockScope& operator=(const PropertyLockScope&) = delete;

private:
    Lock* lock_;
};

// The entries a set reads besides the value, read together (under the lock when there is one).
struct SetterEntries {
    SEL preSetter = nullptr;
    SEL postSetter = nullptr;
    Ref<Object> defaultValue;
    Class* expectedClass = nullptr;
    bool container = false;
};

SetterEntries setterEntriesOf(Object* record, bool setterLogic)
{
    SetterEntries entries;
    if (setterLogic) {
        entries.preSetter = selectorIn(entryOf(record, ZonDynamicPropertyPreSetterKey));
        entries.postSetter = selectorIn(entryOf(record, ZonDynamicPropertyPostSetterKey));
    }
    entries.defaultValue = entryOf(record, ZonDynamicPropertyDefaultVarValueKey);
    entries.expectedClass = classIn(entryOf(record, ZonDynamicPropertyClassKey));
    auto* container = dynamicCast<Number>(entryOf(record, ZonDynamicPropertyContainerKey));
    entries.container = container && container->boolValue();
    return entries;
}

} // namespace

Ref<Object> TXZonDynamicObject::contextForPropertyName(String* name) const
{
    return entryOf(property(name).record, ZonDynamicPropertyContextKey);
}

Ref<Object> TXZonDynamicObject::valueForPropertyName(String* name) const
{
    const Property& found = property(name);
    PropertyLockScope scope(lockOf(found));
    return entryOf(found.record, ZonDynamicPropertyVarValueKey);
}

void TXZonDynamicObject::setValue_forPropertyName(Object* value, String* name)
{
    setValue_forPropertyName_withSetterLogic(value, name, true);
}

void TXZonDynamicObject::setValue_forPropertyName_withSetterLogic(Object* value, String* name, bool setterLogic)
{
    const Property& found = property(name);
    Lock* lock = lockOf(found);
    SetterEntries entries;
    {
        PropertyLockScope scope(lock);
        entries = setterEntriesOf(found.record, setterLogic);
    }

    Ref<Object> stored = value;
    if (!value && entries.defaultValue)
        stored = entries.defaultValue;
    else if (!entries.defaultValue && isNull(value))
        stored = nullptr;

    if (stored && !isNull(stored.get()) && !stored->isKindOfClass(entries.expectedClass)) {
        static const SEL method = selector("setValue:forPropertyName:withSetterLogic:");
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(method, this, __FILE__, __LINE__,
            "Value is not of type %@, but of type %@", static_cast<Object*>(entries.expectedClass),
            static_cast<Object*>(stored->objectClass()));
    }
    if (entries.container && stored)
        stored = stored->mutableCopy();

    callHook(this, entries.preSetter, stored.get());
    {
        PropertyLockScope scope(lock);
        storeEntry(found.record, ZonDynamicPropertyVarValueKey, stored.get());
    }
    callHook(this, entries.postSetter, stored.get());
}

void TXZonDynamicObject::addObjects_toContainerWithPropertyName(Object* collection, String* name)
{
    static const SEL method = selector("addObjects:toContainerWithPropertyName:");
    if (!collection)
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(method, this, __FILE__, __LINE__, "Adding nil object");
    const Property& found = property(name);
    Lock* lock = lockOf(found);
    Class* containedClass;
    SEL postAdd;
    {
        PropertyLockScope scope(lock);
        containedClass = classIn(entryOf(found.record, ZonDynamicPropertyContainedClassKey));
        postAdd = selectorIn(entryOf(found.record, ZonDynamicPropertyPostAddSelectorKey));
    }

    const std::vector<Object*> elements = elementsOf(collection);
    if (containedClass) {
        for (Object* element : elements) {
            if (!element->isKindOfClass(containedClass)) {
                AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(method, this, __FILE__, __LINE__,
                    "Invalid object being set into %@, got %@ expected %@", name,
                    static_cast<Object*>(element->objectClass()), static_cast<Object*>(containedClass));
            }
        }
    }
    {
        PropertyLockScope scope(lock);
        Object* container = entryOf(found.record, ZonDynamicPropertyVarValueKey);
        for (Object* element : elements)
            changeContainer(container, element, ContainerChange::Add);
    }
    callHook(this, postAdd, collection);
}

void TXZonDynamicObject::removeObjects_fromContainerWithPropertyName(Object* collection, String* name)
{
    const Property& found = property(name);
    Lock* lock = lockOf(found);
    SEL postRemove;
    {
        PropertyLockScope scope(lock);
        postRemove = selectorIn(entryOf(found.record, ZonDynamicPropertyPostRemoveSelectorKey));
        Object* container = entryOf(found.record, ZonDynamicPropertyVarValueKey);
        for (Object* element : elementsOf(collection))
            changeContainer(container, element, ContainerChange::Remove);
    }
    callHook(this, postRemove, collection);
}

void TXZonDynamicObject::encodeWithCoder(Coder* coder)
{
    Ref<Array> names = allProperties();
    for (Object* key : *names) {
        auto* name = dynamicCast<String>(key);
        Ref<Object> value = valueForPropertyName(name);
        if (value && supportsKeyedArchiving(value.get()))
            coder->encodeObject_forKey(value.get(), name);
    }
}

Ref<Object> TXZonDynamicObject::initWithCoder(Coder* coder)
{
    Ref<Array> names = allProperties();
    for (Object* key : *names) {
        auto* name = dynamicCast<String>(key);
        setValue_forPropertyName_withSetterLogic(coder->decodeObjectForKey(name).get(), name, false);
    }
    return Ref<Object>(this);
}

Ref<Object> TXZonDynamicObject::copy() const
{
    Ref<TXZonDynamicObject> copy = dynamicCast<TXZonDynamicObject>(objectClass()->createInstance());
    ZON_ASSERT(copy, "No instance factory for %@: its exportMethods calls registerInstanceFactory",
        static_cast<Object*>(objectClass()));
    Ref<Array> names = allProperties();
    for (Object* key : *names) {
        auto* name = dynamicCast<String>(key);
        copy->setValue_forPropertyName_withSetterLogic(copyOfValue(name).get(), name, false);
    }
    return copy;
}

Ref<Object> TXZonDynamicObject::copyOfValue(String* name) const
{
    const Property& found = property(name);
    // Copied under the lock, so that a container is not copied while another thread changes it.
    PropertyLockScope scope(lockOf(found));
    Object* value = entryOf(found.record, ZonDynamicPropertyVarValueKey);
    return value ? value->copy() : nullptr;
}

} // namespace zon
