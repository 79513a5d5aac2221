// Placeholder bodies so that the library links while the image readers and writers are written;
// the codec units replace this file.
#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"

namespace zon {

std::optional<ImageInfo> probeImage(std::span<const uint8_t>) { return std::nullopt; }
DecodedImage decodeImageData(std::span<const uint8_t>, uint32_t, uint32_t) { return {}; }
DecodedImage decodeImageFile(const std::string&, uint32_t, uint32_t) { return {}; }
DecodedImage decodePNGData(std::span<const uint8_t>, uint32_t, uint32_t) { return {}; }
std::optional<std::vector<uint8_t>> encodeJPEG(const CGImage&) { return std::nullopt; }
std::optional<std::vector<uint8_t>> encodePNG(const CGImage&, std::span<const PNGTextEntry>) { return std::nullopt; }

} // namespace zon
