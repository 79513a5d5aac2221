#include "platform/values/Array.h"

#include "platform/runtime/Class.h"
#include "platform/runtime/ReleaseBatchInternal.h"
#include "platform/values/CollectionDescription.h"
#include "platform/values/Exception.h"
#include "platform/values/SortDescriptor.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdio>

namespace zon {

ZON_DEFINE_CLASS(Array, "NSArray")
ZON_DEFINE_CLASS(MutableArray, "NSMutableArray")

namespace {

[[noreturn]] void raiseNilObject(const char* operation)
{
    raisePlatformException(NSInvalidArgumentException, std::string("*** ") + operation + ": object cannot be nil");
}

// "index 5 beyond bounds [0 .. 2]" or, for an empty array, "index 0 beyond bounds for empty array".
[[noreturn]] void raiseIndex(const char* operation, size_t index, size_t count, const char* emptyName)
{
    char reason[200];
    if (count)
        std::snprintf(reason, sizeof reason, "*** %s: index %lu beyond bounds [0 .. %lu]", operation,
            static_cast<unsigned long>(index), static_cast<unsigned long>(count - 1));
    else
        std::snprintf(reason, sizeof reason, "*** %s: index %lu beyond bounds for empty %s", operation,
            static_cast<unsigned long>(index), emptyName);
    raisePlatformException(NSRangeException, reason);
}

[[noreturn]] void raiseRange(const char* operation, Range range, size_t count)
{
    char reason[200];
    if (count)
        std::snprintf(reason, sizeof reason, "*** %s: range {%lu, %lu} extends beyond bounds [0 .. %lu]", operation,
            static_cast<unsigned long>(range.location), static_cast<unsigned long>(range.length),
            static_cast<unsigned long>(count - 1));
    else
        std::snprintf(reason, sizeof reason, "*** %s: range {%lu, %lu} extends beyond bounds for empty array",
            operation, static_cast<unsigned long>(range.location), static_cast<unsigned long>(range.length));
    raisePlatformException(NSRangeException, reason);
}

std::vector<Ref<Object>> vectorOf(Object* const* objects, size_t count) { return {objects, objects + count}; }

void stableSort(std::vector<Ref<Object>>& objects, const Comparator& comparator)
{
    std::stable_sort(objects.begin(), objects.end(),
        [&](const Ref<Object>& a, const Ref<Object>& b) { return comparator(a.get(), b.get()) == NSOrderedAscending; });
}

} // namespace

void Array::checkNotNil(Object* const* objects, size_t count)
{
    const auto nil = std::find(objects, objects + count, nullptr);
    if (nil == objects + count)
        return;
    char reason[160];
    std::snprintf(reason, sizeof reason,
        "*** -[__NSPlaceholderArray initWithObjects:count:]: attempt to insert nil object from objects[%lu]",
        static_cast<unsigned long>(nil - objects));
    raisePlatformException(NSInvalidArgumentException, reason);
}

Ref<Array> Array::array() { return makeObject<Array>(); }

Ref<Array> Array::arrayWithObject(Object* object) { return arrayWithObjects_count(&object, 1); }

Ref<Array> Array::arrayWithObjects(std::initializer_list<Object*> objects)
{
    return arrayWithObjects_count(objects.begin(), objects.size());
}

Ref<Array> Array::arrayWithObjects_count(Object* const* objects, size_t count)
{
    checkNotNil(objects, count);
    return makeObject<Array>(vectorOf(objects, count));
}

Ref<Array> Array::arrayWithVector(std::vector<Ref<Object>> objects)
{
    for (const Ref<Object>& object : objects) {
        if (!object) {
            std::vector<Object*> raw(objects.begin(), objects.end());
            checkNotNil(raw.data(), raw.size());
        }
    }
    return makeObject<Array>(std::move(objects));
}

Array::~Array()
{
    if (objects_.size() < detail::ReleaseBatch::kManyObjects)
        return;
    detail::ReleaseBatch batch;
    for (Ref<Object>& object : objects_)
        batch.add(std::move(object));
    std::vector<Ref<Object>>().swap(objects_);
}

Ref<Array> Array::arrayWithArray(const Array* array) { return array ? makeObject<Array>(array->objects_) : Array::array(); }

Object* Array::objectAtIndex(size_t index) const
{
    if (index >= objects_.size())
        raiseIndex("-[NSArray objectAtIndex:]", index, objects_.size(), "NSArray");
    return objects_[index].get();
}

size_t Array::indexOfObject(const Object* object) const
{
    if (!object)
        return NSNotFound;
    for (size_t i = 0; i < objects_.size(); ++i)
        if (objectsEqual(objects_[i].get(), object))
            return i;
    return NSNotFound;
}

size_t Array::indexOfObjectIdenticalTo(const Object* object) const
{
    for (size_t i = 0; i < objects_.size(); ++i)
        if (objects_[i].get() == object)
            return i;
    return NSNotFound;
}

bool Array::isEqualToArray(const Array* other) const
{
    if (other == this)
        return true;
    if (!other || other->objects_.size() != objects_.size())
        return false;
    return std::equal(objects_.begin(), objects_.end(), other->objects_.begin(),
        [](const Ref<Object>& a, const Ref<Object>& b) { return objectsEqual(a.get(), b.get()); });
}

Ref<Array> Array::arrayByAddingObject(Object* object) const
{
    if (!object)
        raisePlatformException(NSInvalidArgumentException, "*** -[NSArray arrayByAddingObject:]: object cannot be nil");
    std::vector<Ref<Object>> objects;
    objects.reserve(objects_.size() + 1);
    objects = objects_;
    objects.emplace_back(object);
    return makeObject<Array>(std::move(objects));
}

Ref<Array> Array::arrayByAddingObjectsFromArray(const Array* other) const
{
    std::vector<Ref<Object>> objects = objects_;
    if (other)
        objects.insert(objects.end(), other->objects_.begin(), other->objects_.end());
    return makeObject<Array>(std::move(objects));
}

Ref<Array> Array::subarrayWithRange(Range range) const
{
    const size_t count = objects_.size();
    if (range.location > count || range.length > count - range.location)
        raiseRange("-[NSArray subarrayWithRange:]", range, count);
    auto first = objects_.begin() + static_cast<std::ptrdiff_t>(range.location);
    return makeObject<Array>(std::vector<Ref<Object>>(first, first + static_cast<std::ptrdiff_t>(range.length)));
}

Ref<String> Array::componentsJoinedByString(const String* separator) const
{
    std::u16string text;
    for (size_t i = 0; i < objects_.size(); ++i) {
        if (i && separator)
            text += separator->view();
        Ref<String> part = objects_[i]->description();
        if (part)
            text += part->view();
    }
    return String::stringWithCharacters(text);
}

Ref<Array> Array::sortedArrayUsingComparator(const Comparator& comparator) const
{
    std::vector<Ref<Object>> objects = objects_;
    stableSort(objects, comparator);
    return makeObject<Array>(std::move(objects));
}

Ref<Array> Array::sortedArrayUsingDescriptors(const Array* descriptors) const
{
    std::vector<SortDescriptor*> order;
    if (descriptors) {
        for (Object* item : *descriptors) {
            if (auto* descriptor = dynamicCast<SortDescriptor>(item))
                order.push_back(descriptor);
        }
    }
    return sortedArrayUsingComparator([&order](Object* a, Object* b) {
        for (SortDescriptor* descriptor : order) {
            if (const ComparisonResult result = descriptor->compareObject_toObject(a, b); result != NSOrderedSame)
                return result;
        }
        return NSOrderedSame;
    });
}

Ref<String> Array::description() const { return detail::describeCollection(this); }

bool Array::isEqual(const Object* other) const
{
    const Array* array = dynamicCast<Array>(other);
    return array && isEqualToArray(array);
}

size_t Array::hash() const { return objects_.size(); }

Ref<Object> Array::copy() const { return Ref<Object>(const_cast<Array*>(this)); }

Ref<Object> Array::mutableCopy() const { return MutableArray::arrayWithArray(this); }

// MutableArray

Ref<MutableArray> MutableArray::array() { return makeObject<MutableArray>(); }

Ref<MutableArray> MutableArray::arrayWithCapacity(size_t capacity)
{
    auto array = makeObject<MutableArray>();
    array->objects_.reserve(capacity);
    return array;
}

Ref<MutableArray> MutableArray::arrayWithObject(Object* object)
{
    checkNotNil(&object, 1);
    return makeObject<MutableArray>(vectorOf(&object, 1));
}

Ref<MutableArray> MutableArray::arrayWithObjects(std::initializer_list<Object*> objects)
{
    checkNotNil(objects.begin(), objects.size());
    return makeObject<MutableArray>(vectorOf(objects.begin(), objects.size()));
}

Ref<MutableArray> MutableArray::arrayWithArray(const Array* array)
{
    return makeObject<MutableArray>(array ? array->objects() : std::vector<Ref<Object>>());
}

void MutableArray::checkIndex(size_t index, size_t limit, const char* operation) const
{
    if (index >= limit)
        raiseIndex(operation, index, objects_.size(), "array");
}

void MutableArray::addObject(Object* object) { insertObject_atIndex(object, objects_.size()); }

void MutableArray::insertObject_atIndex(Object* object, size_t index)
{
    if (!object)
        raiseNilObject("-[__NSArrayM insertObject:atIndex:]");
    checkIndex(index, objects_.size() + 1, "-[__NSArrayM insertObject:atIndex:]");
    objects_.emplace(objects_.begin() + static_cast<std::ptrdiff_t>(index), object);
}

void MutableArray::removeObjectAtIndex(size_t index)
{
    checkIndex(index, objects_.size(), "-[__NSArrayM removeObjectAtIndex:]");
    // Take the object out before releasing it: its destruction may run arbitrary code.
    Ref<Object> removed = std::move(objects_[index]);
    objects_.erase(objects_.begin() + static_cast<std::ptrdiff_t>(index));
}

void MutableArray::removeLastObject()
{
    if (objects_.empty())
        raiseRange("-[__NSArrayM removeObjectsInRange:]", Range {0, 1}, 0);
    Ref<Object> removed = std::move(objects_.back());
    objects_.pop_back();
}

void MutableArray::removeObject(const Object* object)
{
    if (!object)
        return;
    // The object may be held only by this array: keep it alive while comparing.
    Ref<Object> keep(const_cast<Object*>(object));
    std::vector<Ref<Object>> removed;
    std::erase_if(objects_, [&](Ref<Object>& item) {
        if (!objectsEqual(item.get(), object))
            return false;
        removed.push_back(std::move(item));
        return true;
    });
}

void MutableArray::removeObjectIdenticalTo(const Object* object)
{
    Ref<Object> keep(const_cast<Object*>(object));
    std::erase_if(objects_, [&](const Ref<Object>& item) { return item.get() == object; });
}

void MutableArray::removeAllObjects()
{
    std::vector<Ref<Object>> removed;
    removed.swap(objects_);
}

void MutableArray::replaceObjectAtIndex_withObject(size_t index, Object* object)
{
    if (!object)
        raiseNilObject("-[__NSArrayM replaceObjectAtIndex:withObject:]");
    checkIndex(index, objects_.size(), "-[__NSArrayM replaceObjectAtIndex:withObject:]");
    Ref<Object> replaced = std::exchange(objects_[index], Ref<Object>(object));
}

void MutableArray::addObjectsFromArray(const Array* array)
{
    if (!array)
        return;
    if (array == this) {
        objects_.reserve(objects_.size() * 2);
        const size_t count = objects_.size();
        for (size_t i = 0; i < count; ++i)
            objects_.push_back(objects_[i]);
        return;
    }
    objects_.insert(objects_.end(), array->objects().begin(), array->objects().end());
}

void MutableArray::exchangeObjectAtIndex_withObjectAtIndex(size_t first, size_t second)
{
    checkIndex(first, objects_.size(), "-[__NSArrayM exchangeObjectAtIndex:withObjectAtIndex:]");
    checkIndex(second, objects_.size(), "-[__NSArrayM exchangeObjectAtIndex:withObjectAtIndex:]");
    std::swap(objects_[first], objects_[second]);
}

void MutableArray::sortUsingComparator(const Comparator& comparator) { stableSort(objects_, comparator); }

void MutableArray::setArray(const Array* array)
{
    if (array == this)
        return;
    std::vector<Ref<Object>> old = std::exchange(objects_, array ? array->objects() : std::vector<Ref<Object>>());
}

Ref<Object> MutableArray::copy() const { return Array::arrayWithArray(this); }

} // namespace zon
