// Reads arbitrary bytes as an image container's headers. Checks that an answer names the
// container the bytes begin with and a positive, finite size.

#include "FuzzSupport.h"

#include "platform/graphics/ImageHeaderInternal.h"

#include <cmath>
#include <cstdint>
#include <cstring>

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::optional<ImageHeader> header = readImageHeader({data, size});
    if (!header)
        return 0;
    fuzz::check(header->width > 0 && header->height > 0 && std::isfinite(header->width) && std::isfinite(header->height));
    const bool icns = size >= 4 && std::memcmp(data, "icns", 4) == 0;
    fuzz::check(icns == (header->container == ImageContainer::icns));
    return 0;
}
