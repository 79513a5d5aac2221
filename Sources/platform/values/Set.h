#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/ObjectTable.h"

#include <cstddef>
#include <initializer_list>

namespace zon {

class Array;

// An immutable set of distinct objects (by hash and isEqual), kept in insertion order so that
// enumeration and descriptions are deterministic; run-time class NSSet. Objects are retained,
// not copied. Safe to share between threads. Iterating yields Object*. The description is
// "{(\n    a,\n    b\n)}".
class ZON_EXPORT Set : public Object {
    ZON_OBJECT(Set, Object)
public:
    struct EntryKey {
        Object* operator()(const detail::ObjectTable::Entry& entry) const { return entry.key.get(); }
    };
    using Iterator = detail::ProjectingIterator<EntryKey>;

    static Ref<Set> set();
    // Nil elements raise NSInvalidArgumentException "*** -[NSSet initWithObjects:count:]:
    // attempt to insert nil object from objects[%lu]".
    static Ref<Set> setWithObjects(std::initializer_list<Object*> objects);
    static Ref<Set> setWithObject(Object* object);
    // A nil array or set gives an empty set.
    static Ref<Set> setWithArray(const Array* array);
    static Ref<Set> setWithSet(const Set* set);

    size_t count() const { return table_.count(); }
    bool containsObject(const Object* object) const { return member(object) != nullptr; }
    // The element equal to object, or nil.
    Object* member(const Object* object) const;
    Object* anyObject() const;
    // In insertion order.
    Ref<Array> allObjects() const;
    bool isSubsetOfSet(const Set* other) const;
    bool intersectsSet(const Set* other) const;
    bool isEqualToSet(const Set* other) const;

    Iterator begin() const { return Iterator(table_.begin()); }
    Iterator end() const { return Iterator(table_.end()); }

    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    // The count, as the platform answers it.
    size_t hash() const override;
    Ref<Object> copy() const override;
    Ref<Object> mutableCopy() const override;

protected:
    Set() = default;
    Set(const Set& other) : Object(), table_(other.table_) {}

    // Adds object unless an equal one is present; checks nothing.
    void insert(Object* object);
    void fill(Object* const* objects, size_t count);

    detail::ObjectTable table_;
};

// A set that can change; run-time class NSMutableSet. Not safe to change from one thread while
// another reads it, nor while iterating it.
class ZON_EXPORT MutableSet final : public Set {
    ZON_OBJECT(MutableSet, Set)
public:
    static Ref<MutableSet> set();
    static Ref<MutableSet> setWithCapacity(size_t capacity);
    static Ref<MutableSet> setWithArray(const Array* array);
    static Ref<MutableSet> setWithSet(const Set* set);

    // Nil raises NSInvalidArgumentException "*** -[__NSSetM addObject:]: object cannot be nil".
    // An object equal to one already present leaves the set as it is.
    void addObject(Object* object);
    // Nil is ignored.
    void removeObject(const Object* object);
    void removeAllObjects();
    void addObjectsFromArray(const Array* array);
    void unionSet(const Set* other);
    void minusSet(const Set* other);
    void intersectSet(const Set* other);

    Ref<Object> copy() const override;

private:
    MutableSet() = default;
    MutableSet(const Set& other) : Set(other) {}
};

} // namespace zon
