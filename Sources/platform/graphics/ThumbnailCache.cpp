#include "platform/graphics/ThumbnailCacheInternal.h"

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageHeaderInternal.h"
#include "platform/io/BigEndianBytesInternal.h"
#include "platform/io/PathTextInternal.h"
#include "platform/io/StandardFolders.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>

namespace zon {

namespace {

constexpr std::array<ThumbnailBucket, 4> kBuckets {{
    {"normal", 128},
    {"large", 256},
    {"x-large", 512},
    {"xx-large", 1024},
}};

constexpr std::string_view kURIKey = "Thumb::URI";
constexpr std::string_view kMTimeKey = "Thumb::MTime";
// Entries larger than this are not thumbnails: 1024 x 1024 RGBA compresses to far less.
constexpr size_t kMaxEntryBytes = 16 * 1024 * 1024;

// The failure markers of this library's version, so that a newer one tries again.
constexpr std::string_view kFailureFolder = "fail/zoncommon-" ZON_LIBRARY_VERSION_MAJOR_MINOR;

bool isKeptInURI(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
        || std::string_view("!$&'()*+,-./:=@_~").find(char(c)) != std::string_view::npos;
}

std::string lowercaseMD5(std::string_view text)
{
    std::string digest = Data::dataWithBytes(text.data(), text.size())->md5Hash()->UTF8String();
    std::transform(digest.begin(), digest.end(), digest.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return digest;
}

const std::string* textValue(const std::vector<PNGTextEntry>& entries, std::string_view key)
{
    for (const PNGTextEntry& entry : entries)
        if (entry.key == key)
            return &entry.value;
    return nullptr;
}

std::optional<std::vector<uint8_t>> readEntry(const std::string& path)
{
    auto file = openForReading(path, ReadableKinds::regularFiles);
    if (!file)
        return std::nullopt;
    std::vector<uint8_t> bytes;
    if (!appendToEnd(file.value().get(), bytes, kMaxEntryBytes))
        return std::nullopt;
    return bytes;
}

} // namespace

std::optional<ThumbnailBucket> thumbnailBucketFor(uint32_t maxWidth, uint32_t maxHeight)
{
    const uint32_t side = std::max(maxWidth, maxHeight);
    for (const ThumbnailBucket& bucket : kBuckets)
        if (side <= bucket.side)
            return bucket;
    return std::nullopt;
}

std::string fileURIOfPath(std::string_view absolutePath)
{
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string uri = "file://";
    for (const unsigned char c : absolutePath) {
        if (isKeptInURI(c)) {
            uri.push_back(char(c));
        } else {
            uri.push_back('%');
            uri.push_back(kHex[c >> 4]);
            uri.push_back(kHex[c & 15]);
        }
    }
    return uri;
}

std::optional<std::vector<PNGTextEntry>> readPNGTextChunks(std::span<const uint8_t> png)
{
    if (!startsWithPNGSignature(png))
        return std::nullopt;
    std::vector<PNGTextEntry> entries;
    size_t textBytes = 0;
    size_t otherChunks = 0;
    // Writers put tEXt before or after the image data, so every chunk up to IEND is looked at.
    for (size_t offset = kPNGSignatureSize;;) {
        // Length, type, data, CRC.
        if (png.size() - offset < 12)
            return std::nullopt;
        const uint32_t length = bigEndian::load32(png, offset);
        const std::string_view type(reinterpret_cast<const char*>(png.data()) + offset + 4, 4);
        if (length > png.size() - offset - 12)
            return std::nullopt;
        if (type == "IEND")
            return entries;
        if (type != "IDAT" && ++otherChunks > kMaxThumbnailTextChunks)
            return std::nullopt;
        if (type == "tEXt") {
            textBytes += length;
            if (textBytes > kMaxThumbnailTextBytes)
                return std::nullopt;
            const std::string_view data(reinterpret_cast<const char*>(png.data()) + offset + 8, length);
            const size_t separator = data.find('\0');
            if (separator != std::string_view::npos)
                entries.push_back({std::string(data.substr(0, separator)), std::string(data.substr(separator + 1))});
        }
        offset += size_t(length) + 12;
    }
}

bool thumbnailEntryMatches(std::span<const uint8_t> png, const ThumbnailSubject& subject)
{
    const auto entries = readPNGTextChunks(png);
    if (!entries)
        return false;
    const std::string* uri = textValue(*entries, kURIKey);
    const std::string* mtime = textValue(*entries, kMTimeKey);
    return uri && mtime && *uri == subject.uri && *mtime == subject.modificationTime;
}

std::optional<ThumbnailCache> ThumbnailCache::user()
{
    Ref<String> cacheHome = xdgCacheHomeDirectory();
    if (!cacheHome)
        return std::nullopt;
    return ThumbnailCache(joinedPath(cacheHome->UTF8String(), "thumbnails"));
}

bool ThumbnailCache::contains(std::string_view path) const
{
    return path.size() > root_.size() && path.starts_with(root_) && path[root_.size()] == '/';
}

std::string ThumbnailCache::entryPath(const ThumbnailSubject& subject, const ThumbnailBucket& bucket) const
{
    return joinedPath(joinedPath(root_, bucket.folder), lowercaseMD5(subject.uri) + ".png");
}

std::string ThumbnailCache::failureMarkerPath(const ThumbnailSubject& subject) const
{
    return joinedPath(joinedPath(root_, kFailureFolder), lowercaseMD5(subject.uri) + ".png");
}

Ref<CGImage> ThumbnailCache::find(const ThumbnailSubject& subject, const ThumbnailBucket& bucket, uint32_t maxWidth,
    uint32_t maxHeight) const
{
    const auto bytes = readEntry(entryPath(subject, bucket));
    if (!bytes || !thumbnailEntryMatches(*bytes, subject))
        return nullptr;
    return decodePNGData(*bytes, maxWidth, maxHeight).image;
}

bool ThumbnailCache::store(const ThumbnailSubject& subject, const ThumbnailBucket& bucket, const CGImage& image) const
{
    return writeEntry(joinedPath(root_, bucket.folder), entryPath(subject, bucket), image, subject);
}

bool ThumbnailCache::hasFailureMarker(const ThumbnailSubject& subject) const
{
    const auto bytes = readEntry(failureMarkerPath(subject));
    return bytes && thumbnailEntryMatches(*bytes, subject);
}

bool ThumbnailCache::markFailure(const ThumbnailSubject& subject) const
{
    const Ref<CGImage> empty = CGImage::imageWithPixels(1, 1, std::vector<uint8_t>(CGImage::kBytesPerPixel));
    return empty && writeEntry(joinedPath(root_, kFailureFolder), failureMarkerPath(subject), *empty, subject);
}

bool ThumbnailCache::writeEntry(const std::string& folder, const std::string& path, const CGImage& image,
    const ThumbnailSubject& subject) const
{
    std::vector<PNGTextEntry> text {
        {std::string(kURIKey), subject.uri},
        {std::string(kMTimeKey), subject.modificationTime},
        {"Thumb::Size", subject.byteSize},
        {"Software", "ZonCommon " ZON_LIBRARY_VERSION_MAJOR_MINOR},
    };
    if (!subject.mimeType.empty())
        text.push_back({"Thumb::Mime", subject.mimeType});
    const auto png = encodePNG(image, text);
    if (!png || !makeDirectoryWithParents(folder, 0700))
        return false;
    auto temporary = createTemporaryFile(joinedPath(folder, ".zoncommon-XXXXXX"));
    if (!temporary)
        return false;
    const bool written = writeAll(temporary.value().descriptor.get(), *png) && temporary.value().descriptor.close()
        && renameFile(temporary.value().path, path);
    if (!written)
        (void)removeFile(temporary.value().path);
    return written;
}

} // namespace zon
