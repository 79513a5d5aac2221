#pragma once

#include "platform/Export.h"
#include "platform/runtime/Object.h"

#include <utility>

namespace zon {

namespace detail {

// One object's entry in the weak-reference table, shared by every weak reference to it and
// counted by them. Its object pointer is cleared when the object dies.
struct WeakEntry;

// The entry of a live object (made on first use), with one more reference counted; the caller
// holds a strong reference to object.
ZON_EXPORT WeakEntry* weakEntryOf(const Object* object);
ZON_EXPORT void retainWeakEntry(WeakEntry* entry) noexcept;
ZON_EXPORT void releaseWeakEntry(WeakEntry* entry) noexcept;
// The object with one reference taken for the caller, or null once it has died.
ZON_EXPORT Object* loadWeakEntry(WeakEntry* entry) noexcept;

} // namespace detail

// A reference that does not keep its object alive and reads as nil once the object is gone.
// load() answers a strong reference (or nil), so an object cannot die while the caller uses it.
//
// Two weak references are equal when they were made from the same object while it lived, which
// stays true after it dies and never confuses it with a later object at the same address.
// Loading takes the entry's table lock and one atomic step; objects that never had a weak
// reference pay nothing for the feature.
template <class T>
class WeakRef {
public:
    WeakRef() noexcept = default;
    WeakRef(T* object) : entry_(object ? detail::weakEntryOf(object) : nullptr) {}
    WeakRef(const Ref<T>& object) : WeakRef(object.get()) {}
    WeakRef(const WeakRef& other) noexcept : entry_(other.entry_)
    {
        if (entry_)
            detail::retainWeakEntry(entry_);
    }
    WeakRef(WeakRef&& other) noexcept : entry_(std::exchange(other.entry_, nullptr)) {}
    ~WeakRef()
    {
        if (entry_)
            detail::releaseWeakEntry(entry_);
    }
    WeakRef& operator=(WeakRef other) noexcept
    {
        std::swap(entry_, other.entry_);
        return *this;
    }

    Ref<T> load() const noexcept
    {
        Object* object = entry_ ? detail::loadWeakEntry(entry_) : nullptr;
        return adoptRef(static_cast<T*>(object));
    }
    // Whether this was made from no object at all (a dead object's reference is not empty).
    bool empty() const noexcept { return entry_ == nullptr; }

    friend bool operator==(const WeakRef& a, const WeakRef& b) noexcept { return a.entry_ == b.entry_; }

private:
    detail::WeakEntry* entry_ = nullptr;
};

} // namespace zon
