#include "platform/graphics/ImageShrinkInternal.h"

#include <algorithm>
#include <cmath>

namespace zon {

double fitScale(uint32_t width, uint32_t height, uint32_t boxWidth, uint32_t boxHeight)
{
    if (width == 0 || height == 0 || boxWidth == 0 || boxHeight == 0)
        return 1;
    return std::min({1.0, double(boxWidth) / width, double(boxHeight) / height});
}

bool keepsTwiceFitted(uint32_t width, uint32_t height, double scale, uint64_t outWidth, uint64_t outHeight)
{
    return double(outWidth) >= 2 * scale * width && double(outHeight) >= 2 * scale * height;
}

uint32_t boxShrinkFactor(uint32_t width, uint32_t height, uint32_t boxWidth, uint32_t boxHeight)
{
    const double scale = fitScale(width, height, boxWidth, boxHeight);
    if (scale >= 0.5)
        return 1;
    uint32_t factor = std::max(1u, uint32_t(std::floor(0.5 / scale)));
    while (factor > 1
        && !keepsTwiceFitted(width, height, scale, RowBoxShrinker::shrunkSide(width, factor),
            RowBoxShrinker::shrunkSide(height, factor)))
        --factor;
    while (keepsTwiceFitted(width, height, scale, RowBoxShrinker::shrunkSide(width, factor + 1),
        RowBoxShrinker::shrunkSide(height, factor + 1)))
        ++factor;
    return factor;
}

void premultiplyRGBA(std::span<uint8_t> pixels)
{
    for (size_t i = 0; i + 3 < pixels.size(); i += 4) {
        const uint32_t alpha = pixels[i + 3];
        if (alpha == 255)
            continue;
        for (size_t c = 0; c < 3; ++c) {
            const uint32_t product = pixels[i + c] * alpha + 128;
            pixels[i + c] = uint8_t((product + (product >> 8)) >> 8);
        }
    }
}

RowBoxShrinker::RowBoxShrinker(uint32_t width, uint32_t height, uint32_t factor, std::span<uint8_t> output)
    : width_(width)
    , height_(height)
    , factor_(factor)
    , outWidth_(shrunkSide(width, factor))
    , output_(output)
    , sums_(size_t(outWidth_) * 4)
{
}

void RowBoxShrinker::addRow(const uint8_t* row)
{
    if (rowsAdded_ >= height_)
        return;
    // Block by block, so that no pixel pays for a division.
    const uint8_t* pixel = row;
    uint32_t* cell = sums_.data();
    for (uint32_t x = 0; x < width_; x += factor_, cell += 4) {
        const uint32_t columns = std::min(factor_, width_ - x);
        uint32_t r = 0, g = 0, b = 0, a = 0;
        for (uint32_t column = 0; column < columns; ++column, pixel += 4) {
            r += pixel[0];
            g += pixel[1];
            b += pixel[2];
            a += pixel[3];
        }
        cell[0] += r;
        cell[1] += g;
        cell[2] += b;
        cell[3] += a;
    }
    ++rowsAdded_;
    if (++rowsInBand_ == factor_ || rowsAdded_ == height_)
        flushBand();
}

void RowBoxShrinker::finish()
{
    if (rowsInBand_ > 0)
        flushBand();
}

void RowBoxShrinker::flushBand()
{
    const uint32_t outY = (rowsAdded_ - 1) / factor_;
    uint8_t* out = output_.data() + size_t(outY) * outWidth_ * 4;
    for (uint32_t outX = 0; outX < outWidth_; ++outX) {
        const uint32_t columns = std::min(factor_, width_ - outX * factor_);
        const uint32_t count = columns * rowsInBand_;
        for (size_t c = 0; c < 4; ++c) {
            uint32_t& sum = sums_[size_t(outX) * 4 + c];
            out[size_t(outX) * 4 + c] = uint8_t((sum + count / 2) / count);
            sum = 0;
        }
    }
    rowsInBand_ = 0;
}

} // namespace zon
