#include "platform/io/KeyedUnarchiver.h"

#include "platform/io/KeyedArchiveInternal.h"
#include "platform/io/PropertyListSupportInternal.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/KeyedArchiverUID.h"
#include "platform/values/MutableString.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"

namespace zon {

ZON_DEFINE_CLASS(KeyedUnarchiver, "NSKeyedUnarchiver")

using namespace keyed_archive;

namespace {

String* invalidUnarchiveOperation() { return ZSTR("NSInvalidUnarchiveOperationException"); }

[[noreturn]] void failDecode(const std::string& reason) { raisePlatformException(invalidUnarchiveOperation(), reason); }

// The property-list value classes, which archive themselves and are always allowed.
struct ValueClasses {
    const Class* array = Array::staticClass();
    const Class* mutableArray = MutableArray::staticClass();
    const Class* dictionary = Dictionary::staticClass();
    const Class* mutableDictionary = MutableDictionary::staticClass();
    const Class* set = Set::staticClass();
    const Class* mutableSet = MutableSet::staticClass();
    const Class* string = String::staticClass();
    const Class* mutableString = MutableString::staticClass();
    const Class* data = Data::staticClass();
    const Class* mutableData = MutableData::staticClass();
    const Class* date = Date::staticClass();
    const Class* null = Null::staticClass();

