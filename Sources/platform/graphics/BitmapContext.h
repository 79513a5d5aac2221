#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/Geometry.h"

#include <cstddef>
#include <cstdint>

namespace zon {

class CGImage;

// How drawing resamples a scaled image. The values are the original platform's.
enum CGInterpolationQuality : int {
    kCGInterpolationDefault = 0,
    kCGInterpolationNone = 1,
    kCGInterpolationLow = 2,
    kCGInterpolationHigh = 3,
    kCGInterpolationMedium = 4,
};

// How drawn pixels combine with what the context holds: copy replaces the destination inside the
// drawn rectangle (source alpha included); source-over blends the source over it.
enum class CompositingOperation { copy, sourceOver };

// A bitmap drawing context in the layout of CGImage (R, G, B, A bytes, premultiplied, rows of
// width x 4 bytes), owning its memory, initially transparent black. Run-time class CGContext.
// Coordinates are in pixels with the origin at the bottom left, as on the original platform, so a
// rectangle's y counts from the last row; the memory holds the top row first. One thread at a time.
class ZON_EXPORT CGContext final : public Object {
    ZON_OBJECT(CGContext, Object)
public:
    // Nil for a zero size, a row length below width x 4, or a byte count that overflows.
    // bytesPerRow may exceed width x 4 (the bytes past each row's pixels stay zero) and need not be
    // a multiple of 4.
    static Ref<CGContext> bitmapContext(size_t width, size_t height, size_t bytesPerRow);

    size_t width() const;
    size_t height() const;
    size_t bytesPerRow() const;
    uint8_t* data();
    const uint8_t* data() const;

    CGInterpolationQuality interpolationQuality() const;
    void setInterpolationQuality(CGInterpolationQuality quality);

    // Draws the whole image scaled into rect (fractional edges are covered partially), combined by
    // operation, its alpha multiplied by opacity (0...1). What falls outside the context is cut off.
    // kCGInterpolationHigh resamples with a Lanczos filter; None takes the nearest pixel; the
    // others are bilinear.
    void drawImage(Rect rect, const CGImage* image, CompositingOperation operation = CompositingOperation::sourceOver,
        double opacity = 1.0);
    // Drawing is finished when drawImage returns; kept for the original's call sequence.
    void flush() {}
    // A copy of the pixels as they are now; nil only when memory runs out.
    Ref<CGImage> makeImage() const;

private:
    struct State;
    explicit CGContext(State* state);
    ~CGContext() override;

    State* state_;
};

} // namespace zon

extern "C" {

// A new bitmap context whose pixel width, height and row length are the truncated values of
// width, height and width x 4; null when it cannot be made (a size below 1 or too large). The
// caller owns the one reference it hands back (give it up with release()).
ZON_EXPORT zon::CGContext* CGBitmapContextCreateEmptyContext(float width, float height);

} // extern "C"
