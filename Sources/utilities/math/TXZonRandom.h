#pragma once

// Bounded random integers by rejection sampling over the C library's random(). The library never
// seeds that generator: the sequence is the C library's default one unless the host program calls
// srandom, and then the host's seed decides it.

#include "platform/runtime/Object.h"

#include <cstdint>

// A value in 0 ... n - 1: random() masked to the least power of two not below n (at least 2),
// drawn again until it falls below n. ZonRandomNumber(0) never returns, since no draw qualifies.
extern "C" ZON_EXPORT uint32_t ZonRandomNumber(uint32_t n);

namespace zon {

class Number;

// An exclusive range (aboveValue, belowValue) whose values are drawn strictly between the bounds.
// The accessors check nothing; only the initialiser checks above < below.
class ZON_EXPORT TXZonRandom : public Object {
    ZON_OBJECT(TXZonRandom, Object)
public:
    // above >= below fails through the assertion handler: "Range violation, requires: above_ <
    // below_" (the platform's internal-inconsistency exception).
    static Ref<TXZonRandom> initWithRandomNumberBelow_above(uint32_t below, uint32_t above)
    {
        return randomNumberBelow_above<TXZonRandom>(below, above);
    }
    // An instance of the receiving class Self (a subclass made through its own name) with these
    // bounds, checked as above.
    template <class Self = TXZonRandom>
    static Ref<Self> randomNumberBelow_above(uint32_t below, uint32_t above)
    {
        Ref<Self> random = makeObject<Self>();
        random->checkAndSetBounds(below, above);
        return random;
    }
    // Bounds (below, 0) and (0xFFFFFFFF, above).
    template <class Self = TXZonRandom>
    static Ref<Self> randomNumberBelow(uint32_t below)
    {
        return randomNumberBelow_above<Self>(below, 0);
    }
    template <class Self = TXZonRandom>
    static Ref<Self> randomNumberAbove(uint32_t above)
    {
        return randomNumberBelow_above<Self>(UINT32_MAX, above);
    }

    // A value strictly between the bounds; 0 (outside the range) when no integer lies between
    // them. randomNumberValueBelow(n) thus gives 1 ... n - 1, never 0.
    uint32_t randomNumberValue() const { return valueStrictlyBetween(belowValue_, aboveValue_); }
    // The same value as an unsigned number.
    Ref<Number> randomNumber() const;
    // One value with these bounds, as an instance with them would draw it (the bounds are
    // checked as the initialiser checks them).
    static uint32_t randomNumberValueBelow_above(uint32_t below, uint32_t above);
    static uint32_t randomNumberValueBelow(uint32_t below) { return randomNumberValueBelow_above(below, 0); }
    static uint32_t randomNumberValueAbove(uint32_t above) { return randomNumberValueBelow_above(UINT32_MAX, above); }

    uint32_t belowValue() const { return belowValue_; }
    void setBelowValue(uint32_t below) { belowValue_ = below; }
    uint32_t aboveValue() const { return aboveValue_; }
    void setAboveValue(uint32_t above) { aboveValue_ = above; }

protected:
    TXZonRandom() = default;
    void checkAndSetBounds(uint32_t below, uint32_t above);
    static uint32_t valueStrictlyBetween(uint32_t below, uint32_t above);

private:
    uint32_t belowValue_ = 0;
    uint32_t aboveValue_ = 0;
};

} // namespace zon