    const Class* named(std::string_view name) const
    {
        for (const Class* cls : {array, mutableArray, dictionary, mutableDictionary, set, mutableSet, string,
                 mutableString, data, mutableData, date, null}) {
            if (cls->name() == name)
                return cls;
        }
        return nullptr;
    }
};

const ValueClasses& valueClasses()
{
    static const ValueClasses classes;
    return classes;
}

bool isInlineValue(const Object* entry)
{
    return entry->isKindOfClass(String::staticClass()) || entry->isKindOfClass(Number::staticClass())
        || entry->isKindOfClass(Data::staticClass());
}

std::optional<uint64_t> referencedIndex(const Object* reference)
{
    if (const auto* uid = dynamicCast<KeyedArchiverUID>(reference))
        return uid->value();
    // A dictionary {"CF$UID": N} that reached here by another path than the archive reader.
    const auto* dictionary = dynamicCast<Dictionary>(reference);
    if (!dictionary || dictionary->count() != 1)
        return std::nullopt;
    const auto [key, value] = *dictionary->begin();
    return plist::referenceIndexOfEntry(key, value);
}

} // namespace

KeyedUnarchiver::KeyedUnarchiver(Set* classes) : restricted_(classes != nullptr)
{
    if (classes) {
        for (Object* member : *classes) {
            if (const auto* cls = dynamicCast<Class>(member))
                allowedClasses_.push_back(cls);
        }
    }
}

Ref<Object> KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(Set* classes, Data* data, Ref<Error>* error)
{
    return resultOrError([&] { return makeObject<KeyedUnarchiver>(classes)->unarchive(data); },
        invalidUnarchiveOperation(), NSCoderReadCorruptError, "decoding the archive", error);
}

Ref<Object> KeyedUnarchiver::unarchive(Data* data)
{
    if (!data)
        failDecode("The archive data is nil");
    // The XML reader makes each {"CF$UID": N} a UID as it reads, rather than a dictionary to be
    // recognised here (BM_KeyedArchiveRead).
    std::string message;
    plist_ = data->length() ? plist::readPropertyList(data->span(), plist::Mutability::Immutable,
                                  plist::ReferenceForm::UID, message)
                            : nullptr;
    if (!plist_)
        failDecode("The archive is not a property list: "
            + (data->length() ? message : std::string("Cannot parse a nil or zero-length data")));
    const auto* top = dynamicCast<Dictionary>(plist_.get());
    const auto* archiver = top ? dynamicCast<String>(top->objectForKey(archiverKey())) : nullptr;
    if (!archiver || !archiver->isEqualToString(archiverName()))
        failDecode("The property list is not a keyed archive (no \"$archiver\": \"NSKeyedArchiver\")");
    objects_ = dynamicCast<Array>(top->objectForKey(objectsKey()));
    const auto* roots = dynamicCast<Dictionary>(top->objectForKey(topKey()));
    if (!objects_ || objects_->isEmpty() || !roots)
        failDecode("The keyed archive has no \"$objects\" array or no \"$top\" dictionary");
    if (objects_->count() > kMaxObjectCount)
        failDecode("The keyed archive holds more than " + std::to_string(kMaxObjectCount) + " objects");
    const Object* root = roots->objectForKey(rootKey());
    if (!root)
        failDecode("The keyed archive has no root object");
    decoded_.resize(objects_->count());
    states_.resize(objects_->count(), State::Unread);
    return decodeReference(root, "root");
}

std::string KeyedUnarchiver::Place::describe() const
{
    return text ? std::string(text) : "key '" + (key ? key->UTF8String() : std::string()) + "'";
}

uint64_t KeyedUnarchiver::indexOfReference(const Object* reference, Place where)
{
    const std::optional<uint64_t> index = referencedIndex(reference);
    if (!index)
        failDecode("The value of " + where.describe() + " is not an object reference");
    if (*index >= objects_->count())
        failDecode("Object reference " + std::to_string(*index) + " (" + where.describe()
            + ") is outside \"$objects\" ("
            + std::to_string(objects_->count()) + " entries)");
    return *index;
}

Ref<Object> KeyedUnarchiver::decodeReference(const Object* reference, Place where)
{
    return decodeIndex(indexOfReference(reference, where));
}

Ref<Object> KeyedUnarchiver::decodeIndex(uint64_t index)
{
    if (index == 0)
        return nullptr;
    switch (states_[index]) {
    case State::Done:
        return decoded_[index];
    case State::Open:
        failDecode("Object " + std::to_string(index) + " refers back to itself through the objects it holds (a cycle)");
    case State::Unread:
        break;
    }
    Object* entry = objects_->objectAtIndex(index);
    Ref<Object> object;
    if (isInlineValue(entry)) {
        object = entry;
    } else {
        const auto* record = dynamicCast<Dictionary>(entry);
        if (!record)
            failDecode("Object " + std::to_string(index) + " is neither a value nor a record");
        if (depth_ >= kMaxNestingDepth)
            failDecode("Objects nested more than " + std::to_string(kMaxNestingDepth) + " deep");
        Restore<size_t> depth(depth_, depth_ + 1);
        states_[index] = State::Open;
        object = decodeRecord(index, *record);
    }
    states_[index] = State::Done;
    decoded_[index] = object;
    return object;
}

// The class a record's "$class" names, checked against what may be decoded; resolved once per
// class record.
const Class* KeyedUnarchiver::classOfRecord(const Dictionary& record)
{
    const Object* reference = record.objectForKey(classKey());
    if (!reference)
        failDecode("A record has no \"$class\"");
    const uint64_t index = indexOfReference(reference, "\"$class\"");
    if (const auto found = classes_.find(index); found != classes_.end())
        return found->second;
    const auto* classRecord = dynamicCast<Dictionary>(objects_->objectAtIndex(index));
    const auto* name = classRecord ? dynamicCast<String>(classRecord->objectForKey(classNameKey())) : nullptr;
    if (!name)
        failDecode("Object " + std::to_string(index) + " is not a class record");
    const std::string className = name->UTF8String();
    const Class* cls = valueClasses().named(className);
    if (!cls) {
        cls = Class::named(className);
        if (!cls)
            failDecode("Cannot decode an object of class '" + className + "': no class has that name");
        bool allowed = !restricted_;
        for (const Class* candidate : allowedClasses_)
            allowed = allowed || cls->isSubclassOfClass(candidate);
        if (!allowed)
            failDecode("The class '" + className + "' is not among the classes allowed in this archive");
        static const SEL initWithCoder = selector("initWithCoder:");
        if (!cls->instancesRespondToSelector(initWithCoder))
            failDecode("Cannot decode an object of class '" + className + "': the class has no initWithCoder:");
    }
    classes_.emplace(index, cls);
    return cls;
}

Ref<Object> KeyedUnarchiver::decodeRecord(uint64_t index, const Dictionary& record)
{
    const ValueClasses& values = valueClasses();
    const Class* cls = classOfRecord(record);
    if (cls == values.array || cls == values.mutableArray) {
        std::vector<Ref<Object>> elements = decodeElements(record, nsObjectsKey());
        if (cls == values.array)
            return Array::arrayWithVector(std::move(elements));
        Ref<MutableArray> array = MutableArray::arrayWithCapacity(elements.size());
        for (const Ref<Object>& element : elements)
            array->addObject(element.get());
        return array;
    }
    if (cls == values.set || cls == values.mutableSet) {
        Ref<MutableSet> set = MutableSet::setWithCapacity(0);
        for (const Ref<Object>& element : decodeElements(record, nsObjectsKey()))
            set->addObject(element.get());
        return cls == values.set ? set->copy() : Ref<Object>(std::move(set));
    }
    if (cls == values.dictionary || cls == values.mutableDictionary) {
        std::vector<Ref<Object>> keys = decodeElements(record, nsKeysKey());
        std::vector<Ref<Object>> objects = decodeElements(record, nsObjectsKey());
        if (keys.size() != objects.size())
            failDecode("Dictionary " + std::to_string(index) + " has " + std::to_string(keys.size()) + " keys but "
                + std::to_string(objects.size()) + " objects");
        Ref<MutableDictionary> dictionary = MutableDictionary::dictionaryWithCapacity(keys.size());
        for (size_t i = 0; i < keys.size(); ++i)
            dictionary->setObject_forKey(objects[i].get(), keys[i].get());
        return cls == values.dictionary ? dictionary->copy() : Ref<Object>(std::move(dictionary));
    }
    if (cls == values.string || cls == values.mutableString) {
        auto* text = dynamicCast<String>(valueInRecord(record, nsStringKey()).get());
        if (!text)
            failDecode("String " + std::to_string(index) + " has no \"NS.string\" text");
        return cls == values.string ? text->copy() : text->mutableCopy();
    }
    if (cls == values.data || cls == values.mutableData) {
        auto* bytes = dynamicCast<Data>(valueInRecord(record, nsDataKey()).get());
        if (!bytes)
            failDecode("Data " + std::to_string(index) + " has no \"NS.data\" bytes");
        return cls == values.data ? bytes->copy() : bytes->mutableCopy();
    }
    if (cls == values.date) {
        const auto* seconds = dynamicCast<Number>(valueInRecord(record, nsTimeKey()).get());
        if (!seconds || seconds->isBoolean())
            failDecode("Date " + std::to_string(index) + " has no \"NS.time\" seconds");
        return Date::dateWithTimeIntervalSinceReferenceDate(seconds->doubleValue());
    }
    if (cls == values.null)
        return Ref<Object>(Null::null());
    return decodeInstance(*cls, record);
}

Ref<Object> KeyedUnarchiver::decodeInstance(const Class& cls, const Dictionary& record)
{
    Ref<Object> instance = cls.createInstance();
    if (!instance)
        failDecode("Cannot decode an object of class '" + cls.name() + "': the class has no default factory");
    static const SEL initWithCoder = selector("initWithCoder:");
    Restore<const Dictionary*> current(record_, &record);
    Ref<Object> object = instance->performSelector(initWithCoder, this);
    if (!object)
        failDecode("The initWithCoder: of class '" + cls.name() + "' answered nil");
    return object;
}

// The elements a container record refers to under key, none of them nil.
std::vector<Ref<Object>> KeyedUnarchiver::decodeElements(const Dictionary& record, String* key)
{
    const auto* references = dynamicCast<Array>(record.objectForKey(key));
    if (!references)
        failDecode("A container record has no \"" + key->UTF8String() + "\" array");
    std::vector<Ref<Object>> elements;
    elements.reserve(references->count());
    for (const Object* reference : *references) {
        Ref<Object> element = decodeReference(reference, "a container element");
        if (!element)
            failDecode("A container holds a reference to \"$null\"");
        elements.push_back(std::move(element));
    }
    return elements;
}

// A value kept in a record either as it is or through a reference.
Ref<Object> KeyedUnarchiver::valueInRecord(const Dictionary& record, String* key)
{
    Object* value = record.objectForKey(key);
    if (value && referencedIndex(value))
        return decodeReference(value, "a value");
    return Ref<Object>(value);
}

Ref<Object> KeyedUnarchiver::decodeObjectForKey(String* key)
{
    const Object* reference = record_ ? record_->objectForKey(key) : nullptr;
    if (!reference)
        return nullptr;
    return decodeReference(reference, Place(key));
}

const Number* KeyedUnarchiver::scalarForKey(String* key) const
{
    return record_ ? dynamicCast<Number>(record_->objectForKey(key)) : nullptr;
}

bool KeyedUnarchiver::decodeBoolForKey(String* key)
{
    const auto* number = scalarForKey(key);
    return number && number->boolValue();
}

long KeyedUnarchiver::decodeIntegerForKey(String* key)
{
    const auto* number = scalarForKey(key);
    return number ? number->longValue() : 0;
}

double KeyedUnarchiver::decodeDoubleForKey(String* key)
{
    const auto* number = scalarForKey(key);
    return number ? number->doubleValue() : 0;
}

bool KeyedUnarchiver::containsValueForKey(String* key) const { return record_ && record_->objectForKey(key); }

} // namespace zon
