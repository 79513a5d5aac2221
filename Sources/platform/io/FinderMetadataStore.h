#pragma once

#include "platform/Export.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zon {

// The 32 bytes of a file's Finder information as the original platform lays them out: type code
// (4 bytes, big-endian), creator code (4), Finder flags (2), then location and reserved fields.
using FinderInfoBytes = std::array<uint8_t, 32>;

// Where the Finder metadata of a file lives on Linux: the places Samba's Mac support and netatalk
// keep it, so that a file served to the original platform's clients shows them what we wrote.
//   - the user.org.netatalk.Metadata extended attribute (a 402-byte AppleDouble header holding
//     the Finder information at offset 122),
//   - the AppleDouble sidecar "._name" beside the file (Finder information and resource fork),
//   - the attributes user.org.netatalk.ResourceFork and user.com.apple.FinderInfo /
//     user.com.apple.ResourceFork, read only.
// Where the file system has no extended attributes the sidecar alone serves.

// The Finder information of the file at path, from the first store that holds some; nullopt when
// none does (or the file is missing).
ZON_EXPORT std::optional<FinderInfoBytes> readFinderInfo(const std::string& path);
// Stores info in the attribute and in the sidecar. False when neither could be written.
ZON_EXPORT bool writeFinderInfo(const std::string& path, const FinderInfoBytes& info);

// The resource fork of the file at path from the first store that holds one; empty when none
// does. The blank fork the original writes for files without resources counts as empty.
ZON_EXPORT std::vector<uint8_t> readResourceFork(const std::string& path);
// Stores fork in the sidecar (keeping the Finder information there). False on failure.
ZON_EXPORT bool writeResourceFork(const std::string& path, std::span<const uint8_t> fork);

} // namespace zon
