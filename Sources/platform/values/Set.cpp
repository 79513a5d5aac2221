#include "platform/values/Set.h"

#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/CollectionDescription.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace zon {

ZON_DEFINE_CLASS(Set, "NSSet")
ZON_DEFINE_CLASS(MutableSet, "NSMutableSet")

void Set::insert(Object* object)
{
    const size_t hash = detail::ObjectTable::hashOf(object);
    if (!table_.find(object, hash))
        table_.append(Ref<Object>(object), hash, nullptr);
}

void Set::fill(Object* const* objects, size_t count)
{
    const auto nil = std::find(objects, objects + count, nullptr);
    if (nil != objects + count) {
        char reason[160];
        std::snprintf(reason, sizeof reason, "*** -[NSSet initWithObjects:count:]: attempt to insert nil object from objects[%lu]",
            static_cast<unsigned long>(nil - objects));
        raisePlatformException(NSInvalidArgumentException, reason);
    }
    table_.reserve(table_.count() + count);
    for (size_t i = 0; i < count; ++i)
        insert(objects[i]);
}

Ref<Set> Set::set() { return makeObject<Set>(); }

Ref<Set> Set::setWithObjects(std::initializer_list<Object*> objects)
{
    auto set = makeObject<Set>();
    set->fill(objects.begin(), objects.size());
    return set;
}

Ref<Set> Set::setWithObject(Object* object) { return setWithObjects({object}); }

Ref<Set> Set::setWithArray(const Array* array)
{
    auto set = makeObject<Set>();
    if (array) {
        std::vector<Object*> objects(array->begin(), array->end());
        set->fill(objects.data(), objects.size());
    }
    return set;
}

Ref<Set> Set::setWithSet(const Set* set) { return set ? makeObject<Set>(*set) : Set::set(); }

Object* Set::member(const Object* object) const
{
    if (!object)
        return nullptr;
    const auto* entry = table_.find(object);
    return entry ? entry->key.get() : nullptr;
}

Object* Set::anyObject() const { return table_.count() ? table_.begin()->key.get() : nullptr; }

Ref<Array> Set::allObjects() const
{
    std::vector<Ref<Object>> objects;
    objects.reserve(count());
    for (const auto& entry : table_)
        objects.push_back(entry.key);
    return Array::arrayWithVector(std::move(objects));
}

bool Set::isSubsetOfSet(const Set* other) const
{
    if (!other)
        return count() == 0;
    for (const auto& entry : table_)
        if (!other->table_.find(entry.key, entry.hash))
            return false;
    return true;
}

bool Set::intersectsSet(const Set* other) const
{
    if (!other)
        return false;
    for (const auto& entry : table_)
        if (other->table_.find(entry.key, entry.hash))
            return true;
    return false;
}

bool Set::isEqualToSet(const Set* other) const
{
    return other == this || (other && other->count() == count() && isSubsetOfSet(other));
}

Ref<String> Set::description() const { return detail::describeCollection(this); }

bool Set::isEqual(const Object* other) const
{
    const Set* set = dynamicCast<Set>(other);
    return set && isEqualToSet(set);
}

size_t Set::hash() const { return count(); }

Ref<Object> Set::copy() const { return Ref<Object>(const_cast<Set*>(this)); }

Ref<Object> Set::mutableCopy() const { return makeObject<MutableSet>(*this); }

// MutableSet

Ref<MutableSet> MutableSet::set() { return makeObject<MutableSet>(); }

Ref<MutableSet> MutableSet::setWithCapacity(size_t capacity)
{
    auto set = makeObject<MutableSet>();
    set->table_.reserve(capacity);
    return set;
}

Ref<MutableSet> MutableSet::setWithArray(const Array* array)
{
    auto set = makeObject<MutableSet>();
    set->addObjectsFromArray(array);
    return set;
}

Ref<MutableSet> MutableSet::setWithSet(const Set* set)
{
    return set ? makeObject<MutableSet>(*set) : MutableSet::set();
}

void MutableSet::addObject(Object* object)
{
    if (!object)
        raisePlatformException(NSInvalidArgumentException, "*** -[__NSSetM addObject:]: object cannot be nil");
    insert(object);
}

void MutableSet::removeObject(const Object* object) { table_.remove(object); }

void MutableSet::removeAllObjects() { table_.clear(); }

void MutableSet::addObjectsFromArray(const Array* array)
{
    if (!array)
        return;
    std::vector<Object*> objects(array->begin(), array->end());
    fill(objects.data(), objects.size());
}

void MutableSet::unionSet(const Set* other)
{
    if (!other || other == this)
        return;
    for (Object* object : *other)
        insert(object);
}

void MutableSet::minusSet(const Set* other)
{
    if (!other)
        return;
    if (other == this) {
        removeAllObjects();
        return;
    }
    for (Object* object : *other)
        table_.remove(object);
}

void MutableSet::intersectSet(const Set* other)
{
    if (other == this)
        return;
    std::vector<Ref<Object>> dropped;
    for (Object* object : *this)
        if (!other || !other->containsObject(object))
            dropped.emplace_back(object);
    for (const auto& object : dropped)
        table_.remove(object.get());
}

Ref<Object> MutableSet::copy() const { return Set::setWithSet(this); }

} // namespace zon
