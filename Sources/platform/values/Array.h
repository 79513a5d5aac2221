#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/ComparisonResult.h"
#include "platform/values/Range.h"

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <vector>

namespace zon {

class Dictionary;
class MutableArray;
class SortDescriptor;

// Range-for over a run of Ref<Object> that yields the borrowed Object*.
class ObjectIterator {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = Object*;
    using difference_type = std::ptrdiff_t;
    using reference = Object*;
    using pointer = void;

    ObjectIterator() = default;
    explicit ObjectIterator(const Ref<Object>* at) : at_(at) {}
    Object* operator*() const { return at_->get(); }
    Object* operator[](difference_type n) const { return at_[n].get(); }
    ObjectIterator& operator++()
    {
        ++at_;
        return *this;
    }
    ObjectIterator operator++(int) { return ObjectIterator(at_++); }
    ObjectIterator& operator--()
    {
        --at_;
        return *this;
    }
    ObjectIterator operator--(int) { return ObjectIterator(at_--); }
    ObjectIterator& operator+=(difference_type n)
    {
        at_ += n;
        return *this;
    }
    ObjectIterator& operator-=(difference_type n)
    {
        at_ -= n;
        return *this;
    }
    friend ObjectIterator operator+(ObjectIterator it, difference_type n) { return it += n; }
    friend ObjectIterator operator+(difference_type n, ObjectIterator it) { return it += n; }
    friend ObjectIterator operator-(ObjectIterator it, difference_type n) { return it -= n; }
    friend difference_type operator-(ObjectIterator a, ObjectIterator b) { return a.at_ - b.at_; }
    auto operator<=>(const ObjectIterator&) const = default;

private:
    const Ref<Object>* at_ = nullptr;
};

// Orders two objects for sorting: NSOrderedAscending when a comes first.
using Comparator = std::function<ComparisonResult(Object* a, Object* b)>;

// An immutable ordered list of objects (never nil; Null::null() marks an empty place). Run-time
// class NSArray; safe to share between threads. Iterating yields Object*:
//
//     for (Object* item : *array) ...
//
// The description is the platform's, four spaces of indentation per level; a nested container
// also starts its first line with its own level's indentation, as the platform prints it:
//
//     (
//         1,
//         "two words",
//             (
//             nested
//         )
//     )
//
// Strings print bare when they are non-empty and made only of ASCII letters, digits and
// "_$/:.-", otherwise in double quotes with \" \\ \a \b \t \n \v \f \r escaped, other control
// characters as \ooo and non-ASCII units as \Uxxxx (four hex digits).
class ZON_EXPORT Array : public Object {
    ZON_OBJECT(Array, Object)
public:
    static Ref<Array> array();
    // A nil object raises NSInvalidArgumentException
    // "*** -[__NSPlaceholderArray initWithObjects:count:]: attempt to insert nil object from objects[0]".
    static Ref<Array> arrayWithObject(Object* object);
    // The same check on every element, naming its index.
    static Ref<Array> arrayWithObjects(std::initializer_list<Object*> objects);
    static Ref<Array> arrayWithObjects_count(Object* const* objects, size_t count);
    // Takes the vector's objects without retaining them again; nil elements raise as above.
    static Ref<Array> arrayWithVector(std::vector<Ref<Object>> objects);
    // A nil array gives an empty array.
    static Ref<Array> arrayWithArray(const Array* array);

    size_t count() const { return objects_.size(); }
    bool isEmpty() const { return objects_.empty(); }
    // Raises NSRangeException "*** -[NSArray objectAtIndex:]: index %lu beyond bounds [0 .. %lu]"
    // ("... beyond bounds for empty NSArray" when empty).
    Object* objectAtIndex(size_t index) const;
    Object* firstObject() const { return objects_.empty() ? nullptr : objects_.front().get(); }
    Object* lastObject() const { return objects_.empty() ? nullptr : objects_.back().get(); }
    bool containsObject(const Object* object) const { return indexOfObject(object) != NSNotFound; }
    // The first index holding an equal object, or NSNotFound (also for nil).
    size_t indexOfObject(const Object* object) const;
    size_t indexOfObjectIdenticalTo(const Object* object) const;

    bool isEqualToArray(const Array* other) const;
    Ref<Array> arrayByAddingObject(Object* object) const;
    Ref<Array> arrayByAddingObjectsFromArray(const Array* other) const;
    // Raises NSRangeException "*** -[NSArray subarrayWithRange:]: range {%lu, %lu} extends
    // beyond bounds [0 .. %lu]" ("... beyond bounds for empty array" when empty).
    Ref<Array> subarrayWithRange(Range range) const;
    // The descriptions of the elements (strings as they are) joined by separator (nil is "").
    Ref<String> componentsJoinedByString(const String* separator) const;
    // A stable sort.
    Ref<Array> sortedArrayUsingComparator(const Comparator& comparator) const;
    // A stable sort by the first descriptor, ties broken by the next, and so on; an empty or nil
    // list leaves the order as it is. Elements of the list that are not sort descriptors are
    // skipped.
    Ref<Array> sortedArrayUsingDescriptors(const Array* descriptors) const;

