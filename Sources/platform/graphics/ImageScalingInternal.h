#pragma once

#include "platform/Export.h"
#include "platform/runtime/Ref.h"

#include <cstdint>

namespace zon {

class CGImage;

// The image scaled down to fit in the box, aspect kept, at high interpolation; the image itself
// when it already fits (nothing is ever scaled up). Nil only when memory runs out.
ZON_EXPORT Ref<CGImage> imageScaledToFit(const CGImage* image, uint32_t boxWidth, uint32_t boxHeight);

} // namespace zon
