#pragma once

#include "platform/runtime/Object.h"

#include <cstddef>

namespace zon::detail {

// Lets a container that holds many objects free its own storage before it releases them.
//
// Freeing a large block makes glibc merge every small block freed since the last merge (see
// PageMemoryInternal.h). A container's storage is freed after its elements, so a large container
// merges all the memory of its elements at once, and whatever is allocated next comes from the
// merged memory on the allocator's slow path. A container with at least kManyObjects elements instead
// hands its references to a batch, frees its storage, and the batch releases them when it ends.
// Batches nest; their references wait in page memory of the thread.
class ReleaseBatch {
public:
    // Containers whose storage reaches glibc's merging size (64 KiB) are worth batching.
    static constexpr size_t kManyObjects = 65536 / sizeof(void*);

    ReleaseBatch() noexcept;
    ~ReleaseBatch();
    ReleaseBatch(const ReleaseBatch&) = delete;
    ReleaseBatch& operator=(const ReleaseBatch&) = delete;

    // Takes over one reference, released when the batch ends; when no room can be made the
    // reference is released at once.
    void add(Ref<Object>&& object) noexcept;

private:
    size_t start_;
};

} // namespace zon::detail
