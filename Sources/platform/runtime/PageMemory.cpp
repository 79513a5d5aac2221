#include "platform/runtime/PageMemoryInternal.h"

#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace zon::detail {

namespace {

[[maybe_unused]] size_t roundedToPages(size_t bytes)
{
    static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) & ~(page - 1);
}

} // namespace

#if ZON_PLAIN_PAGES
// The plain fallback, for measuring what page memory earns (PropertyListBenchmarks'
// BM_PropertyListReadXML of the 17 MB document, and its release): malloc's own blocks.
void* allocatePages(size_t bytes)
{
    if (void* memory = std::malloc(bytes ? bytes : 1))
        return memory;
    throw std::bad_alloc();
}

void* reallocatePages(void* memory, size_t, size_t newBytes)
{
    if (void* moved = std::realloc(memory, newBytes ? newBytes : 1))
        return moved;
    throw std::bad_alloc();
}

void freePages(void* memory, size_t) noexcept { std::free(memory); }
#else
void* allocatePages(size_t bytes)
{
    void* memory = mmap(nullptr, roundedToPages(bytes), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    return memory;
}

void* reallocatePages(void* memory, size_t oldBytes, size_t newBytes)
{
    void* moved = mremap(memory, roundedToPages(oldBytes), roundedToPages(newBytes), MREMAP_MAYMOVE);
    if (moved == MAP_FAILED)
        throw std::bad_alloc();
    return moved;
}

void freePages(void* memory, size_t bytes) noexcept
{
    if (memory)
        munmap(memory, roundedToPages(bytes));
}
#endif

} // namespace zon::detail
