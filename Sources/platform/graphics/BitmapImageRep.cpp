#include "platform/graphics/BitmapImageRep.h"

#include "platform/graphics/CGImage.h"
#include "platform/runtime/Class.h"

namespace zon {

ZON_DEFINE_CLASS(BitmapImageRep, "NSBitmapImageRep")

BitmapImageRep::BitmapImageRep(Ref<zon::CGImage> image, Size size)
    : image_(std::move(image))
    , size_(size)
{
}

Ref<BitmapImageRep> BitmapImageRep::initWithCGImage(const zon::CGImage* image)
{
    if (!image)
        return nullptr;
    return initWithCGImage_size(image, makeSize(double(image->width()), double(image->height())));
}

Ref<BitmapImageRep> BitmapImageRep::initWithCGImage_size(const zon::CGImage* image, Size size)
{
    if (!image)
        return nullptr;
    return makeObject<BitmapImageRep>(Ref<zon::CGImage>(const_cast<zon::CGImage*>(image)), size);
}

size_t BitmapImageRep::pixelsWide() const
{
    return image_->width();
}

size_t BitmapImageRep::pixelsHigh() const
{
    return image_->height();
}

} // namespace zon
