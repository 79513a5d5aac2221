#include "platform/graphics/PreviewService.h"

#include "platform/graphics/CGImage.h"
#include "platform/graphics/CoverArtInternal.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/graphics/ImageScalingInternal.h"
#include "platform/graphics/ThumbnailCacheInternal.h"
#include "platform/graphics/ThumbnailerFilesInternal.h"
#include "platform/graphics/ThumbnailerRunInternal.h"
#include "platform/io/PathTextInternal.h"
#include "platform/io/TypeIdentifiers.h"
#include "platform/system/FileCallsInternal.h"

#include <algorithm>
#include <sys/stat.h>

namespace zon {

namespace {

// The file's content type, from its name's extension.
std::string contentTypeOfPath(std::string_view path)
{
    const std::string_view name = lastPathComponent(path);
    const size_t dot = name.find_last_of('.');
    if (dot == std::string_view::npos || dot == 0)
        return "public.data";
    return preferredTypeIdentifierForTag(TypeTagClass::filenameExtension, name.substr(dot + 1), "public.data");
}

Ref<CGImage> fitted(Ref<CGImage> image, uint32_t maxWidth, uint32_t maxHeight)
{
    return image ? imageScaledToFit(image.get(), maxWidth, maxHeight) : nullptr;
}

// Images through the readers, audio through its cover art; nil for other types.
Ref<CGImage> decodedInProcess(const std::string& path, std::string_view type, uint32_t maxWidth, uint32_t maxHeight)
{
    if (typeConformsTo(type, "public.image"))
        return fitted(decodeImageFile(path, maxWidth, maxHeight).image, maxWidth, maxHeight);
    if (const std::optional<AudioContainer> container = audioContainerOfType(type)) {
        if (const auto picture = coverArtOfFile(path, *container))
            return fitted(decodeImageData(*picture, maxWidth, maxHeight).image, maxWidth, maxHeight);
    }
    return nullptr;
}

Ref<CGImage> fromThumbnailer(const std::string& path, const std::string& uri, std::string_view type, uint32_t maxWidth,
    uint32_t maxHeight)
{
    const std::optional<Thumbnailer> thumbnailer = thumbnailerForType(type);
    if (!thumbnailer)
        return nullptr;
    return runThumbnailer(*thumbnailer, path, uri, std::max(maxWidth, maxHeight), maxWidth, maxHeight);
}

} // namespace

std::optional<Preview> previewOfFile(const std::string& givenPath, uint32_t maxWidth, uint32_t maxHeight)
{
    const std::optional<std::string> path = absolutePath(givenPath);
    if (!path || maxWidth == 0 || maxHeight == 0)
        return std::nullopt;
    auto status = pathStatus(*path);
    if (!status || !S_ISREG(status.value().st_mode))
        return std::nullopt;
    const std::string type = contentTypeOfPath(*path);
    const ThumbnailSubject subject {fileURIOfPath(*path), std::to_string(status.value().st_mtim.tv_sec),
        std::to_string(status.value().st_size), preferredTagOfType(type, TypeTagClass::mimeType)};

    const std::optional<ThumbnailCache> userCache = ThumbnailCache::user();
    const std::optional<ThumbnailBucket> bucket = thumbnailBucketFor(maxWidth, maxHeight);
    const ThumbnailCache* cache = userCache && bucket && !userCache->contains(*path) ? &*userCache : nullptr;
    if (cache) {
        if (Ref<CGImage> cached = cache->find(subject, *bucket, maxWidth, maxHeight))
            return Preview {fitted(std::move(cached), maxWidth, maxHeight), PreviewSource::cache};
        if (cache->hasFailureMarker(subject))
            return std::nullopt;
    }

    // What goes into the cache is made at the bucket's size, so that any later request the bucket
    // serves finds it big enough; the answer is then fitted to this request.
    const uint32_t makeWidth = cache ? bucket->side : maxWidth;
    const uint32_t makeHeight = cache ? bucket->side : maxHeight;
    PreviewSource source = PreviewSource::inProcess;
    Ref<CGImage> made = decodedInProcess(*path, type, makeWidth, makeHeight);
    if (!made) {
        source = PreviewSource::thumbnailer;
        made = fromThumbnailer(*path, subject.uri, type, makeWidth, makeHeight);
    }
    if (cache) {
        if (made)
            (void)cache->store(subject, *bucket, *made);
        else
            (void)cache->markFailure(subject);
    }
    if (!made)
        return std::nullopt;
    return Preview {fitted(std::move(made), maxWidth, maxHeight), source};
}

} // namespace zon
