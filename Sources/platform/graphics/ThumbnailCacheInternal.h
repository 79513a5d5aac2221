#pragma once

// The desktop's shared thumbnail cache: PNG files named by the MD5 of the file's URI, in one
// folder per size class, each saying in tEXt chunks which file (Thumb::URI) at which modification
// time (Thumb::MTime) it shows. Another program may have written any entry, so entries are read
// through a bounded chunk reader and the bounded PNG reader.

#include "platform/Export.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/runtime/Ref.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zon {

class CGImage;

// A size class of the cache: its folder name and the side its entries fit in.
struct ThumbnailBucket {
    std::string_view folder;
    uint32_t side = 0;
};
// The smallest size class that holds a maxWidth x maxHeight request; nullopt above the largest.
ZON_EXPORT std::optional<ThumbnailBucket> thumbnailBucketFor(uint32_t maxWidth, uint32_t maxHeight);

// "file://" and the absolute path escaped as the desktop's URI conversion does it: ASCII letters,
// digits and !$&'()*+,-./:=@_~ as they are, every other byte as %XX with upper-case digits.
ZON_EXPORT std::string fileURIOfPath(std::string_view absolutePath);

// At most this many chunks besides the image data, and this much tEXt data, before an entry is
// refused.
inline constexpr size_t kMaxThumbnailTextChunks = 64;
inline constexpr size_t kMaxThumbnailTextBytes = 64 * 1024;
// The tEXt chunks of a PNG file, wherever they are; nullopt for bytes that are not a PNG file,
// a chunk that runs past the end, no IEND, or more chunks or text than the caps above.
ZON_EXPORT std::optional<std::vector<PNGTextEntry>> readPNGTextChunks(std::span<const uint8_t> png);

// The file a thumbnail is asked of, as the cache keys it.
struct ThumbnailSubject {
    std::string uri;
    std::string modificationTime; // whole seconds, in decimal
    std::string byteSize;         // in decimal
    std::string mimeType;         // empty when unknown
};

// Whether the entry's Thumb::URI and Thumb::MTime are the subject's.
ZON_EXPORT bool thumbnailEntryMatches(std::span<const uint8_t> png, const ThumbnailSubject& subject);

// The cache at one root folder ($XDG_CACHE_HOME/thumbnails normally; any folder in tests).
class ZON_EXPORT ThumbnailCache {
public:
    explicit ThumbnailCache(std::string root) : root_(std::move(root)) {}
    // The user's cache: $XDG_CACHE_HOME/thumbnails, else ~/.cache/thumbnails; nullopt without
    // a home folder.
    static std::optional<ThumbnailCache> user();

    const std::string& root() const { return root_; }
    // Whether path lies inside the cache folder (thumbnails are not made of thumbnails).
    bool contains(std::string_view path) const;
    std::string entryPath(const ThumbnailSubject& subject, const ThumbnailBucket& bucket) const;
    std::string failureMarkerPath(const ThumbnailSubject& subject) const;

    // The valid entry of the bucket, decoded to fit maxWidth x maxHeight; nil when there is none.
    Ref<CGImage> find(const ThumbnailSubject& subject, const ThumbnailBucket& bucket, uint32_t maxWidth,
        uint32_t maxHeight) const;
    // Writes image (at most the bucket's side) as the bucket's entry: a temporary file in the
    // bucket renamed into place, mode 0600. False when it could not be written.
    bool store(const ThumbnailSubject& subject, const ThumbnailBucket& bucket, const CGImage& image) const;
    // A failure marker for the subject at its current modification time.
    bool hasFailureMarker(const ThumbnailSubject& subject) const;
    bool markFailure(const ThumbnailSubject& subject) const;

private:
    bool writeEntry(const std::string& folder, const std::string& path, const CGImage& image,
        const ThumbnailSubject& subject) const;
    std::string root_;
};

} // namespace zon
