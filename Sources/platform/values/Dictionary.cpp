#include "platform/values/Dictionary.h"

#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/CollectionDescription.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <cstdio>
#include <vector>

namespace zon {

ZON_DEFINE_CLASS(Dictionary, "NSDictionary")
ZON_DEFINE_CLASS(MutableDictionary, "NSMutableDictionary")

Ref<Object> Dictionary::valueForKey(String* key) { return Ref<Object>(objectForKey(key)); }

namespace {

// The checks of a literal or a list of objects and keys, naming the first nil.
void checkPair(const Object* object, const Object* key, size_t index)
{
    if (object && key)
        return;
    char reason[200];
    std::snprintf(reason, sizeof reason,
        object ? "*** -[__NSPlaceholderDictionary initWithObjects:forKeys:count:]: attempt to insert nil key from keys[%lu]"
               : "*** -[__NSPlaceholderDictionary initWithObjects:forKeys:count:]: attempt to insert nil object from objects[%lu]",
        static_cast<unsigned long>(index));
    raisePlatformException(NSInvalidArgumentException, reason);
}

} // namespace

void Dictionary::store(Object* key, Ref<Object> value)
{
    const size_t hash = detail::ObjectTable::hashOf(key);
    if (auto* entry = table_.find(key, hash)) {
        // The old value is released after the table holds the new one.
        Ref<Object> old = std::exchange(entry->value, std::move(value));
        return;
    }
    table_.append(key->copy(), hash, std::move(value));
}

void Dictionary::fill(Object* const* objects, Object* const* keys, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        checkPair(objects[i], keys[i], i);
    table_.reserve(count);
    for (size_t i = 0; i < count; ++i)
        store(keys[i], objects[i]);
}

void Dictionary::fill(std::initializer_list<KeyValue> pairs)
{
    size_t index = 0;
    for (const auto& [key, value] : pairs)
        checkPair(value, key, index++);
    table_.reserve(pairs.size());
    for (const auto& [key, value] : pairs)
        store(key, value);
}

void Dictionary::fillFrom(const Dictionary* other)
{
    if (!other || other == this)
        return;
    table_.reserve(table_.count() + other->count());
    for (const auto& entry : other->table_) {
        if (auto* existing = table_.find(entry.key, entry.hash))
            Ref<Object> old = std::exchange(existing->value, entry.value);
        else
            table_.append(entry.key, entry.hash, entry.value); // stored keys are already copies
    }
}

Ref<Dictionary> Dictionary::dictionary() { return makeObject<Dictionary>(); }

Ref<Dictionary> Dictionary::dictionaryWithObject_forKey(Object* object, Object* key)
{
    return dictionaryWithObjects_forKeys_count(&object, &key, 1);
}

Ref<Dictionary> Dictionary::dictionaryWithObjectsAndKeys(std::initializer_list<KeyValue> pairs)
{
    auto dictionary = makeObject<Dictionary>();
    dictionary->fill(pairs);
    return dictionary;
}

Ref<Dictionary> Dictionary::dictionaryWithObjects_forKeys_count(Object* const* objects, Object* const* keys, size_t count)
{
    auto dictionary = makeObject<Dictionary>();
    dictionary->fill(objects, keys, count);
    return dictionary;
}

Ref<Dictionary> Dictionary::dictionaryAdoptingKeysAndValues(
    std::span<Ref<Object>> keysAndValues, std::span<const size_t> keyHashes)
{
    const size_t count = keysAndValues.size() / 2;
    for (size_t i = 0; i < count; ++i)
        checkPair(keysAndValues[2 * i + 1].get(), keysAndValues[2 * i].get(), i);
    auto dictionary = makeObject<Dictionary>();
    detail::ObjectTable& table = dictionary->table_;
    table.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        Ref<Object>& key = keysAndValues[2 * i];
        const size_t hash = keyHashes.empty() ? detail::ObjectTable::hashOf(key.get()) : keyHashes[i];
        if (auto* entry = table.find(key.get(), hash))
            Ref<Object> old = std::exchange(entry->value, std::move(keysAndValues[2 * i + 1]));
        else
            table.append(std::move(key), hash, std::move(keysAndValues[2 * i + 1]));
    }
    return dictionary;
}

Ref<Dictionary> Dictionary::dictionaryWithObjects_forKeys(const Array* objects, const Array* keys)
{
    const size_t objectCount = objects ? objects->count() : 0;
    const size_t keyCount = keys ? keys->count() : 0;
    if (objectCount != keyCount) {
        char reason[200];
        std::snprintf(reason, sizeof reason,
            "*** -[NSDictionary initWithObjects:forKeys:]: count of objects (%lu) differs from count of keys (%lu)",
            static_cast<unsigned long>(objectCount), static_cast<unsigned long>(keyCount));
        raisePlatformException(NSInvalidArgumentException, reason);
    }
    if (!objectCount)
        return dictionary();
    std::vector<Object*> rawObjects(objects->begin(), objects->end());
    std::vector<Object*> rawKeys(keys->begin(), keys->end());
    return dictionaryWithObjects_forKeys_count(rawObjects.data(), rawKeys.data(), objectCount);
}

