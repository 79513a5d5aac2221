#pragma once

// The library's glue to pixman, shared by the bitmap context and fit scaling. Pixels are CGImage's
// layout, R, G, B, A bytes in memory, which is pixman's PIXMAN_a8b8g8r8 on a little-endian machine
// (the format names the bits of a 32-bit word, alpha highest).

#include "platform/graphics/BitmapContext.h"

#include <pixman.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

static_assert(std::endian::native == std::endian::little, "PIXMAN_a8b8g8r8 is R, G, B, A in memory only on little-endian machines");

namespace zon {

class CGImage;

struct PixmanImageUnref {
    void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
};
using PixmanImage = std::unique_ptr<pixman_image_t, PixmanImageUnref>;

// How many bits of sub-pixel phase the Lanczos filter tables resolve (2^bits phases per axis).
// Chosen by measurement (docs/Images.md): more bits cost table set-up and cache, not quality one
// can see at thumbnail sizes.
inline constexpr int kLanczosSubsampleBits = 2;

// The image's pixels as a pixman source (read only; the image must outlive it). Null when the
// image is too large for pixman's int geometry or memory runs out.
PixmanImage wrapForReading(const CGImage& image);

// Makes source coordinates = destination coordinates x scale + offset, edges repeated (PAD).
// False when the numbers do not fit pixman's 16.16 fixed point.
bool setPlacement(pixman_image_t* source, double scaleX, double scaleY, double offsetX, double offsetY);

// The resampling filter for drawing at that scale (source pixels per destination pixel): High is
// a Lanczos-3 separable convolution (the kernel widened by the scale when shrinking), None the
// nearest pixel, the others bilinear. False when the filter cannot be made.
bool setFilter(pixman_image_t* source, CGInterpolationQuality quality, double scaleX, double scaleY);

// A pixman destination over rows whose length may not be a multiple of 4 bytes (pixman needs
// that): such rows are copied into an aligned buffer and back by writeBack(); others are drawn in
// place.
class AlignedPixels {
public:
    AlignedPixels(uint8_t* bytes, size_t width, size_t height, size_t bytesPerRow);
    explicit operator bool() const { return image_ != nullptr; }
    pixman_image_t* image() const { return image_.get(); }
    void writeBack();

private:
    uint8_t* bytes_;
    size_t width_;
    size_t height_;
    size_t bytesPerRow_;
    std::vector<uint32_t> copy_;
    PixmanImage image_;
};

} // namespace zon
