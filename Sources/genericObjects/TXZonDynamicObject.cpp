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

#include <algorithm>
#include <iterator>
#include <span>
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

// Entries of a record, found in one pass: found[i] is the entry under keys[i], or nil. Records are
// dictionaries; anything else answers as the platform does, by raising that it does not recognise
// objectForKey:.
//
// A record holds a dozen entries at most, and records built from the key constants hold the
// constants themselves (a constant string's copy is itself). So the scan compares addresses: an
// entry under a wanted constant is found, one under another constant is passed over (the
// constants' texts differ), and only a key that is no constant has its text compared. No key is
// hashed. A larger record is looked up key by key. Worth about a third of the setter row and half
// the getter row of GenericObjectBenchmarks.
constexpr size_t kScannedRecordEntries = 16;

bool isRecordKeyConstant(const Object* key)
{
    static const Object* const constants[] = {ZonDynamicPropertyClassKey, ZonDynamicPropertyVarNameKey,
        ZonDynamicPropertyVarValueKey, ZonDynamicPropertyDefaultVarValueKey, ZonDynamicPropertyLockKey,
        ZonDynamicPropertyPreSetterKey, ZonDynamicPropertyPostSetterKey, ZonDynamicPropertyVariableAccessKey,
        ZonDynamicPropertyContextKey, ZonDynamicPropertyContainedClassKey, ZonDynamicPropertyPostAddSelectorKey,
        ZonDynamicPropertyPostRemoveSelectorKey, ZonDynamicPropertyContainerKey};
    return std::find(std::begin(constants), std::end(constants), key) != std::end(constants);
}

// The index of the wanted key whose text a record's key has, for a key that is none of the key
// constants; keys.size() when it has none.
size_t indexOfEqualKey(const Object* entryKey, std::span<String* const> keys)
{
    if (isRecordKeyConstant(entryKey))
        return keys.size();
    auto* text = dynamicCast<String>(entryKey);
    if (!text)
        return keys.size();
    size_t i = 0;
    while (i < keys.size() && !(text->length() == keys[i]->length() && text->isEqualToString(keys[i])))
        ++i;
    return i;
}

void entriesOf(Object* record, Dictionary* dictionary, std::span<String* const> keys, std::span<Object*> found)
{
    std::fill(found.begin(), found.end(), nullptr);
    if (!dictionary) {
        static const SEL objectForKey = selector("objectForKey:");
        record->performSelector(objectForKey, keys[0]);
        return;
    }
    if (dictionary->count() > kScannedRecordEntries) {
        for (size_t i = 0; i < keys.size(); ++i)
            found[i] = dictionary->objectForKey(keys[i]);
        return;
    }
    size_t missing = keys.size();
    for (auto [entryKey, value] : *dictionary) {
        const size_t i = std::find(keys.begin(), keys.end(), entryKey) - keys.begin();
        if (i < keys.size() && !found[i]) {
            found[i] = value;
            if (--missing == 0)
                return;
        }
    }
    for (auto [entryKey, value] : *dictionary) {
        const size_t i = indexOfEqualKey(entryKey, keys);
        if (i < keys.size() && !found[i])
            found[i] = value;
    }
}

