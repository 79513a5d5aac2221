#pragma once

// Shrinking while decoding. A caller that gives a box will scale the result to fit in it, so a
// reader may decode smaller as long as the result stays at least twice the fitted size: the
// caller's high-quality filter does the last step from there.

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zon {

// The scale that fits width x height in the box, aspect kept; 1 when it fits already or the box
// is empty (nothing is scaled up).
ZON_EXPORT double fitScale(uint32_t width, uint32_t height, uint32_t boxWidth, uint32_t boxHeight);

// Whether an image decoded at outWidth x outHeight is still at least twice the fitted size of a
// width x height image.
ZON_EXPORT bool keepsTwiceFitted(uint32_t width, uint32_t height, double scale, uint64_t outWidth, uint64_t outHeight);

// The largest integer factor whose box-shrunk result (sides divided, rounded up) stays at least
// twice the fitted size; 1 when no shrink is allowed.
ZON_EXPORT uint32_t boxShrinkFactor(uint32_t width, uint32_t height, uint32_t boxWidth, uint32_t boxHeight);

// Premultiplies 8-bit RGBA pixels in place.
ZON_EXPORT void premultiplyRGBA(std::span<uint8_t> pixels);

// Averages factor x factor blocks of premultiplied RGBA rows, fed top to bottom, into the output
// (ceil(width / factor) x ceil(height / factor), 4 bytes a pixel). Blocks cut by the right or
// bottom edge average the pixels they hold. Holds one output row of sums, so memory follows the
// output, not the input.
class ZON_EXPORT RowBoxShrinker {
public:
    RowBoxShrinker(uint32_t width, uint32_t height, uint32_t factor, std::span<uint8_t> output);

    static uint32_t shrunkSide(uint32_t side, uint32_t factor) { return (side + factor - 1) / factor; }

    // The next row, width x 4 bytes.
    void addRow(const uint8_t* row);
    // Writes a block row cut short by the end of the input; the output rows after it stay as they are.
    void finish();
    uint32_t rowsAdded() const { return rowsAdded_; }

private:
    void flushBand();

    uint32_t width_;
    uint32_t height_;
    uint32_t factor_;
    uint32_t outWidth_;
    std::span<uint8_t> output_;
    std::vector<uint32_t> sums_;
    uint32_t rowsAdded_ = 0;
    uint32_t rowsInBand_ = 0;
};

} // namespace zon
