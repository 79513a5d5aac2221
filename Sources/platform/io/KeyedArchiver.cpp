#include "platform/io/KeyedArchiver.h"

#include "platform/io/KeyedArchiveInternal.h"
#include "platform/io/PropertyListSerialization.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Exception.h"
#include "platform/values/KeyedArchiverUID.h"
#include "platform/values/MutableString.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"

namespace zon {

ZON_DEFINE_CLASS(KeyedArchiver, "NSKeyedArchiver")

using namespace keyed_archive;

namespace {

String* invalidArchiveOperation() { return ZSTR("NSInvalidArchiveOperationException"); }

[[noreturn]] void failArchive(const std::string& reason) { raisePlatformException(invalidArchiveOperation(), reason); }

std::string nameOf(const Object* object) { return object->objectClass()->name(); }

} // namespace

KeyedArchiver::KeyedArchiver() = default;

Ref<Data> KeyedArchiver::archivedDataWithRootObject(Object* object, Ref<Error>* error)
{
    return resultOrError([&] { return makeObject<KeyedArchiver>()->archive(object); }, invalidArchiveOperation(),
        NSCoderInvalidValueError, "archiving", error);
}

Ref<Data> KeyedArchiver::archive(Object* root)
{
    if (!root)
        failArchive("The root object of an archive cannot be nil");
    append(nullMarker());
    Ref<KeyedArchiverUID> rootReference = referenceTo(root);
    Ref<Dictionary> top = Dictionary::dictionaryWithObjectsAndKeys({
        {archiverKey(), archiverName()},
        {objectsKey(), Array::arrayWithVector(std::move(objects_)).get()},
        {topKey(), Dictionary::dictionaryWithObject_forKey(rootReference.get(), rootKey()).get()},
        {versionKey(), Number::numberWithLong(kVersion).get()},
    });
    Ref<Error> error;
    Ref<Data> data = PropertyListSerialization::dataWithPropertyList(top.get(), NSPropertyListXMLFormat_v1_0, &error);
    if (!data)
        failArchive(error->localizedDescription()->UTF8String());
    return data;
}

uint64_t KeyedArchiver::append(Ref<Object> entry)
{
    if (objects_.size() >= kMaxObjectCount)
        failArchive("The archive would hold more than " + std::to_string(kMaxObjectCount) + " objects");
    objects_.push_back(std::move(entry));
    open_.push_back(false);
    return objects_.size() - 1;
}

Ref<KeyedArchiverUID> KeyedArchiver::referenceTo(Object* object)
{
    if (!object)
        return KeyedArchiverUID::uidWithValue(0);
    if (const auto found = indexes_.find(object); found != indexes_.end()) {
        if (open_[found->second])
            failArchive("The object graph holds a cycle: an object of class '" + nameOf(object)
                + "' refers back to itself through the objects it holds");
        return KeyedArchiverUID::uidWithValue(found->second);
    }
    if (depth_ >= kMaxNestingDepth)
        failArchive("Objects nested more than " + std::to_string(kMaxNestingDepth) + " deep cannot be archived");
    Restore<size_t> depth(depth_, depth_ + 1);
    const uint64_t index = append(nullptr);
    indexes_.emplace(object, index);
    written_.emplace_back(object);
    open_[index] = true;
    objects_[index] = entryFor(object);
    open_[index] = false;
    return KeyedArchiverUID::uidWithValue(index);
}

// The entry of `$objects` that stands for object: the value itself for strings, numbers and data,
// a record dictionary for everything else.
Ref<Object> KeyedArchiver::entryFor(Object* object)
{
    const bool isString = object->isKindOfClass(String::staticClass());
    const bool isData = object->isKindOfClass(Data::staticClass());
    if (object->isKindOfClass(Number::staticClass())
        || (isString && !object->isKindOfClass(MutableString::staticClass()))
        || (isData && !object->isKindOfClass(MutableData::staticClass())))
        return Ref<Object>(object);

    Ref<MutableDictionary> record = recordOfClass(object->objectClass());
    if (isString) {
        record->setObject_forKey(object->copy().get(), nsStringKey());
    } else if (isData) {
        record->setObject_forKey(object->copy().get(), nsDataKey());
    } else if (const auto* date = dynamicCast<Date>(object)) {
        record->setObject_forKey(Number::numberWithDouble(date->timeIntervalSinceReferenceDate()).get(), nsTimeKey());
    } else if (const auto* array = dynamicCast<Array>(object)) {
        record->setObject_forKey(referencesTo(*array).get(), nsObjectsKey());
    } else if (const auto* set = dynamicCast<Set>(object)) {
        record->setObject_forKey(referencesTo(*set).get(), nsObjectsKey());
    } else if (const auto* dictionary = dynamicCast<Dictionary>(object)) {
        std::vector<Ref<Object>> keys, values;
        keys.reserve(dictionary->count());
        values.reserve(dictionary->count());
        for (const auto [key, value] : *dictionary) {
            keys.push_back(referenceTo(key));
            values.push_back(referenceTo(value));
        }
        record->setObject_forKey(Array::arrayWithVector(std::move(keys)).get(), nsKeysKey());
        record->setObject_forKey(Array::arrayWithVector(std::move(values)).get(), nsObjectsKey());
    } else if (object->isKindOfClass(Null::staticClass())) {
        // The class record says it all.
    } else {
        static const SEL encodeWithCoder = selector("encodeWithCoder:");
        if (!object->respondsToSelector(encodeWithCoder))
            failArchive("Objects of class '" + nameOf(object) + "' cannot be archived: the class has no encodeWithCoder:");
        Restore<MutableDictionary*> current(record_, record.get());
        object->performSelector(encodeWithCoder, this);
    }
    return record;
}

template <class Container>
Ref<Object> KeyedArchiver::referencesTo(const Container& container)
{
    std::vector<Ref<Object>> references;
    references.reserve(container.count());
    for (Object* element : container)
        references.push_back(referenceTo(element));
    return Array::arrayWithVector(std::move(references));
}

// A record whose "$class" refers to the class record of cls, written the first time it is needed.
Ref<MutableDictionary> KeyedArchiver::recordOfClass(const Class* cls)
{
    auto found = classReferences_.find(cls);
    if (found == classReferences_.end()) {
        std::vector<Ref<Object>> chain;
        for (const Class* link = cls; link; link = link->superclass())
            chain.push_back(String::stringWithUTF8String(link->name()));
        Ref<Object> classRecord = Dictionary::dictionaryWithObjectsAndKeys({
            {classNameKey(), String::stringWithUTF8String(cls->name()).get()},
            {classesKey(), Array::arrayWithVector(std::move(chain)).get()},
        });
        found = classReferences_.emplace(cls, KeyedArchiverUID::uidWithValue(append(std::move(classRecord)))).first;
    }
    return MutableDictionary::dictionaryWithObject_forKey(found->second.get(), classKey());
}

MutableDictionary& KeyedArchiver::currentRecord()
{
    if (!record_)
        raisePlatformException(NSInvalidArgumentException,
            "*** -[NSKeyedArchiver encode...forKey:]: values are encoded only from an encodeWithCoder:");
    return *record_;
}

void KeyedArchiver::encodeObject_forKey(Object* object, String* key)
{
    MutableDictionary& record = currentRecord();
    record.setObject_forKey(referenceTo(object).get(), key);
}

void KeyedArchiver::encodeBool_forKey(bool value, String* key)
{
    currentRecord().setObject_forKey(Number::numberWithBool(value).get(), key);
}

void KeyedArchiver::encodeInteger_forKey(long value, String* key)
{
    currentRecord().setObject_forKey(Number::numberWithLong(value).get(), key);
}

void KeyedArchiver::encodeDouble_forKey(double value, String* key)
{
    currentRecord().setObject_forKey(Number::numberWithDouble(value).get(), key);
}

bool KeyedArchiver::containsValueForKey(String* key) const { return record_ && record_->objectForKey(key); }

} // namespace zon
