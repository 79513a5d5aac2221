#include "platform/graphics/PixmanImageInternal.h"

#include "platform/graphics/CGImage.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

namespace zon {

namespace {

constexpr size_t kMaxPixmanWidth = INT_MAX / CGImage::kBytesPerPixel;

// A kernel for one axis: shrinking integrates each source pixel (BOX) against a Lanczos-3 window
// widened to the scale, so that every source pixel contributes; enlarging reconstructs with
// Lanczos-3 and samples it at the pixel centre.
struct AxisKernel {
    pixman_fixed_t scale;
    pixman_kernel_t reconstruct;
    pixman_kernel_t sample;
};

// The kernel is 6 x scale taps wide; a draw stretched far more along one axis than the other (the
// block average follows the smaller shrink) would otherwise make it unboundedly wide.
constexpr double kMaxLanczosScale = 16;

AxisKernel lanczosFor(double scale)
{
    if (scale > 1)
        return {pixman_double_to_fixed(std::min(scale, kMaxLanczosScale)), PIXMAN_KERNEL_BOX, PIXMAN_KERNEL_LANCZOS3};
    return {pixman_fixed_1, PIXMAN_KERNEL_LANCZOS3, PIXMAN_KERNEL_IMPULSE};
}

} // namespace

PixmanImage wrapForReading(const CGImage& image)
{
    if (image.width() > kMaxPixmanWidth || image.height() > INT_MAX)
        return nullptr;
    // pixman only reads a source; the cast is for its one image type.
    auto* bits = reinterpret_cast<uint32_t*>(const_cast<uint8_t*>(image.bytes()));
    return PixmanImage(pixman_image_create_bits(
        kPixmanFormat, int(image.width()), int(image.height()), bits, int(image.bytesPerRow())));
}

bool setPlacement(pixman_image_t* source, double scaleX, double scaleY, double offsetX, double offsetY)
{
    pixman_f_transform exact;
    pixman_f_transform_init_identity(&exact);
    exact.m[0][0] = scaleX;
    exact.m[0][2] = offsetX;
    exact.m[1][1] = scaleY;
    exact.m[1][2] = offsetY;
    pixman_transform fixed;
    if (!pixman_transform_from_pixman_f_transform(&fixed, &exact) || !pixman_image_set_transform(source, &fixed))
        return false;
    pixman_image_set_repeat(source, PIXMAN_REPEAT_PAD);
    return true;
}

bool setFilter(pixman_image_t* source, CGInterpolationQuality quality)
{
    return pixman_image_set_filter(
        source, quality == kCGInterpolationNone ? PIXMAN_FILTER_NEAREST : PIXMAN_FILTER_BILINEAR, nullptr, 0);
}

bool setLanczosFilter(pixman_image_t* source, Axis axis, double scale)
{
    const AxisKernel resampled = lanczosFor(scale);
    // One tap of weight 1 (an impulse with an impulse gives pixman an empty filter).
    const AxisKernel kept {pixman_fixed_1, PIXMAN_KERNEL_BOX, PIXMAN_KERNEL_IMPULSE};
    const AxisKernel& x = axis == Axis::horizontal ? resampled : kept;
    const AxisKernel& y = axis == Axis::vertical ? resampled : kept;
    int count = 0;
    pixman_fixed_t* parameters = pixman_filter_create_separable_convolution(&count, x.scale, y.scale, x.reconstruct,
        y.reconstruct, x.sample, y.sample, kLanczosSubsampleBits, kLanczosSubsampleBits);
    if (!parameters)
        return false;
    const bool set = pixman_image_set_filter(source, PIXMAN_FILTER_SEPARABLE_CONVOLUTION, parameters, count);
    std::free(parameters);
    return set;
}

AlignedPixels::AlignedPixels(uint8_t* bytes, size_t width, size_t height, size_t bytesPerRow)
    : bytes_(bytes)
    , width_(width)
    , height_(height)
    , bytesPerRow_(bytesPerRow)
{
    const bool aligned = bytesPerRow % 4 == 0 && reinterpret_cast<uintptr_t>(bytes) % 4 == 0 && bytesPerRow <= INT_MAX;
    uint32_t* bits = reinterpret_cast<uint32_t*>(bytes);
    size_t stride = bytesPerRow;
    if (!aligned) {
        try {
            copy_.resize(width * height);
        } catch (const std::bad_alloc&) {
            return;
        }
        for (size_t row = 0; row < height; ++row)
            std::memcpy(&copy_[row * width], bytes + row * bytesPerRow, width * CGImage::kBytesPerPixel);
        bits = copy_.data();
        stride = width * CGImage::kBytesPerPixel;
    }
    image_.reset(pixman_image_create_bits(kPixmanFormat, int(width), int(height), bits, int(stride)));
}

void AlignedPixels::writeBack()
{
    if (copy_.empty())
        return;
    for (size_t row = 0; row < height_; ++row)
        std::memcpy(bytes_ + row * bytesPerRow_, &copy_[row * width_], width_ * CGImage::kBytesPerPixel);
}

} // namespace zon
