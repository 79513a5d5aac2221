#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/ObjectTable.h"

#include <cstddef>
#include <initializer_list>
#include <span>
#include <utility>

namespace zon {

class Array;
class MutableDictionary;

// An immutable map from keys to objects (neither nil); run-time class NSDictionary. Keys are
// copied on insertion (copy()), so a mutable key changed later does not change the stored key.
// Lookup is O(1) by hash and isEqual; enumeration follows insertion order. Safe to share between
// threads. Iterating yields (key, value) pairs:
//
//     for (auto [key, value] : *dictionary) ...
//
// The description is the platform's, "{\n    key = value;\n}", nested containers indented four
// spaces per level as Array describes; when every key is a string (or every key a number) the
// lines are sorted by key, otherwise they follow insertion order.
class ZON_EXPORT Dictionary : public Object {
    ZON_OBJECT(Dictionary, Object)
public:
    using KeyValue = std::pair<Object*, Object*>;

    struct EntryKeyValue {
        KeyValue operator()(const detail::ObjectTable::Entry& entry) const { return {entry.key.get(), entry.value.get()}; }
    };
    using Iterator = detail::ProjectingIterator<EntryKeyValue>;

    static Ref<Dictionary> dictionary();
    // A nil object raises NSInvalidArgumentException "*** -[__NSPlaceholderDictionary
    // initWithObjects:forKeys:count:]: attempt to insert nil object from objects[0]"; a nil key
    // "... attempt to insert nil key from keys[0]".
    static Ref<Dictionary> dictionaryWithObject_forKey(Object* object, Object* key);
    // {key, value} pairs; the checks above name the index of the offending pair. A later pair
    // with an equal key replaces the value of the earlier one.
    static Ref<Dictionary> dictionaryWithObjectsAndKeys(std::initializer_list<KeyValue> pairs);
    static Ref<Dictionary> dictionaryWithObjects_forKeys_count(Object* const* objects, Object* const* keys, size_t count);
    // Alternating keys and values, moved in rather than retained. The keys must be immutable:
    // they are stored as they are, not copied. For readers that build many small dictionaries;
    // nil checks and repeated keys as above. keyHashes, when given, holds each key's
    // detail::ObjectTable::hashOf, which a reader that meets the same keys again and again can
    // remember instead of hashing every time.
    static Ref<Dictionary> dictionaryAdoptingKeysAndValues(
        std::span<Ref<Object>> keysAndValues, std::span<const size_t> keyHashes = {});
    // Different counts raise NSInvalidArgumentException "*** -[NSDictionary
    // initWithObjects:forKeys:]: count of objects (%lu) differs from count of keys (%lu)".
    static Ref<Dictionary> dictionaryWithObjects_forKeys(const Array* objects, const Array* keys);
    // A nil dictionary gives an empty one.
    static Ref<Dictionary> dictionaryWithDictionary(const Dictionary* dictionary);

    size_t count() const { return table_.count(); }
    // Nil for a nil or absent key.
    Object* objectForKey(const Object* key) const;
    template <class T>
    T* objectForKey(const Object* key) const
    {
        return dynamicCast<T>(objectForKey(key));
    }
    // In insertion order.
    Ref<Array> allKeys() const;
    Ref<Array> allValues() const;
    Ref<Array> allKeysForObject(const Object* object) const;

    bool isEqualToDictionary(const Dictionary* other) const;
    // Key-value coding reads the entry under the key (nil when absent), as the platform's
    // dictionaries answer it.
    Ref<Object> valueForKey(String* key) override;

    Iterator begin() const { return Iterator(table_.begin()); }
    Iterator end() const { return Iterator(table_.end()); }

    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    // The count, as the platform answers it.
    size_t hash() const override;
    Ref<Object> copy() const override;
    Ref<Object> mutableCopy() const override;

protected:
    Dictionary() = default;
    Dictionary(const Dictionary& other) : Object(), table_(other.table_) {}

    // Adds or replaces; the key is copied when it is new. Checks nothing.
    void store(Object* key, Ref<Object> value);
    void fill(Object* const* objects, Object* const* keys, size_t count);
    void fill(std::initializer_list<KeyValue> pairs);
    void fillFrom(const Dictionary* other);

    detail::ObjectTable table_;
};

// A dictionary that can change; run-time class NSMutableDictionary. Not safe to change from one
// thread while another reads it, nor while iterating it.
class ZON_EXPORT MutableDictionary final : public Dictionary {
    ZON_OBJECT(MutableDictionary, Dictionary)
public:
    static Ref<MutableDictionary> dictionary();
    static Ref<MutableDictionary> dictionaryWithCapacity(size_t capacity);
    static Ref<MutableDictionary> dictionaryWithObject_forKey(Object* object, Object* key);
    static Ref<MutableDictionary> dictionaryWithObjectsAndKeys(std::initializer_list<KeyValue> pairs);
    static Ref<MutableDictionary> dictionaryWithDictionary(const Dictionary* dictionary);

    // A nil object raises NSInvalidArgumentException "*** -[__NSDictionaryM setObject:forKey:]:
    // object cannot be nil (key: %@)"; a nil key "*** -[__NSDictionaryM setObject:forKey:]: key
    // cannot be nil". Replacing keeps the key's place in the order.
    void setObject_forKey(Object* object, Object* key);
    // The others keep their order. A nil key is ignored.
    void removeObjectForKey(const Object* key);
    void removeObjectsForKeys(const Array* keys);
    void removeAllObjects();
    void addEntriesFromDictionary(const Dictionary* other);
    void setDictionary(const Dictionary* other);

    // ---- NSMutableDictionary(ZonExtensions) -----------------------------------------------------
    // Stores under key a dictionary made of values and keys taken pairwise
    // (dictionaryWithObjects_forKeys, which raises when the counts differ).
    void addDictionaryEntryFromValues_withKeys_forKey(const Array* values, const Array* keys, Object* key);

    Ref<Object> copy() const override;

private:
    MutableDictionary() = default;
    MutableDictionary(const Dictionary& other) : Dictionary(other) {}
};

} // namespace zon
