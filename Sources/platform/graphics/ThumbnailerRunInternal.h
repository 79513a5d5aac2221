#pragma once

// Runs a desktop thumbnailer as a confined child: its own session, stdin, stdout and stderr on
// /dev/null, a private temporary folder (0700, removed afterwards) as its working folder and
// output place, address-space and CPU limits, and a deadline after which its whole process group
// is killed. Its output is read back through the bounded PNG reader.

#include "platform/Export.h"
#include "platform/runtime/Ref.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace zon {

class CGImage;
struct Thumbnailer;

// The limits a thumbnailer runs under.
inline constexpr std::chrono::milliseconds kThumbnailerTimeout {10000};
inline constexpr uint64_t kThumbnailerAddressSpaceBytes = 2ull * 1024 * 1024 * 1024;
inline constexpr uint64_t kThumbnailerCPUSeconds = 10;
// A thumbnailer's PNG larger than this is refused unread.
inline constexpr size_t kMaxThumbnailerOutputBytes = 64 * 1024 * 1024;

// Tests shorten the deadline with this; zero restores kThumbnailerTimeout.
ZON_EXPORT void setThumbnailerTimeoutForTesting(std::chrono::milliseconds timeout);

// The thumbnailer's image of the file at path (its URI uri), asked at size and fitted in
// maxWidth x maxHeight; nil when it fails, times out or writes no readable PNG.
ZON_EXPORT Ref<CGImage> runThumbnailer(const Thumbnailer& thumbnailer, const std::string& path, const std::string& uri,
    uint32_t size, uint32_t maxWidth, uint32_t maxHeight);

} // namespace zon
