#pragma once

// The image readers behind ImageCodecsInternal.h, one per format, and what they share: the limits
// they enforce and the bytes they read. The dispatcher picks a reader by the leading bytes; fuzz
// targets call the readers directly with small limits.

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zon {

// What a decoder may spend. Every reader refuses an image over maxPixels or maxSide before it
// allocates pixels; decoderMemory bounds what a decoder allocates for itself (libjpeg's
// coefficient buffer for a progressive JPEG, libpng's chunk buffers).
struct ImageLimits {
    uint64_t maxPixels = kMaxImagePixels;
    uint32_t maxSide = kMaxImageSide;
    size_t decoderMemory = kMaxImageDecoderMemory;

    bool allows(uint64_t width, uint64_t height) const
    {
        return width > 0 && height > 0 && width <= maxSide && height <= maxSide && width * height <= maxPixels;
    }
};

// The box a caller will fit the image in; empty when it wants the full size.
struct DecodeBox {
    uint32_t width = 0;
    uint32_t height = 0;
    bool empty() const { return width == 0 || height == 0; }
};

class ImageInput;

ZON_EXPORT std::optional<ImageInfo> probeJPEG(std::span<const uint8_t> bytes);
ZON_EXPORT DecodedImage readJPEG(ImageInput& input, DecodeBox box, const ImageLimits& limits);

ZON_EXPORT std::optional<ImageInfo> probePNG(std::span<const uint8_t> bytes);
ZON_EXPORT DecodedImage readPNG(ImageInput& input, DecodeBox box, const ImageLimits& limits);

// Every format gdk-pixbuf's installed loaders know (GIF, BMP, TIFF, ICO, WebP, ...).
ZON_EXPORT std::optional<ImageInfo> probePixbuf(std::span<const uint8_t> bytes, const ImageLimits& limits = {});
ZON_EXPORT DecodedImage readPixbuf(ImageInput& input, DecodeBox box, const ImageLimits& limits);

// A failed decode carrying only its reason.
inline DecodedImage decodeFailure(ImageDecodeError error)
{
    DecodedImage result;
    result.error = error;
    return result;
}

} // namespace zon
