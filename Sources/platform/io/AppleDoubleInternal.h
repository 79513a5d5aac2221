#pragma once

// AppleDouble version 2 (RFC 1740) records as netatalk and Samba keep them: a 26-byte header
// (magic, version, 16-byte filler, entry count) and 12-byte entries (ID, offset, length).

#include "platform/io/FinderMetadataStore.h"

#include <optional>
#include <span>
#include <vector>

namespace zon::appleDouble {

constexpr uint32_t kFinderInfoEntry = 9;
constexpr uint32_t kResourceForkEntry = 2;
constexpr size_t kNetatalkMetadataSize = 402;
constexpr size_t kNetatalkFinderInfoOffset = 122;
constexpr size_t kSidecarFinderInfoOffset = 0x32;
constexpr size_t kSidecarResourceForkOffset = 0x52;

struct Entries {
    // The first 32 bytes of the entry (a longer one carries an "ATTR" block after them; a shorter
    // one is padded with zeros).
    std::optional<FinderInfoBytes> finderInfo;
    std::optional<std::span<const uint8_t>> resourceFork;
};

// Nullopt when bytes are not an AppleDouble record or an entry lies outside them. The filler is
// not checked: macOS writes "Mac OS X", netatalk "Netatalk", older writers zeros.
ZON_EXPORT std::optional<Entries> parse(std::span<const uint8_t> bytes);

// The netatalk metadata attribute: a 402-byte record with the Finder information, comment, dates,
// AFP file information and netatalk's private entries at the places netatalk and Samba expect.
// The other entries of previous (a valid record of that size) are kept.
ZON_EXPORT std::vector<uint8_t> encodeNetatalkMetadata(const FinderInfoBytes& info, std::span<const uint8_t> previous);
// A "._name" sidecar: the Finder information at 0x32, the fork at 0x52.
ZON_EXPORT std::vector<uint8_t> encodeSidecar(const FinderInfoBytes& info, std::span<const uint8_t> resourceFork);

// The 286-byte fork "This resource fork intentionally left blank" that stands for no resources.
ZON_EXPORT bool isBlankResourceFork(std::span<const uint8_t> fork);

} // namespace zon::appleDouble