    // ---- NSArray(ZonExtensions) -----------------------------------------------------------------
    // firstObject (above) answers nil for an empty array.
    // The platform's sort with a list of this one descriptor.
    Ref<Array> sortedArrayUsingDescriptor(SortDescriptor* descriptor) const;
    // A new array in the order shuffle gives (see MutableArray): the first element stays first.
    Ref<Array> shuffledArray() const;
    // A new array with the elements in reverse order.
    Ref<Array> reverseArray() const;
    // Maps, for every element, the object the element answers to sel (the key) to the element; a
    // later element with an equal key replaces an earlier one. Only the first element is checked:
    // when it does not answer sel, the call logs "Cannot fetch with %@" (level 1) and answers nil;
    // a later one that does not answer raises NSInvalidArgumentException, and a nil key raises as
    // a dictionary refuses one.
    Ref<Dictionary> dictionaryKeyWithSelector(SEL sel) const;

    ObjectIterator begin() const { return ObjectIterator(objects_.data()); }
    ObjectIterator end() const { return ObjectIterator(objects_.data() + objects_.size()); }
    const std::vector<Ref<Object>>& objects() const { return objects_; }

    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    // The count, as the platform answers it.
    size_t hash() const override;
    Ref<Object> copy() const override;
    Ref<Object> mutableCopy() const override;

protected:
    Array() = default;
    explicit Array(std::vector<Ref<Object>> objects) : objects_(std::move(objects)) {}
    ~Array() override;

    static void checkNotNil(Object* const* objects, size_t count);

    std::vector<Ref<Object>> objects_;
};

// An array that can change; run-time class NSMutableArray. Not safe to change from one thread
// while another reads it, nor while iterating it.
class ZON_EXPORT MutableArray final : public Array {
    ZON_OBJECT(MutableArray, Array)
public:
    static Ref<MutableArray> array();
    static Ref<MutableArray> arrayWithCapacity(size_t capacity);
    static Ref<MutableArray> arrayWithObject(Object* object);
    static Ref<MutableArray> arrayWithObjects(std::initializer_list<Object*> objects);
    static Ref<MutableArray> arrayWithArray(const Array* array);

    // Nil raises NSInvalidArgumentException
    // "*** -[__NSArrayM insertObject:atIndex:]: object cannot be nil".
    void addObject(Object* object);
    // Nil raises as addObject; an index past count raises NSRangeException
    // "*** -[__NSArrayM insertObject:atIndex:]: index %lu beyond bounds [0 .. %lu]"
    // ("... beyond bounds for empty array" when empty).
    void insertObject_atIndex(Object* object, size_t index);
    // Past the end: NSRangeException "*** -[__NSArrayM removeObjectAtIndex:]: index %lu beyond
    // bounds [0 .. %lu]" ("... beyond bounds for empty array").
    void removeObjectAtIndex(size_t index);
    // Empty: NSRangeException "*** -[__NSArrayM removeObjectsInRange:]: range {0, 1} extends
    // beyond bounds for empty array".
    void removeLastObject();
    // Removes every element equal to object.
    void removeObject(const Object* object);
    void removeObjectIdenticalTo(const Object* object);
    void removeAllObjects();
    // NSRangeException past the end ("*** -[__NSArrayM replaceObjectAtIndex:withObject:]: index
    // %lu beyond bounds [0 .. %lu]"), NSInvalidArgumentException for nil
    // ("*** -[__NSArrayM replaceObjectAtIndex:withObject:]: object cannot be nil").
    void replaceObjectAtIndex_withObject(size_t index, Object* object);
    void addObjectsFromArray(const Array* array);
    // NSRangeException when either index is past the end.
    void exchangeObjectAtIndex_withObjectAtIndex(size_t first, size_t second);
    // A stable sort.
    void sortUsingComparator(const Comparator& comparator);
    void setArray(const Array* array);

    // ---- NSMutableArray(ZonExtensions) ----------------------------------------------------------
    // Shuffles in place: for i from count - 1 down to 1, exchanges the elements at i and j, where
    // j = TXZonRandom::randomNumberValueBelow(i + 1) lies in 1 ... i. j is never 0, so the first
    // element never moves and the others are shuffled among the places after it; the suite relies
    // on that. Fewer than 2 elements: nothing happens.
    void shuffle();

    Ref<Object> copy() const override;

private:
    MutableArray() = default;
    explicit MutableArray(std::vector<Ref<Object>> objects) : Array(std::move(objects)) {}
    void checkIndex(size_t index, size_t limit, const char* operation) const;
};

} // namespace zon
