#include "utilities/math/TXZonRandom.h"

#include "platform/runtime/Class.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <bit>
#include <cstdlib>

namespace zon {

ZON_DEFINE_CLASS(TXZonRandom, "TXZonRandom")

namespace {

// The line the range check reports, as the suite's logs and reasons know it.
constexpr long kLineRangeViolation = 60;

// A draw in 0 ... count - 1 (count may be 0: then it never returns). The mask is 64 bits wide so
// that counts above 2^31 do not overflow it; random() gives 31 bits, so such counts are served
// from their lower 2^31 values only.
uint32_t drawBelow(uint32_t count)
{
    // The least power of two not below count and at least 2, less one.
    const uint64_t mask = count <= 2 ? 1 : std::bit_ceil(uint64_t(count)) - 1;
    for (;;) {
        // random() itself, not a generator of our own: the host's srandom decides the sequence.
        const uint64_t draw = static_cast<uint64_t>(::random()) & mask;
        if (draw < count)
            return static_cast<uint32_t>(draw);
    }
}

} // namespace

void TXZonRandom::checkAndSetBounds(uint32_t below, uint32_t above)
{
    if (above >= below) {
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(
            selector("initWithRandomNumberBelow:above:"), this, __FILE__, kLineRangeViolation,
            "Range violation, requires: above_ < below_");
    }
    belowValue_ = below;
    aboveValue_ = above;
}

uint32_t TXZonRandom::valueStrictlyBetween(uint32_t below, uint32_t above)
{
    const uint32_t between = below - above - 1;
    if (between == 0)
        return 0;
    return above + 1 + drawBelow(between);
}

Ref<Number> TXZonRandom::randomNumber() const { return Number::numberWithUnsignedInt(randomNumberValue()); }

uint32_t TXZonRandom::randomNumberValueBelow_above(uint32_t below, uint32_t above)
{
    if (above >= below)
        randomNumberBelow_above(below, above); // raises
    return valueStrictlyBetween(below, above);
}

} // namespace zon

extern "C" uint32_t ZonRandomNumber(uint32_t n) { return zon::drawBelow(n); }
