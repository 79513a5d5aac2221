// NSImage(ZonExtensions): the square desktop thumbnail.

#include "platform/graphics/Image.h"

#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/CGImage.h"
#include "platform/values/AssertionHandler.h"

#include <algorithm>
#include <climits>

namespace zon {

namespace {

constexpr int kThumbnailSide = 109;

// The overflowing side's length in whole pixels, cut toward zero (held in an int like the offset
// computed from it; a degenerate image's infinite ratio saturates instead of overflowing).
int overflowLength(double longSide, double shortSide)
{
    const double length = longSide / shortSide * kThumbnailSide;
    return int(std::clamp(length, double(INT_MIN / 2), double(INT_MAX / 2)));
}

// Fills the square: the longer side overflows and is centred, the offset a signed integer division
// toward zero, so an odd overflow leaves the extra pixel on the far side.
Rect thumbnailRect(Size size)
{
    if (size.height > size.width) {
        const int length = overflowLength(size.height, size.width);
        return makeRect(0, (kThumbnailSide - length) / 2, kThumbnailSide, length);
    }
    if (size.width > size.height) {
        const int length = overflowLength(size.width, size.height);
        return makeRect((kThumbnailSide - length) / 2, 0, length, kThumbnailSide);
    }
    return makeRect(0, 0, kThumbnailSide, kThumbnailSide);
}

} // namespace

// The bitmap drawn is added to the new image as it is; the original round-trips it through TIFF,
// which keeps the same pixels.
Ref<Image> Image::desktopThumbnail() const
{
    Ref<Image> thumbnail = Image::initWithSize(makeSize(kThumbnailSide, kThumbnailSide));
    Ref<CGContext> context = adoptRef(CGBitmapContextCreateEmptyContext(kThumbnailSide, kThumbnailSide));
    if (!thumbnail || !context)
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(
            selector("desktopThumbnail"), this, __FILE__, __LINE__, "Failed to generated thumbnail for %@", this);
    context->setInterpolationQuality(kCGInterpolationHigh);
    drawInRect(context.get(), thumbnailRect(size()), CompositingOperation::copy, 1.0);
    thumbnail->addRepresentation(BitmapImageRep::initWithCGImage(context->makeImage().get()).get());
    return thumbnail;
}

} // namespace zon