Ref<Dictionary> Dictionary::dictionaryWithDictionary(const Dictionary* dictionary)
{
    auto copy = makeObject<Dictionary>();
    copy->fillFrom(dictionary);
    return copy;
}

Object* Dictionary::objectForKey(const Object* key) const
{
    if (!key)
        return nullptr;
    const auto* entry = table_.find(key);
    return entry ? entry->value.get() : nullptr;
}

Ref<Array> Dictionary::allKeys() const
{
    std::vector<Ref<Object>> keys;
    keys.reserve(count());
    for (const auto& entry : table_)
        keys.push_back(entry.key);
    return Array::arrayWithVector(std::move(keys));
}

Ref<Array> Dictionary::allValues() const
{
    std::vector<Ref<Object>> values;
    values.reserve(count());
    for (const auto& entry : table_)
        values.push_back(entry.value);
    return Array::arrayWithVector(std::move(values));
}

Ref<Array> Dictionary::allKeysForObject(const Object* object) const
{
    std::vector<Ref<Object>> keys;
    for (const auto& entry : table_)
        if (objectsEqual(entry.value.get(), object))
            keys.push_back(entry.key);
    return Array::arrayWithVector(std::move(keys));
}

bool Dictionary::isEqualToDictionary(const Dictionary* other) const
{
    if (other == this)
        return true;
    if (!other || other->count() != count())
        return false;
    for (const auto& entry : table_) {
        const auto* theirs = other->table_.find(entry.key, entry.hash);
        if (!theirs || !objectsEqual(entry.value.get(), theirs->value.get()))
            return false;
    }
    return true;
}

Ref<String> Dictionary::description() const { return detail::describeCollection(this); }

bool Dictionary::isEqual(const Object* other) const
{
    const Dictionary* dictionary = dynamicCast<Dictionary>(other);
    return dictionary && isEqualToDictionary(dictionary);
}

size_t Dictionary::hash() const { return count(); }

Ref<Object> Dictionary::copy() const { return Ref<Object>(const_cast<Dictionary*>(this)); }

Ref<Object> Dictionary::mutableCopy() const { return makeObject<MutableDictionary>(*this); }

// MutableDictionary

Ref<MutableDictionary> MutableDictionary::dictionary() { return makeObject<MutableDictionary>(); }

Ref<MutableDictionary> MutableDictionary::dictionaryWithCapacity(size_t capacity)
{
    auto dictionary = makeObject<MutableDictionary>();
    dictionary->table_.reserve(capacity);
    return dictionary;
}

Ref<MutableDictionary> MutableDictionary::dictionaryWithObject_forKey(Object* object, Object* key)
{
    auto dictionary = makeObject<MutableDictionary>();
    dictionary->fill(&object, &key, 1);
    return dictionary;
}

Ref<MutableDictionary> MutableDictionary::dictionaryWithObjectsAndKeys(std::initializer_list<KeyValue> pairs)
{
    auto dictionary = makeObject<MutableDictionary>();
    dictionary->fill(pairs);
    return dictionary;
}

Ref<MutableDictionary> MutableDictionary::dictionaryWithDictionary(const Dictionary* dictionary)
{
    auto copy = makeObject<MutableDictionary>();
    copy->fillFrom(dictionary);
    return copy;
}

void MutableDictionary::setObject_forKey(Object* object, Object* key)
{
    if (!key)
        raisePlatformException(NSInvalidArgumentException, "*** -[__NSDictionaryM setObject:forKey:]: key cannot be nil");
    if (!object) {
        Ref<String> keyText = key->description();
        raisePlatformException(NSInvalidArgumentException,
            "*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: "
                + (keyText ? keyText->UTF8String() : std::string("(null)")) + ")");
    }
    store(key, object);
}

void MutableDictionary::removeObjectForKey(const Object* key) { table_.remove(key); }

void MutableDictionary::removeObjectsForKeys(const Array* keys)
{
    if (!keys)
        return;
    for (Object* key : *keys)
        table_.remove(key);
}

void MutableDictionary::removeAllObjects() { table_.clear(); }

void MutableDictionary::addEntriesFromDictionary(const Dictionary* other) { fillFrom(other); }

void MutableDictionary::setDictionary(const Dictionary* other)
{
    if (other == this)
        return;
    // Keep other alive: it may be held only by a value about to be removed.
    Ref<const Dictionary> keep(other);
    detail::ObjectTable old = std::move(table_);
    table_ = detail::ObjectTable();
    fillFrom(other);
}

Ref<Object> MutableDictionary::copy() const { return Dictionary::dictionaryWithDictionary(this); }

} // namespace zon
