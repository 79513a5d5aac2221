#include "platform/runtime/AutoreleasePool.h"

#include "platform/runtime/Object.h"

#include <vector>

namespace zon {

namespace {

// This thread's autoreleased references, innermost pool last; released when the thread ends.
struct PoolStack {
    std::vector<const Object*> objects;
    ~PoolStack() { releaseFrom(0); }

    void releaseFrom(size_t mark)
    {
        // Releasing may autorelease more objects: take them out before each release.
        while (objects.size() > mark) {
            const Object* object = objects.back();
            objects.pop_back();
            object->release();
        }
    }
};

thread_local PoolStack pools;

} // namespace

AutoreleasePool::AutoreleasePool() : mark_(pools.objects.size()) {}

AutoreleasePool::~AutoreleasePool() { drain(); }

void AutoreleasePool::drain() { pools.releaseFrom(mark_); }

void AutoreleasePool::addObject(const Object* object) { pools.objects.push_back(object); }

size_t AutoreleasePool::pendingCount() { return pools.objects.size(); }

} // namespace zon
