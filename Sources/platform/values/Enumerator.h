#pragma once

#include "platform/runtime/Object.h"

namespace zon {

// The cursor of a fast enumeration, kept by the caller between calls. state is the enumerator's
// own position; itemsPtr points at the objects handed out by the last call; mutationsPtr at a
// value that changes when the collection does; extra is the enumerator's to use.
struct FastEnumerationState {
    unsigned long state = 0;
    Object** itemsPtr = nullptr;
    unsigned long* mutationsPtr = nullptr;
    unsigned long extra[5] = {};
};

// Hands out the objects of a sequence one at a time. Run-time class NSEnumerator.
class ZON_EXPORT Enumerator : public Object {
    ZON_OBJECT(Enumerator, Object)
public:
    // The next object, or nil after the last.
    virtual Ref<Object> nextObject() = 0;
    // Puts up to count objects (autoreleased) in buffer, points state->itemsPtr at them and
    // answers how many; 0 when done. The base hands out one nextObject per call.
    virtual unsigned long countByEnumeratingWithState_objects_count(
        FastEnumerationState* state, Object** buffer, unsigned long count);

protected:
    Enumerator() = default;
};

} // namespace zon
