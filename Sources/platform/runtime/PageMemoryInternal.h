#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

namespace zon::detail {

// Memory for large scratch buffers straight from the kernel, bypassing malloc.
//
// glibc's malloc keeps recently freed small blocks in "fast bins" and merges them only when a
// large block is requested or freed. After a big object graph has been freed (a document of
// hundreds of thousands of values), the next large request or free merges every one of those
// blocks at once, and the small requests that follow are served from the merged memory on the
// allocator's slow path instead of straight from the bins. Scratch buffers that grow while many
// small values are made or freed (a reader's stack of values, the list of objects waiting to be
// released) therefore take their memory from here once they outgrow kPageMemoryThreshold.

constexpr size_t kPageMemoryThreshold = 1024; // glibc serves smaller requests without merging

// Page-rounded anonymous memory; throws std::bad_alloc when the kernel refuses.
void* allocatePages(size_t bytes);
// Grows or shrinks memory from allocatePages, keeping its contents (moving it if it must).
void* reallocatePages(void* memory, size_t oldBytes, size_t newBytes);
void freePages(void* memory, size_t bytes) noexcept;

// A standard allocator that takes blocks of kPageMemoryThreshold bytes and more from
// allocatePages, and smaller ones from malloc.
template <class T>
struct PageAllocator {
    using value_type = T;

    PageAllocator() = default;
    template <class U>
    PageAllocator(const PageAllocator<U>&) noexcept
    {
    }

    T* allocate(size_t count)
    {
        const size_t bytes = count * sizeof(T);
        if (bytes >= kPageMemoryThreshold)
            return static_cast<T*>(allocatePages(bytes));
        if (void* memory = std::malloc(bytes))
            return static_cast<T*>(memory);
        throw std::bad_alloc();
    }
    void deallocate(T* memory, size_t count) noexcept
    {
        const size_t bytes = count * sizeof(T);
        if (bytes >= kPageMemoryThreshold)
            freePages(memory, bytes);
        else
            std::free(memory);
    }
    template <class U>
    bool operator==(const PageAllocator<U>&) const noexcept
    {
        return true;
    }
};

} // namespace zon::detail
