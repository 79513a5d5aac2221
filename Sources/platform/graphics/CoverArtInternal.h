#pragma once

// The cover art embedded in audio files, read with TagLib's per-format interfaces. Audio files
// come from anywhere: the containers are parsed by TagLib from bytes or a read-only descriptor,
// never written, and the picture bytes go to the bounded image readers.

#include "platform/Export.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zon {

// The audio containers that carry pictures, and where: ID3v2 attached pictures (MPEG), cover
// atoms (MP4), picture blocks (FLAC), METADATA_BLOCK_PICTURE comments (Ogg Vorbis and Opus),
// WM/Picture attributes (ASF).
enum class AudioContainer { mpeg, mp4, flac, ogg, asf };

// The container of a content type (a type identifier); nullopt for types that hold no art.
ZON_EXPORT std::optional<AudioContainer> audioContainerOfType(std::string_view typeIdentifier);

// A picture's bytes as stored (JPEG, PNG, ...): the front cover when the container marks one,
// else the first picture; nullopt when there is none or the container cannot be read.
ZON_EXPORT std::optional<std::vector<uint8_t>> coverArtOfBytes(std::span<const uint8_t> bytes, AudioContainer container);
// The same for a file, read in place; files larger than kMaxAudioFileBytes are refused.
inline constexpr uint64_t kMaxAudioFileBytes = 2ull * 1024 * 1024 * 1024 - 1;
ZON_EXPORT std::optional<std::vector<uint8_t>> coverArtOfFile(const std::string& path, AudioContainer container);

} // namespace zon
