#pragma once

#include "platform/runtime/Object.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zon {

// An immutable bitmap for drawing: 8-bit R, G, B, A in memory, colours premultiplied by alpha,
// rows of exactly width x 4 bytes, no padding. Run-time class CGImage. Immutable, so it may be
// shared between threads; a context's image is a copy of its pixels at that moment.
class ZON_EXPORT CGImage final : public Object {
    ZON_OBJECT(CGImage, Object)
public:
    static constexpr size_t kBytesPerPixel = 4;

    // Takes the pixels; nil when the size is zero, pixels.size() is not width x height x 4, or
    // width x 4 overflows.
    static Ref<CGImage> imageWithPixels(size_t width, size_t height, std::vector<uint8_t> pixels);

    size_t width() const { return width_; }
    size_t height() const { return height_; }
    size_t bytesPerRow() const { return width_ * kBytesPerPixel; }
    const uint8_t* bytes() const { return pixels_.data(); }
    size_t byteCount() const { return pixels_.size(); }

private:
    CGImage(size_t width, size_t height, std::vector<uint8_t> pixels);

    size_t width_;
    size_t height_;
    std::vector<uint8_t> pixels_;
};

} // namespace zon
