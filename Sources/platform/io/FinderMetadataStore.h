#pragma once

#include "platform/Export.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace zon {

// The 32 bytes of a file's Finder information as the original platform lays them out: type code
// (4 bytes, big-endian), creator code (4), Finder flags (2), then location and reserved fields.
using FinderInfoBytes = std::array<uint8_t, 32>;

// The Finder information of the file at path, from the first metadata store that holds some;
// nullopt when none does.
ZON_EXPORT std::optional<FinderInfoBytes> readFinderInfo(const std::string& path);

} // namespace zon
