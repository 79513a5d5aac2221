// NSMutableArray(ZonExtensions): the suite's shuffle, which keeps the first element in place.

#include "platform/values/Array.h"
#include "utilities/math/TXZonRandom.h"

#include <utility>

namespace zon {

namespace {
// The place element i is exchanged with: a value strictly between 0 and i + 1, never 0, so
// element 0 stays where it is.
size_t partnerOf(size_t i) { return TXZonRandom::randomNumberValueBelow(static_cast<uint32_t>(i + 1)); }
} // namespace

void MutableArray::shuffle()
{
    if (objects_.size() < 2)
        return;
    // Each partner is drawn one step ahead, in the same order of draws, so that its place can be
    // fetched from memory while the current exchange is made.
    size_t partner = partnerOf(objects_.size() - 1);
    for (size_t i = objects_.size() - 1; i >= 1; --i) {
        const size_t nextPartner = i > 1 ? partnerOf(i - 1) : 0;
        __builtin_prefetch(&objects_[nextPartner], 1);
        std::swap(objects_[i], objects_[partner]);
        partner = nextPartner;
    }
}

} // namespace zon
