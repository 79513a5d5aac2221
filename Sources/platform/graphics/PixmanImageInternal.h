#pragma once

// The library's glue to pixman, shared by the drawing units. Pixels are CGImage's layout, R, G, B,
// A bytes in memory, which is pixman's PIXMAN_a8b8g8r8 on a little-endian machine (the format
// names the bits of a 32-bit word, alpha highest). Every pixman image over them is declared
// PIXMAN_a8r8g8b8 instead: the two differ only in which end red and blue sit, and everything the
// library asks of pixman (resampling, SRC, OVER, ADD, OUT_REVERSE, alpha-only masks) treats red and
// blue alike, so the bytes come out the same, while pixman's fast paths (its separable-convolution
// fetchers among them) exist for a8r8g8b8 only. Measured: the Lanczos draw takes half the time.

#include "platform/graphics/BitmapContext.h"

#include <pixman.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

static_assert(std::endian::native == std::endian::little, "PIXMAN_a8b8g8r8 is R, G, B, A in memory only on little-endian machines");

namespace zon {
// The format every pixman image of the library is declared in (see above).
inline constexpr pixman_format_code_t kPixmanFormat = PIXMAN_a8r8g8b8;
} // namespace zon

namespace zon {

class CGImage;

struct PixmanImageUnref {
    void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
};
using PixmanImage = std::unique_ptr<pixman_image_t, PixmanImageUnref>;

// How many bits of sub-pixel phase the Lanczos filter tables resolve (2^bits phases per axis).
// Measured (docs/Images.md): 0 to 4 bits cost the same within noise, so the finest of them.
inline constexpr int kLanczosSubsampleBits = 4;

// The image's pixels as a pixman source (read only; the image must outlive it). Null when the
// image is too large for pixman's int geometry or memory runs out.
PixmanImage wrapForReading(const CGImage& image);

// Makes source coordinates = destination coordinates x scale + offset, edges repeated (PAD).
// False when the numbers do not fit pixman's 16.16 fixed point.
bool setPlacement(pixman_image_t* source, double scaleX, double scaleY, double offsetX, double offsetY);

// The resampling filter for drawing at that scale (source pixels per destination pixel): None the
// nearest pixel, High and the others bilinear. High is drawn in two passes of setLanczosFilter.
bool setFilter(pixman_image_t* source, CGInterpolationQuality quality);

// A Lanczos-3 separable convolution along one axis (the kernel widened by the scale when
// shrinking), each pixel of the other axis taken as it is. pixman sums every tap of its 2-D
// window, so one pass per axis costs the sum of the taps rather than their product.
enum class Axis { horizontal, vertical };
bool setLanczosFilter(pixman_image_t* source, Axis axis, double scale);

// A pixman destination over rows whose length may not be a multiple of 4 bytes (pixman's stride
// must be): such rows are copied into an aligned buffer and back by writeBack(); others are drawn
// in place.
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
