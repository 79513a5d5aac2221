#include "platform/graphics/ImageScalingInternal.h"

#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/CGImage.h"

#include <algorithm>
#include <cmath>

namespace zon {

// One draw at high interpolation: the context's Lanczos path averages whole blocks first when the
// shrink is large, so this costs about one pass over the source.
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
    context->drawImage(makeRect(0, 0, double(targetWidth), double(targetHeight)), image, CompositingOperation::copy);
    return context->makeImage();
}

} // namespace zon
