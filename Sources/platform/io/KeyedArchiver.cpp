#include "platform/io/KeyedArchiver.h"

#include "platform/io/KeyedArchiveInternal.h"
#include "platform/io/PropertyListXMLWriterInternal.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Exception.h"
#include "platform/values/MutableString.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"

namespace zon {

ZON_DEFINE_CLASS(KeyedArchiver, "NSKeyedArchiver")

using namespace keyed_archive;
using namespace std::string_view_literals;

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

// The graph is first taken into the archiver's tables (entries, their fields, reference lists),
// then written as XML straight from them: no property-list objects are built in between (this is
// what keeps BM_KeyedArchiveWrite near the plain property-list write).
Ref<Data> KeyedArchiver::archive(Object* root)
{
    if (!root)
        failArchive("The root object of an archive cannot be nil");
    append({.kind = Entry::Kind::Value, .value = Ref<Object>(nullMarker())});
    return writeXML(referenceTo(root));
}

uint64_t KeyedArchiver::append(Entry entry)
{
    if (entries_.size() >= kMaxObjectCount)
        failArchive("The archive would hold more than " + std::to_string(kMaxObjectCount) + " objects");
    entries_.push_back(std::move(entry));
    return entries_.size() - 1;
}

uint64_t KeyedArchiver::referenceTo(Object* object)
{
    if (!object)
        return 0;
    if (const auto found = indexes_.find(object); found != indexes_.end()) {
        if (entries_[found->second].open)
            failArchive("The object graph holds a cycle: an object of class '" + nameOf(object)
                + "' refers back to itself through the objects it holds");
        return found->second;
    }
    if (depth_ >= kMaxNestingDepth)
        failArchive("Objects nested more than " + std::to_string(kMaxNestingDepth) + " deep cannot be archived");
    Restore<size_t> depth(depth_, depth_ + 1);
    const uint64_t index = append({.kind = Entry::Kind::Value});
    indexes_.emplace(object, index);
    written_.emplace_back(object);
    entries_[index].open = true;
    writeEntry(object, index);
    entries_[index].open = false;
    return index;
}

// Fills the entry that stands for object: the value itself for strings, numbers and data, a
// record for everything else.
void KeyedArchiver::writeEntry(Object* object, uint64_t index)
{
    const bool isString = object->isKindOfClass(String::staticClass());
    const bool isData = object->isKindOfClass(Data::staticClass());
    if (object->isKindOfClass(Number::staticClass())
        || (isString && !object->isKindOfClass(MutableString::staticClass()))
        || (isData && !object->isKindOfClass(MutableData::staticClass()))) {
        entries_[index].value = object;
        return;
    }

    startRecord(index, object->objectClass());
    Restore<uint64_t> current(record_, index);
    if (isString || isData) {
        setField(isString ? nsStringKey() : nsDataKey(), {.kind = Field::Kind::Value, .value = object->copy()});
    } else if (const auto* date = dynamicCast<Date>(object)) {
        encodeDouble_forKey(date->timeIntervalSinceReferenceDate(), nsTimeKey());
    } else if (const auto* array = dynamicCast<Array>(object)) {
        encodeReferences(nsObjectsKey(), *array, array->count());
    } else if (const auto* set = dynamicCast<Set>(object)) {
        encodeReferences(nsObjectsKey(), *set, set->count());
    } else if (const auto* dictionary = dynamicCast<Dictionary>(object)) {
        std::vector<Object*> keys, values;
        keys.reserve(dictionary->count());
        values.reserve(dictionary->count());
        for (const auto [key, value] : *dictionary) {
            keys.push_back(key);
            values.push_back(value);
        }
        encodeReferences(nsKeysKey(), keys, keys.size());
        encodeReferences(nsObjectsKey(), values, values.size());
    } else if (object->isKindOfClass(Null::staticClass())) {
        // The class record says it all.
    } else {
        static const SEL encodeWithCoder = selector("encodeWithCoder:");
        if (!object->respondsToSelector(encodeWithCoder))
            failArchive("Objects of class '" + nameOf(object) + "' cannot be archived: the class has no encodeWithCoder:");
        object->performSelector(encodeWithCoder, this);
    }
}

// Turns the entry at index into an empty record of class cls.
void KeyedArchiver::startRecord(uint64_t index, const Class* cls)
{
    const uint64_t classIndex = classRecordIndex(cls);
    Entry& entry = entries_[index];
    entry.kind = Entry::Kind::Record;
    entry.classIndex = classIndex;
}

// The elements are written depth first, each before the next, as their references are taken.
template <class Container>
void KeyedArchiver::encodeReferences(String* key, const Container& container, size_t count)
{
    std::vector<uint64_t> references;
    references.reserve(count);
    for (Object* element : container)
        references.push_back(referenceTo(element));
    const uint64_t first = references_.size();
    references_.insert(references_.end(), references.begin(), references.end());
    Field field {.kind = Field::Kind::References, .count = static_cast<uint32_t>(references.size())};
    field.index = first;
    setField(key, std::move(field));
}

// The class record of cls, appended the first time it is needed.
uint64_t KeyedArchiver::classRecordIndex(const Class* cls)
{
    if (const auto found = classRecords_.find(cls); found != classRecords_.end())
        return found->second;
    const uint64_t index = append({.kind = Entry::Kind::ClassRecord, .cls = cls});
    classRecords_.emplace(cls, index);
    return index;
}

KeyedArchiver::Entry& KeyedArchiver::currentRecord()
{
    if (!record_)
        raisePlatformException(NSInvalidArgumentException,
            "*** -[NSKeyedArchiver encode...forKey:]: values are encoded only from an encodeWithCoder:");
    return entries_[record_];
}

const KeyedArchiver::Field* KeyedArchiver::fieldForKey(const Entry& record, const String* key) const
{
    for (uint32_t at = record.firstField; at != kNoField; at = fields_[at].next) {
        const Field& field = fields_[at];
        if (field.key.get() == key || field.key->isEqualToString(key))
            return &field;
    }
    return nullptr;
}

// A key encoded again keeps its place and takes the new value.
void KeyedArchiver::setField(String* key, Field field)
{
    Entry& record = currentRecord();
    if (!key)
        raisePlatformException(
            NSInvalidArgumentException, "*** -[NSKeyedArchiver encode...forKey:]: key cannot be nil");
    if (auto* existing = const_cast<Field*>(fieldForKey(record, key))) {
        field.key = std::move(existing->key);
        field.next = existing->next;
        *existing = std::move(field);
        return;
    }
    if (fields_.size() >= kNoField)
        failArchive("The archive would hold more than " + std::to_string(kNoField) + " encoded values");
    field.key = staticRefCast<String>(key->copy());
    field.next = kNoField;
    const auto at = static_cast<uint32_t>(fields_.size());
    fields_.push_back(std::move(field));
    if (record.lastField == kNoField)
        record.firstField = at;
    else
        fields_[record.lastField].next = at;
    record.lastField = at;
}

void KeyedArchiver::encodeObject_forKey(Object* object, String* key)
{
    currentRecord();
    Field field {.kind = Field::Kind::Reference};
    field.index = referenceTo(object);
    setField(key, std::move(field));
}

void KeyedArchiver::encodeBool_forKey(bool value, String* key)
{
    Field field {.kind = Field::Kind::Boolean};
    field.boolean = value;
    setField(key, std::move(field));
}

void KeyedArchiver::encodeInteger_forKey(long value, String* key)
{
    Field field {.kind = Field::Kind::Integer};
    field.integer = value;
    setField(key, std::move(field));
}

void KeyedArchiver::encodeDouble_forKey(double value, String* key)
{
    Field field {.kind = Field::Kind::Real};
    field.real = value;
    setField(key, std::move(field));
}

bool KeyedArchiver::containsValueForKey(String* key) const
{
    return record_ && key && fieldForKey(entries_[record_], key);
}

// {"$archiver", "$objects", "$top", "$version"}, in the order the property-list writer gives a
// dictionary with these keys.
Ref<Data> KeyedArchiver::writeXML(uint64_t rootIndex) const
{
    // Room for a typical archive's text, so that the buffer seldom grows.
    constexpr size_t kBytesPerEntry = 64, kBytesPerField = 96, kBytesPerReference = 72;
    const size_t expectedSize = 512 + entries_.size() * kBytesPerEntry + fields_.size() * kBytesPerField
        + references_.size() * kBytesPerReference;
    ByteVector bytes;
    plist::XMLElementWriter out(bytes, expectedSize);
    out.header();
    out.markup(0, "<dict>\n"sv);
    out.key(1, archiverKey());
    out.string(1, archiverName());
    out.key(1, objectsKey());
    out.markup(1, "<array>\n"sv);
    for (const Entry& entry : entries_)
        writeEntryXML(out, entry);
    out.markup(1, "</array>\n"sv);
    out.key(1, topKey());
    out.markup(1, "<dict>\n"sv);
    out.key(2, rootKey());
    out.uid(2, rootIndex);
    out.markup(1, "</dict>\n"sv);
    out.key(1, versionKey());
    out.integer(1, kVersion);
    out.markup(0, "</dict>\n"sv);
    out.finish();
    return Data::dataWithVector(std::move(bytes));
}

void KeyedArchiver::writeEntryXML(plist::XMLElementWriter& out, const Entry& entry) const
{
    constexpr size_t kLevel = 2; // inside the top dictionary's `$objects`
    switch (entry.kind) {
    case Entry::Kind::Value:
        if (const auto* text = dynamicCast<String>(entry.value.get()))
            out.string(kLevel, text);
        else if (const auto* number = dynamicCast<Number>(entry.value.get()))
            out.number(kLevel, number);
        else
            out.data(kLevel, static_cast<const Data*>(entry.value.get())->span());
        return;
    case Entry::Kind::ClassRecord:
        out.markup(kLevel, "<dict>\n"sv);
        out.key(kLevel + 1, classNameKey());
        out.string(kLevel + 1, String::stringWithUTF8String(entry.cls->name()).get());
        out.key(kLevel + 1, classesKey());
        out.markup(kLevel + 1, "<array>\n"sv);
        for (const Class* link = entry.cls; link; link = link->superclass())
            out.string(kLevel + 2, String::stringWithUTF8String(link->name()).get());
        out.markup(kLevel + 1, "</array>\n"sv);
        out.markup(kLevel, "</dict>\n"sv);
        return;
    case Entry::Kind::Record:
        break;
    }
    out.markup(kLevel, "<dict>\n"sv);
    out.key(kLevel + 1, classKey());
    out.uid(kLevel + 1, entry.classIndex);
    for (uint32_t at = entry.firstField; at != kNoField; at = fields_[at].next) {
        const Field& field = fields_[at];
        const size_t level = kLevel + 1;
        out.key(level, field.key.get());
        switch (field.kind) {
        case Field::Kind::Reference:
            out.uid(level, field.index);
            break;
        case Field::Kind::References:
            if (field.count == 0) {
                out.markup(level, "<array/>\n"sv);
                break;
            }
            out.markup(level, "<array>\n"sv);
            for (uint64_t i = field.index; i < field.index + field.count; ++i)
                out.uid(level + 1, references_[i]);
            out.markup(level, "</array>\n"sv);
            break;
        case Field::Kind::Integer:
            out.integer(level, field.integer);
            break;
        case Field::Kind::Real:
            out.real(level, field.real);
            break;
        case Field::Kind::Boolean:
            out.boolean(level, field.boolean);
            break;
        case Field::Kind::Value:
            if (const auto* text = dynamicCast<String>(field.value.get()))
                out.string(level, text);
            else
                out.data(level, static_cast<const Data*>(field.value.get())->span());
            break;
        }
    }
    out.markup(kLevel, "</dict>\n"sv);
}

} // namespace zon
