#include "platform/values/Enumerator.h"

#include "platform/runtime/Class.h"

namespace zon {

ZON_DEFINE_CLASS(Enumerator, "NSEnumerator")

unsigned long Enumerator::countByEnumeratingWithState_objects_count(
    FastEnumerationState* state, Object** buffer, unsigned long count)
{
    if (!count)
        return 0;
    if (!state->mutationsPtr)
        state->mutationsPtr = state->extra;
    Ref<Object> next = nextObject();
    if (!next)
        return 0;
    buffer[0] = next.leakRef()->autorelease();
    state->itemsPtr = buffer;
    return 1;
}

} // namespace zon
