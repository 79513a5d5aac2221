#pragma once

// EXIF, as far as the readers need it: the orientation a camera recorded and the resolution. The
// APP1 payload comes from anywhere, so the parser bounds every offset and count and answers the
// defaults for what it cannot read.

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace zon {

struct ExifFacts {
    // 1 (upright) to 8, as the Orientation tag numbers them.
    int orientation = 1;
    // Dots per inch, when the file says.
    std::optional<double> horizontalDPI;
    std::optional<double> verticalDPI;
};

// Reads a JPEG APP1 payload ("Exif\0\0", then a TIFF header and its first IFD).
ZON_EXPORT ExifFacts readExifFacts(std::span<const uint8_t> app1);

// Orientations 5 to 8 turn the image a quarter, so its upright width is its stored height.
inline bool orientationSwapsSides(int orientation) { return orientation >= 5 && orientation <= 8; }

// The RGBA pixels of a width x height image turned upright; the input itself for orientation 1
// or an unknown one.
ZON_EXPORT std::vector<uint8_t> orientPixels(std::vector<uint8_t> pixels, uint32_t width, uint32_t height, int orientation);

} // namespace zon
