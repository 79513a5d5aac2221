// Reads arbitrary bytes as a thumbnail cache entry's chunks and checks them against a subject, as
// the cache does with entries any program may have written. Checks that what is read lies within
// the input and the caps.

#include "FuzzSupport.h"

#include "platform/graphics/ThumbnailCacheInternal.h"

#include <cstdint>

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::span<const uint8_t> bytes(data, size);
    const auto entries = readPNGTextChunks(bytes);
    (void)thumbnailEntryMatches(bytes, {"file:///tmp/a.png", "1700000000", "10", "image/png"});
    if (!entries)
        return 0;
    fuzz::check(entries->size() <= kMaxThumbnailTextChunks);
    size_t text = 0;
    for (const PNGTextEntry& entry : *entries)
        text += entry.key.size() + 1 + entry.value.size();
    fuzz::check(text <= kMaxThumbnailTextBytes && text <= size);
    return 0;
}
