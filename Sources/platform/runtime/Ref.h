#pragma once

#include <cstddef>
#include <functional>
#include <utility>

namespace zon {

// The owning pointer to a reference-counted object. Copying retains, destruction releases; a
// null Ref is nil. A Ref converts to the raw pointer for calls that borrow, and to the Ref of a
// base class.
template <class T>
class Ref {
public:
    using element_type = T;

    constexpr Ref() noexcept = default;
    constexpr Ref(std::nullptr_t) noexcept {}
    Ref(T* object) noexcept : object_(object) { retainIfSet(); }
    Ref(const Ref& other) noexcept : object_(other.object_) { retainIfSet(); }
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
        requires std::is_convertible_v<U*, T*>
    Ref(const Ref<U>& other) noexcept : object_(other.get()) { retainIfSet(); }
    template <class U>
        requires std::is_convertible_v<U*, T*>
    Ref(Ref<U>&& other) noexcept : object_(other.leakRef()) {}
    ~Ref() { releaseIfSet(); }

    Ref& operator=(const Ref& other) noexcept
    {
        Ref(other).swap(*this);
        return *this;
    }
    Ref& operator=(Ref&& other) noexcept
    {
        Ref(std::move(other)).swap(*this);
        return *this;
    }
    Ref& operator=(std::nullptr_t) noexcept
    {
        Ref().swap(*this);
        return *this;
    }

    // Takes over a reference that the caller already owns (a freshly made object's first one).
    static Ref adopt(T* object) noexcept
    {
        Ref ref;
        ref.object_ = object;
        return ref;
    }
    // Gives up ownership without releasing; the caller now owns the reference.
    [[nodiscard]] T* leakRef() noexcept { return std::exchange(object_, nullptr); }

    T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    operator T*() const noexcept { return object_; }

    void swap(Ref& other) noexcept { std::swap(object_, other.object_); }

private:
    void retainIfSet() const noexcept
    {
        if (object_)
            object_->retain();
    }
    void releaseIfSet() const noexcept
    {
        if (object_)
            object_->release();
    }

    T* object_ = nullptr;
};

template <class T>
Ref<T> adoptRef(T* object) noexcept
{
    return Ref<T>::adopt(object);
}

template <class T>
Ref(T*) -> Ref<T>;

} // namespace zon

template <class T>
struct std::hash<zon::Ref<T>> {
    size_t operator()(const zon::Ref<T>& ref) const noexcept { return std::hash<T*>()(ref.get()); }
};
