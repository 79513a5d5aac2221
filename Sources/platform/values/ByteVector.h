#pragma once

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <utility>

namespace zon {

// A growable run of bytes for data and wire messages, with the parts of std::vector's interface
// that byte buffers use. Unlike std::vector<uint8_t>:
// - resize(n) leaves the new bytes unwritten, so a buffer about to be filled by a read or a
//   conversion is not written twice (resize(n, 0) zeroes them);
// - copies and growth are always one memcpy or realloc, never a loop over elements (a vector
//   with any allocator but the standard one copies byte by byte).
class ZON_EXPORT ByteVector {
public:
    using value_type = uint8_t;
    using size_type = size_t;
    using difference_type = std::ptrdiff_t;
    using reference = uint8_t&;
    using const_reference = const uint8_t&;
    using pointer = uint8_t*;
    using const_pointer = const uint8_t*;
    using iterator = uint8_t*;
    using const_iterator = const uint8_t*;

    ByteVector() noexcept = default;
    // n bytes left unwritten.
    explicit ByteVector(size_t n) { resize(n); }
    ByteVector(size_t n, uint8_t value) { resize(n, value); }
    template <std::input_iterator It>
    ByteVector(It first, It last)
    {
        insert(end(), first, last);
    }
    ByteVector(std::initializer_list<uint8_t> bytes) { insert(end(), bytes.begin(), bytes.end()); }
    ByteVector(const ByteVector& other) { insert(end(), other.begin(), other.end()); }
    ByteVector(ByteVector&& other) noexcept
        : data_(std::exchange(other.data_, nullptr))
        , size_(std::exchange(other.size_, 0))
        , capacity_(std::exchange(other.capacity_, 0))
    {
    }
    ByteVector& operator=(const ByteVector& other);
    ByteVector& operator=(ByteVector&& other) noexcept;
    ~ByteVector();

    uint8_t* data() noexcept { return data_; }
    const uint8_t* data() const noexcept { return data_; }
    size_t size() const noexcept { return size_; }
    size_t capacity() const noexcept { return capacity_; }
    bool empty() const noexcept { return size_ == 0; }
    static constexpr size_t max_size() noexcept { return PTRDIFF_MAX; }

    iterator begin() noexcept { return data_; }
    iterator end() noexcept { return data_ + size_; }
    const_iterator begin() const noexcept { return data_; }
    const_iterator end() const noexcept { return data_ + size_; }
    uint8_t& operator[](size_t index) noexcept { return data_[index]; }
    uint8_t operator[](size_t index) const noexcept { return data_[index]; }
    uint8_t& back() noexcept { return data_[size_ - 1]; }

    void reserve(size_t capacity);
    void shrink_to_fit();
    // New bytes are left unwritten.
    void resize(size_t size)
    {
        if (size > capacity_)
            growTo(size);
        size_ = size;
    }
    void resize(size_t size, uint8_t value);
    void clear() noexcept { size_ = 0; }
    void push_back(uint8_t value)
    {
        if (size_ == capacity_)
            growTo(size_ + 1);
        data_[size_++] = value;
    }

    template <std::input_iterator It>
    void assign(It first, It last)
    {
        clear();
        insert(end(), first, last);
    }
    // Inserts before position; the bytes may lie in this vector.
    template <std::input_iterator It>
    iterator insert(const_iterator position, It first, It last)
    {
        if constexpr (std::contiguous_iterator<It>) {
            return insertBytes(static_cast<size_t>(position - data_), std::to_address(first),
                static_cast<size_t>(last - first));
        } else {
            const size_t at = static_cast<size_t>(position - data_);
            const size_t before = size_;
            for (; first != last; ++first)
                push_back(static_cast<uint8_t>(*first));
            rotateTail(at, before);
            return data_ + at;
        }
    }
    iterator insert(const_iterator position, std::initializer_list<uint8_t> bytes)
    {
        return insertBytes(static_cast<size_t>(position - data_), bytes.begin(), bytes.size());
    }
    iterator erase(const_iterator first, const_iterator last) noexcept;

    friend bool operator==(const ByteVector& a, const ByteVector& b) noexcept
    {
        return a.size_ == b.size_ && (a.size_ == 0 || std::memcmp(a.data_, b.data_, a.size_) == 0);
    }

private:
    // Makes room for at least size bytes, growing geometrically so that appends stay linear.
    void growTo(size_t size);
    iterator insertBytes(size_t at, const void* bytes, size_t count);
    // Moves the bytes appended after `before` to index at.
    void rotateTail(size_t at, size_t before);

    uint8_t* data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

} // namespace zon
