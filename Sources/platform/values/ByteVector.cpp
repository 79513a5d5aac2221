#include "platform/values/ByteVector.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace zon {

ByteVector& ByteVector::operator=(const ByteVector& other)
{
    if (this != &other)
        assign(other.begin(), other.end());
    return *this;
}

ByteVector& ByteVector::operator=(ByteVector&& other) noexcept
{
    if (this != &other) {
        std::free(data_);
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
    }
    return *this;
}

ByteVector::~ByteVector() { std::free(data_); }

void ByteVector::reserve(size_t capacity)
{
    if (capacity <= capacity_)
        return;
    if (capacity > max_size())
        throw std::bad_alloc();
#if ZON_PLAIN_BYTES
    // The plain fallback, for measuring what this class earns (IPCBenchmarks' 4 MiB echo rows,
    // PropertyListBenchmarks' read and write rows): what std::vector<uint8_t> does, new storage
    // zero-filled and the bytes copied over on growth.
    auto* grown = static_cast<uint8_t*>(std::malloc(capacity));
    if (!grown)
        throw std::bad_alloc();
    std::memset(grown, 0, capacity);
    if (size_)
        std::memcpy(grown, data_, size_);
    std::free(data_);
#else
    // realloc moves the bytes in one copy, or none when the block can grow where it is (large
    // blocks are remapped rather than copied).
    auto* grown = static_cast<uint8_t*>(std::realloc(data_, capacity));
    if (!grown)
        throw std::bad_alloc();
#endif
    data_ = grown;
    capacity_ = capacity;
}

void ByteVector::shrink_to_fit()
{
    if (size_ == capacity_)
        return;
    if (size_ == 0) {
        std::free(std::exchange(data_, nullptr));
        capacity_ = 0;
        return;
    }
    if (auto* shrunk = static_cast<uint8_t*>(std::realloc(data_, size_))) {
        data_ = shrunk;
        capacity_ = size_;
    }
}

void ByteVector::growTo(size_t size)
{
    if (size > max_size())
        throw std::bad_alloc();
    reserve(std::max({size, capacity_ + capacity_ / 2, size_t {16}}));
}

void ByteVector::resize(size_t size, uint8_t value)
{
    const size_t before = size_;
    resize(size);
    if (size > before)
        std::memset(data_ + before, value, size - before);
}

ByteVector::iterator ByteVector::insertBytes(size_t at, const void* bytes, size_t count)
{
    if (count == 0)
        return data_ + at;
    const auto* source = static_cast<const uint8_t*>(bytes);
    if (data_ && source >= data_ && source < data_ + capacity_) {
        // Bytes of this vector would move under the insertion: insert a copy of them.
        const ByteVector copy(source, source + count);
        return insertBytes(at, copy.data_, count);
    }
    if (count > max_size() - size_)
        throw std::bad_alloc();
    resize(size_ + count);
    std::memmove(data_ + at + count, data_ + at, size_ - count - at);
    std::memcpy(data_ + at, source, count);
    return data_ + at;
}

void ByteVector::rotateTail(size_t at, size_t before)
{
    if (at < before)
        std::rotate(data_ + at, data_ + before, data_ + size_);
}

ByteVector::iterator ByteVector::erase(const_iterator first, const_iterator last) noexcept
{
    const size_t at = static_cast<size_t>(first - data_);
    const size_t count = static_cast<size_t>(last - first);
    if (count)
        std::memmove(data_ + at, data_ + at + count, size_ - at - count);
    size_ -= count;
    return data_ + at;
}

} // namespace zon
