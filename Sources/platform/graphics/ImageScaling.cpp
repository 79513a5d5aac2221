// Placeholder body until drawing lands.
#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageScalingInternal.h"

namespace zon {

Ref<CGImage> imageScaledToFit(const CGImage* image, uint32_t, uint32_t)
{
    return Ref<CGImage>(const_cast<CGImage*>(image));
}

} // namespace zon
