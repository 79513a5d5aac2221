#pragma once

#include "platform/Export.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zon {

// One resource of a resource file. The name is the Pascal string's bytes (Mac Roman), at most
// 255 of them; a resource without a name has none.
struct Resource {
    uint32_t type = 0;
    int16_t id = 0;
    uint8_t attributes = 0;
    std::optional<std::string> name;
    std::vector<uint8_t> data;
};

// The published resource fork layout: a 16-byte header (data and map offsets and lengths), the
// data (each resource a 32-bit length and its bytes), and the map (type list, reference lists,
// names). Resources keep their order; two with the same type and ID are both kept.
//
// Nullopt when bytes are not a resource file (offsets outside the bytes, a list past the map).
ZON_EXPORT std::optional<std::vector<Resource>> decodeResourceFile(std::span<const uint8_t> bytes);
// Types appear in the order of their first resource; data starts at offset 256.
ZON_EXPORT std::vector<uint8_t> encodeResourceFile(const std::vector<Resource>& resources);

// A four-character code as text ("icns"); bytes outside printable ASCII as \xNN.
ZON_EXPORT std::string fourCharCodeText(uint32_t code);

} // namespace zon
