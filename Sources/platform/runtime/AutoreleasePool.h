#pragma once

#include "platform/Export.h"

#include <cstddef>

namespace zon {

class Object;

// A scope that releases, when it ends, the references autoreleased on this thread while it was
// the innermost pool. Pools nest and belong to the thread that made them. References
// autoreleased with no pool in place are released when the thread ends.
class ZON_EXPORT AutoreleasePool {
public:
    AutoreleasePool();
    ~AutoreleasePool();
    AutoreleasePool(const AutoreleasePool&) = delete;
    AutoreleasePool& operator=(const AutoreleasePool&) = delete;

    // Releases what the pool holds now; the pool stays in place.
    void drain();

    // Used by Object::autorelease.
    static void addObject(const Object* object);
    // How many references this thread's pools hold, for tests and diagnostics.
    static size_t pendingCount();

private:
    size_t mark_;
};

} // namespace zon
