#pragma once

#include "platform/Export.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace zon {

// One element of an icon family ('icns'): its four-character type and its bytes.
struct IconFamilyElement {
    uint32_t type = 0;
    std::vector<uint8_t> data;
};

// The icon family layout: 'icns' and the total length (big-endian), then each element as its
// type, its length including this 8-byte head, and its bytes.
ZON_EXPORT std::vector<uint8_t> encodeIconFamily(const std::vector<IconFamilyElement>& elements);
// Nullopt when bytes are not an icon family or an element runs past its end.
ZON_EXPORT std::optional<std::vector<IconFamilyElement>> decodeIconFamily(std::span<const uint8_t> bytes);

// The element type that holds a PNG image of side pixels: 'icp4' (16), 'icp5' (32), 'ic07'
// (128), 'ic08' (256), 'ic09' (512); 0 for other sizes.
ZON_EXPORT uint32_t pngIconElementType(int pixels);

} // namespace zon
