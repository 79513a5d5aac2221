#pragma once

// What the image reader fuzz targets share: limits small enough that no input can make a reader
// allocate more than a few tens of megabytes, and the promises every decoded image keeps.

#include "FuzzSupport.h"

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageInputInternal.h"
#include "platform/graphics/ImageReadersInternal.h"

namespace zon::fuzz {

inline constexpr ImageLimits kSmallImageLimits {.maxPixels = 1 << 20, .maxSide = 4096, .decoderMemory = 32 << 20};

// A decoded image has its reason or its pixels, within the limits, premultiplied.
inline void checkDecoded(const DecodedImage& decoded)
{
    check(bool(decoded) == (decoded.error == ImageDecodeError::none));
    if (!decoded)
        return;
    const CGImage& image = *decoded.image;
    check(kSmallImageLimits.allows(image.width(), image.height()));
    check(image.byteCount() == image.width() * image.height() * 4);
    for (size_t i = 0; i < image.byteCount(); i += 4)
        check(image.bytes()[i] <= image.bytes()[i + 3] && image.bytes()[i + 1] <= image.bytes()[i + 3]
            && image.bytes()[i + 2] <= image.bytes()[i + 3]);
}

// Decodes at full size and into a small box, the two paths a reader takes.
template <class Read>
void decodeBothWays(const uint8_t* data, size_t size, Read read)
{
    for (const DecodeBox box : {DecodeBox {}, DecodeBox {32, 32}}) {
        ImageInput input = ImageInput::fromBytes({data, size});
        checkDecoded(read(input, box, kSmallImageLimits));
    }
}

} // namespace zon::fuzz
