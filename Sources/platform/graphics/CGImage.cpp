#include "platform/graphics/CGImage.h"

#include "platform/runtime/Class.h"

namespace zon {

ZON_DEFINE_CLASS(CGImage, "CGImage")

CGImage::CGImage(size_t width, size_t height, std::vector<uint8_t> pixels)
    : width_(width)
    , height_(height)
    , pixels_(std::move(pixels))
{
}

Ref<CGImage> CGImage::imageWithPixels(size_t width, size_t height, std::vector<uint8_t> pixels)
{
    if (width == 0 || height == 0 || width > SIZE_MAX / kBytesPerPixel / height)
        return nullptr;
    if (pixels.size() != width * height * kBytesPerPixel)
        return nullptr;
    return makeObject<CGImage>(width, height, std::move(pixels));
}

} // namespace zon
