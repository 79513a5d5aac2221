#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace zon {

// An allocator whose value-less construct leaves trivial elements uninitialised, so that
// resize(n) on a vector of bytes allocates without writing n zeros first. Everything else is
// std::allocator's.
template <class T>
class DefaultInitAllocator : public std::allocator<T> {
public:
    template <class U>
    struct rebind {
        using other = DefaultInitAllocator<U>;
    };

    DefaultInitAllocator() noexcept = default;
    template <class U>
    DefaultInitAllocator(const DefaultInitAllocator<U>&) noexcept
    {
    }

    template <class U>
    void construct(U* place) noexcept(std::is_nothrow_default_constructible_v<U>)
    {
        ::new (static_cast<void*>(place)) U;
    }
    template <class U, class... Args>
    void construct(U* place, Args&&... args)
    {
        std::construct_at(place, std::forward<Args>(args)...);
    }
};

// Byte storage for data and wire messages: resize(n) does not zero the new bytes (a buffer about
// to be filled by a read or a conversion need not be written twice); resize(n, 0) does.
using ByteVector = std::vector<uint8_t, DefaultInitAllocator<uint8_t>>;

} // namespace zon
