// NSMutableArray(ZonExtensions): the suite's shuffle, which keeps the first element in place.

#include "platform/values/Array.h"
#include "utilities/math/TXZonRandom.h"

#include <utility>

namespace zon {

void MutableArray::shuffle()
{
    if (objects_.size() < 2)
        return;
    for (size_t i = objects_.size() - 1; i >= 1; --i) {
        // A value strictly between 0 and i + 1: never 0, so element 0 stays where it is.
        const size_t j = TXZonRandom::randomNumberValueBelow(static_cast<uint32_t>(i + 1));
        std::swap(objects_[i], objects_[j]);
    }
}

} // namespace zon
