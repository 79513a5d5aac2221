#include "platform/graphics/ImageScalingInternal.h"

#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageShrinkInternal.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

namespace zon {

namespace {

// pixman's separable convolution still sums every tap of the 2-D window, so its cost grows with
// the square of the scale. A shrink by more than this much first averages whole blocks of pixels
// (cheap, one pass over the source) so that the Lanczos filter is left a factor between
// kBoxShrinkAbove / 2 and kBoxShrinkAbove, where it is fast and still has room to band-limit.
constexpr double kBoxShrinkAbove = 4;

uint32_t boxFactor(double scale)
{
    return scale >= kBoxShrinkAbove ? uint32_t(scale / (kBoxShrinkAbove / 2)) : 1;
}

Ref<CGImage> boxShrink(const CGImage& image, uint32_t factor)
{
    const uint32_t width = uint32_t(image.width()), height = uint32_t(image.height());
    const size_t outWidth = RowBoxShrinker::shrunkSide(width, factor), outHeight = RowBoxShrinker::shrunkSide(height, factor);
    std::vector<uint8_t> pixels;
    try {
        pixels.resize(outWidth * outHeight * CGImage::kBytesPerPixel);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    RowBoxShrinker shrinker(width, height, factor, pixels);
    for (size_t row = 0; row < height; ++row)
        shrinker.addRow(image.bytes() + row * image.bytesPerRow());
    shrinker.finish();
    return CGImage::imageWithPixels(outWidth, outHeight, std::move(pixels));
}

} // namespace

Ref<CGImage> imageScaledToFit(const CGImage* image, uint32_t boxWidth, uint32_t boxHeight)
{
    if (!image)
        return nullptr;
    const double width = double(image->width()), height = double(image->height());
    const double scale = std::min(double(boxWidth) / width, double(boxHeight) / height);
    if (scale >= 1 || boxWidth == 0 || boxHeight == 0)
        return Ref<CGImage>(const_cast<CGImage*>(image));
    const size_t targetWidth = std::max<size_t>(1, size_t(std::lround(width * scale)));
    const size_t targetHeight = std::max<size_t>(1, size_t(std::lround(height * scale)));
    Ref<CGContext> context = CGContext::bitmapContext(targetWidth, targetHeight, targetWidth * CGImage::kBytesPerPixel);
    if (!context)
        return nullptr;
    context->setInterpolationQuality(kCGInterpolationHigh);

    const uint32_t factor = boxFactor(std::min(width / double(targetWidth), height / double(targetHeight)));
    Ref<CGImage> source(const_cast<CGImage*>(image));
    // Partial last blocks make the shrunk image cover a little more than the original; drawing it
    // that much larger keeps every other pixel where it belongs and lets the surplus fall off.
    double drawnWidth = double(targetWidth), drawnHeight = double(targetHeight);
    if (factor > 1) {
        source = boxShrink(*image, factor);
        if (!source)
            return nullptr;
        drawnWidth *= double(source->width() * factor) / width;
        drawnHeight *= double(source->height() * factor) / height;
    }
    // The origin is the bottom left: the surplus rows must fall below the context.
    context->drawImage(makeRect(0, double(targetHeight) - drawnHeight, drawnWidth, drawnHeight), source.get(),
        CompositingOperation::copy);
    return context->makeImage();
}

} // namespace zon
