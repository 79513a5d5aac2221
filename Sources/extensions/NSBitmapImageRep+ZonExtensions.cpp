// NSBitmapImageRep(ZonImageExtensions): previews of files, the two-pass scaling to a target size,
// and JPEG encoding.

#include "platform/graphics/BitmapImageRep.h"

#include "logger/ZonLog.h"
#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/graphics/PreviewService.h"
#include "platform/io/FileManager.h"
#include "platform/runtime/Class.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

#include <cmath>

namespace zon {

namespace {

// A requested side in whole pixels, clamped to what the preview service takes.
uint32_t previewSide(float side)
{
    if (!(side >= 1))
        return 0;
    return side >= float(kMaxImageSide) ? kMaxImageSide : uint32_t(side);
}

// A new empty context with high interpolation that takes image drawn into rect; nil when the
// context cannot be made.
Ref<CGImage> drawnAlone(float width, float height, Rect rect, const CGImage* image)
{
    Ref<CGContext> context = adoptRef(CGBitmapContextCreateEmptyContext(width, height));
    if (!context || !image)
        return nullptr;
    context->setInterpolationQuality(kCGInterpolationHigh);
    context->drawImage(rect, image, CompositingOperation::sourceOver);
    context->flush();
    return context->makeImage();
}

} // namespace

Ref<BitmapImageRep> BitmapImageRep::quickLookImageFromSourceURL_width_height(const URL* url, float width, float height)
{
    Ref<String> path = url ? url->path() : nullptr;
    bool isDirectory = false;
    if (!path || !FileManager::defaultManager()->fileExistsAtPath_isDirectory(path.get(), &isDirectory) || isDirectory) {
        zon_log_obj(__FILE__, __LINE__, staticClass(), logger::kLevelDetail, kDefaultLogIdentifier,
            "Failed to create QuickLook thumbnail from url: %@ as file not found", url);
        return nullptr;
    }
    std::optional<Preview> preview = previewOfFile(path->UTF8String(), previewSide(width), previewSide(height));
    if (!preview || !preview->image) {
        zon_log_obj(__FILE__, __LINE__, staticClass(), logger::kLevelDetail, kDefaultLogIdentifier,
            "Failed to create QuickLook thumbnail from url: %@", url);
        return nullptr;
    }
    return initWithCGImage(preview->image.get());
}

Ref<BitmapImageRep> BitmapImageRep::quickLookImageFromSourceURL_size(const URL* url, Size size)
{
    return quickLookImageFromSourceURL_width_height(url, float(size.width), float(size.height));
}

// The height alone decides the scale; the scaled width is rounded half away from zero, the scaled
// height is not rounded. The first pass draws the whole image at that size, the second centres it
// on the target, so a wider image is cut on both sides and a narrower one gets transparent bands.
Ref<BitmapImageRep> BitmapImageRep::imageRepWithImageRep_scaledToSize(const BitmapImageRep* rep, Size size)
{
    if (!rep)
        return nullptr;
    const float targetWidth = float(size.width), targetHeight = float(size.height);
    const float scale = targetHeight / float(rep->pixelsHigh());
    const float width = std::round(float(rep->pixelsWide()) * scale);
    const float height = float(rep->pixelsHigh()) * scale;

    Ref<CGImage> scaled = drawnAlone(width, height, makeRect(0, 0, width, height), rep->cgImage());
    const Rect centred = makeRect((targetWidth - width) * 0.5f, (targetHeight - height) * 0.5f, width, height);
    Ref<CGImage> placed = drawnAlone(targetWidth, targetHeight, centred, scaled.get());
    return initWithCGImage(placed.get());
}

Ref<Data> BitmapImageRep::JPEGRepresentationOfImage() const
{
    std::optional<std::vector<uint8_t>> jpeg = encodeJPEG(*image_);
    if (!jpeg)
        return nullptr;
    return Data::dataWithBytes(jpeg->data(), jpeg->size());
}

} // namespace zon
