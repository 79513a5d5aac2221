#include "platform/graphics/ImageScalingInternal.h"

#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/CGImage.h"

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

size_t boxFactor(double scale)
{
    return scale >= kBoxShrinkAbove ? size_t(scale / (kBoxShrinkAbove / 2)) : 1;
}

// Each output pixel the average of a factorX x factorY block of premultiplied pixels; the blocks of
// the last column and row hold what is left. Nil when memory runs out.
Ref<CGImage> boxShrink(const CGImage& image, size_t factorX, size_t factorY)
{
    const size_t width = image.width(), height = image.height();
    const size_t outWidth = (width + factorX - 1) / factorX, outHeight = (height + factorY - 1) / factorY;
    std::vector<uint8_t> pixels;
    std::vector<uint32_t> sums;
    try {
        pixels.resize(outWidth * outHeight * CGImage::kBytesPerPixel);
        sums.resize(outWidth * CGImage::kBytesPerPixel);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    for (size_t outY = 0; outY < outHeight; ++outY) {
        std::fill(sums.begin(), sums.end(), 0);
        const size_t rowEnd = std::min(height, (outY + 1) * factorY);
        for (size_t y = outY * factorY; y < rowEnd; ++y) {
            const uint8_t* row = image.bytes() + y * image.bytesPerRow();
            for (size_t outX = 0; outX < outWidth; ++outX) {
                uint32_t* sum = &sums[outX * 4];
                const size_t columnEnd = std::min(width, (outX + 1) * factorX);
                for (size_t x = outX * factorX; x < columnEnd; ++x) {
                    const uint8_t* pixel = row + x * 4;
                    sum[0] += pixel[0];
                    sum[1] += pixel[1];
                    sum[2] += pixel[2];
                    sum[3] += pixel[3];
                }
            }
        }
        const uint32_t rows = uint32_t(rowEnd - outY * factorY);
        uint8_t* out = pixels.data() + outY * outWidth * 4;
        for (size_t outX = 0; outX < outWidth; ++outX) {
            const uint32_t count = rows * uint32_t(std::min(width, (outX + 1) * factorX) - outX * factorX);
            for (size_t channel = 0; channel < 4; ++channel)
                out[outX * 4 + channel] = uint8_t((sums[outX * 4 + channel] + count / 2) / count);
        }
    }
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

    const size_t factorX = boxFactor(width / double(targetWidth)), factorY = boxFactor(height / double(targetHeight));
    Ref<CGImage> source(const_cast<CGImage*>(image));
    // Partial last blocks make the shrunk image cover a little more than the original; drawing it
    // that much larger keeps every other pixel where it belongs and lets the surplus fall off.
    double drawnWidth = double(targetWidth), drawnHeight = double(targetHeight);
    if (factorX > 1 || factorY > 1) {
        source = boxShrink(*image, factorX, factorY);
        if (!source)
            return nullptr;
        drawnWidth *= double(source->width() * factorX) / width;
        drawnHeight *= double(source->height() * factorY) / height;
    }
    // The origin is the bottom left: the surplus rows must fall below the context.
    context->drawImage(makeRect(0, double(targetHeight) - drawnHeight, drawnWidth, drawnHeight), source.get(),
        CompositingOperation::copy);
    return context->makeImage();
}

} // namespace zon
