#include "platform/graphics/ImageInputInternal.h"
#include "platform/graphics/ImageReadersInternal.h"

namespace zon {

std::optional<ImageInfo> probePixbuf(std::span<const uint8_t>, const ImageLimits&) { return std::nullopt; }

DecodedImage readPixbuf(ImageInput&, DecodeBox, const ImageLimits&) { return decodeFailure(ImageDecodeError::unsupported); }

} // namespace zon