// One entry; the entry under the constant itself is found without the general pass.
Object* entryOf(Object* record, Dictionary* dictionary, String* key)
{
    if (dictionary && dictionary->count() <= kScannedRecordEntries) {
        for (auto [entryKey, value] : *dictionary) {
            if (entryKey == key)
                return value;
        }
    }
    Object* found = nullptr;
    entriesOf(record, dictionary, std::span<String* const>(&key, 1), std::span<Object*>(&found, 1));
    return found;
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

// The elements of a collection in its own order: an array's, a set's, a dictionary's keys. They
// are held, so that a collection that is the container itself can be removed from itself.
// Anything else raises as the platform's enumeration does.
std::vector<Ref<Object>> elementsOf(Object* collection)
{
    std::vector<Ref<Object>> elements;
    if (auto* array = dynamicCast<Array>(collection)) {
        elements.assign(array->begin(), array->end());
    } else if (auto* set = dynamicCast<Set>(collection)) {
        for (Object* element : *set)
            elements.emplace_back(element);
    } else if (auto* dictionary = dynamicCast<Dictionary>(collection)) {
        for (auto [key, value] : *dictionary)
            elements.emplace_back(key);
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

TXZonDynamicObject::PropertyName TXZonDynamicObject::propertyName(Ref<String> name)
{
    const size_t hash = name ? name->hash() : 0;
    return {std::move(name), hash};
}

// Installed, the accessors know the selector they were added under, so the common call neither
// maps the selector's text nor hashes the name again; under any other selector they map it.
Implementation TXZonDynamicObject::getterImplementation(SEL installedUnder)
{
    PropertyName installed = propertyName(installedUnder ? propertyNameForGetter(installedUnder) : nullptr);
    return [installedUnder, installed](Object* self, SEL cmd, Arguments) -> Ref<Object> {
        auto* object = static_cast<TXZonDynamicObject*>(self);
        if (cmd == installedUnder)
            return object->valueOf(object->property(installed));
        return object->valueForPropertyName(propertyNameForGetter(cmd).get());
    };
}

Implementation TXZonDynamicObject::setterImplementation(SEL installedUnder)
{
    Ref<String> name;
    if (installedUnder) {
        // A name the mapping cannot cut raises when the setter is called, not when it is added.
        try {
            name = propertyNameForSetter(installedUnder);
        } catch (const Exception&) {
        }
    }
    PropertyName installed = propertyName(std::move(name));
    return [installedUnder, installed](Object* self, SEL cmd, Arguments arguments) -> Ref<Object> {
        auto* object = static_cast<TXZonDynamicObject*>(self);
        Object* value = arguments.empty() ? nullptr : arguments[0];
        if (cmd == installedUnder && installed.name)
            object->setValueOf(object->property(installed), value, true);
        else
            object->setValue_forPropertyName(value, propertyNameForSetter(cmd).get());
        return nullptr;
    };
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
    properties_.clear();
    properties_.reserve(attributes_->count());
    for (auto [key, record] : *attributes_) {
        if (auto* name = dynamicCast<String>(key)) {
            auto* dictionary = dynamicCast<Dictionary>(record);
            auto* lock = dynamicCast<Lock>(entryOf(record, dictionary, ZonDynamicPropertyLockKey));
            properties_.push_back(Property {name->hash(), name->view(), record, dictionary, lock});
        }
    }
    std::sort(properties_.begin(), properties_.end(),
        [](const Property& a, const Property& b) { return a.nameHash < b.nameHash; });
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

const TXZonDynamicObject::Property& TXZonDynamicObject::property(const PropertyName& name) const
{
    if (name.name) {
        auto it = std::lower_bound(properties_.begin(), properties_.end(), name.hash,
            [](const Property& property, size_t hash) { return property.nameHash < hash; });
        for (; it != properties_.end() && it->nameHash == name.hash; ++it) {
            if (it->name == name.name->view())
                return *it;
        }
    }
    raisePlatformException(NSInternalInconsistencyException,
        String::stringWithFormat("Property '%@' does not exist", name.name.get())->UTF8String());
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

SetterEntries setterEntriesOf(Object* record, Dictionary* dictionary, bool setterLogic)
{
    static String* const keys[] = {ZonDynamicPropertyDefaultVarValueKey, ZonDynamicPropertyClassKey,
        ZonDynamicPropertyContainerKey, ZonDynamicPropertyPreSetterKey, ZonDynamicPropertyPostSetterKey};
    Object* found[std::size(keys)];
    // Without setter logic the hooks are not even looked for.
    const size_t wanted = setterLogic ? std::size(keys) : std::size(keys) - 2;
    entriesOf(record, dictionary, std::span(keys, wanted), std::span(found, wanted));

    SetterEntries entries;
    entries.defaultValue = found[0];
    entries.expectedClass = classIn(found[1]);
    auto* container = dynamicCast<Number>(found[2]);
    entries.container = container && container->boolValue();
    if (setterLogic) {
        entries.preSetter = selectorIn(found[3]);
        entries.postSetter = selectorIn(found[4]);
    }
    return entries;
}

} // namespace

Ref<Object> TXZonDynamicObject::contextForPropertyName(String* name) const
{
    const Property& found = property(propertyName(name));
    return entryOf(found.record, found.dictionary, ZonDynamicPropertyContextKey);
}

Ref<Object> TXZonDynamicObject::valueForPropertyName(String* name) const { return valueOf(property(propertyName(name))); }

Ref<Object> TXZonDynamicObject::valueOf(const Property& found) const
{
    PropertyLockScope scope(lockOf(found));
    return entryOf(found.record, found.dictionary, ZonDynamicPropertyVarValueKey);
}

void TXZonDynamicObject::setValue_forPropertyName(Object* value, String* name)
{
    setValue_forPropertyName_withSetterLogic(value, name, true);
}

void TXZonDynamicObject::setValue_forPropertyName_withSetterLogic(Object* value, String* name, bool setterLogic)
{
    setValueOf(property(propertyName(name)), value, setterLogic);
}

void TXZonDynamicObject::setValueOf(const Property& found, Object* value, bool setterLogic)
{
    Lock* lock = lockOf(found);
    SetterEntries entries;
    {
        PropertyLockScope scope(lock);
        entries = setterEntriesOf(found.record, found.dictionary, setterLogic);
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
    const Property& found = property(propertyName(name));
    Lock* lock = lockOf(found);
    Class* containedClass;
    SEL postAdd;
    {
        PropertyLockScope scope(lock);
        containedClass = classIn(entryOf(found.record, found.dictionary, ZonDynamicPropertyContainedClassKey));
        postAdd = selectorIn(entryOf(found.record, found.dictionary, ZonDynamicPropertyPostAddSelectorKey));
    }

    const std::vector<Ref<Object>> elements = elementsOf(collection);
    if (containedClass) {
        for (const Ref<Object>& element : elements) {
            if (!element->isKindOfClass(containedClass)) {
                AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(method, this, __FILE__, __LINE__,
                    "Invalid object being set into %@, got %@ expected %@", name,
                    static_cast<Object*>(element->objectClass()), static_cast<Object*>(containedClass));
            }
        }
    }
    {
        PropertyLockScope scope(lock);
        Object* container = entryOf(found.record, found.dictionary, ZonDynamicPropertyVarValueKey);
        for (const Ref<Object>& element : elements)
            changeContainer(container, element.get(), ContainerChange::Add);
    }
    callHook(this, postAdd, collection);
}

void TXZonDynamicObject::removeObjects_fromContainerWithPropertyName(Object* collection, String* name)
{
    const Property& found = property(propertyName(name));
    Lock* lock = lockOf(found);
    SEL postRemove;
    {
        PropertyLockScope scope(lock);
        postRemove = selectorIn(entryOf(found.record, found.dictionary, ZonDynamicPropertyPostRemoveSelectorKey));
        Object* container = entryOf(found.record, found.dictionary, ZonDynamicPropertyVarValueKey);
        for (const Ref<Object>& element : elementsOf(collection))
            changeContainer(container, element.get(), ContainerChange::Remove);
    }
    callHook(this, postRemove, collection);
}

void TXZonDynamicObject::encodeWithCoder(Coder* coder)
{
    Ref<Array> names = allProperties();
    for (Object* key : *names) {
        auto* name = dynamicCast<String>(key);
        Ref<Object> value = valueToArchive(property(propertyName(name)));
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

// Read under the property's lock, when it has one. A container is then copied under the lock
// too: another thread's add or remove changes it in place, and the archiver walks its elements
// after the lock is given back.
Ref<Object> TXZonDynamicObject::valueToArchive(const Property& found) const
{
    Lock* lock = lockOf(found);
    PropertyLockScope scope(lock);
    Object* value = entryOf(found.record, found.dictionary, ZonDynamicPropertyVarValueKey);
    if (!value || !lock)
        return Ref<Object>(value);
    const auto* container =
        dynamicCast<Number>(entryOf(found.record, found.dictionary, ZonDynamicPropertyContainerKey));
    return container && container->boolValue() ? value->mutableCopy() : Ref<Object>(value);
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
    const Property& found = property(propertyName(name));
    // Copied under the lock, so that a container is not copied while another thread changes it.
    PropertyLockScope scope(lockOf(found));
    Object* value = entryOf(found.record, found.dictionary, ZonDynamicPropertyVarValueKey);
    return value ? value->copy() : nullptr;
}

} // namespace zon
