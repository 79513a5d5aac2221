#pragma once

// The PNG writer's zlib and filter settings, open to the benchmark that chose them.

#include "platform/graphics/ImageCodecsInternal.h"

namespace zon {

struct PNGWriteSettings {
    int compressionLevel; // zlib's 0 to 9
    int filters;          // libpng's PNG_FILTER_* mask
};

// What encodePNG uses. Its output is mostly thumbnails, small and written while someone waits. On
// a photo-like 261 x 174 thumbnail, level 1 with the Sub filter was the fastest of zlib levels
// 1, 3, 6 and 9 with no, Sub, Paeth or adaptive filtering, 3 % larger than level 3 and 16 % larger
// than level 9, which took seven times as long (Benchmarks/ImageCodecBenchmarks.cpp).
ZON_EXPORT PNGWriteSettings defaultPNGWriteSettings();

ZON_EXPORT std::optional<std::vector<uint8_t>> encodePNGWithSettings(
    const CGImage& image, std::span<const PNGTextEntry> text, PNGWriteSettings settings);

} // namespace zon
