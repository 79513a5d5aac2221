// NSURL(FileSystem): Finder information, icons and images of file URLs.

#include "extensions/fileSystem/GenericIconInternal.h"
#include "logger/ZonLog.h"
#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/Image.h"
#include "platform/io/FinderMetadataStore.h"
#include "platform/io/BigEndianBytesInternal.h"
#include "platform/io/IconFamily.h"
#include "platform/io/ResourceFile.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

namespace zon {

namespace {

constexpr uint16_t kHasCustomIcon = 0x0400;
constexpr uint16_t kHasBeenInited = 0x0100;
constexpr uint32_t kIconFamilyType = 0x69636E73; // 'icns'
constexpr int16_t kCustomIconID = -16455;

// Type and creator big-endian at 0 and 4, the Finder flags at 8.
constexpr size_t kTypeOffset = 0;
constexpr size_t kCreatorOffset = 4;
constexpr size_t kFlagsOffset = 8;

std::optional<std::string> filePath(const URL& url)
{
    if (!url.isFileURL())
        return std::nullopt;
    Ref<String> path = url.path();
    if (!path)
        return std::nullopt;
    return path->UTF8String();
}

// The item's Finder information: zeros when no store holds any, nullopt when the item cannot be
// reached.
std::optional<FinderInfoBytes> finderInfo(const URL& url)
{
    auto path = filePath(url);
    if (!path || !pathStatus(*path))
        return std::nullopt;
    return readFinderInfo(*path).value_or(FinderInfoBytes {});
}

std::optional<std::vector<uint8_t>> customIcon(const std::string& path)
{
    auto resources = decodeResourceFile(readResourceFork(path));
    if (!resources)
        return std::nullopt;
    for (auto& resource : *resources)
        if (resource.type == kIconFamilyType && resource.id == kCustomIconID)
            return std::move(resource.data);
    return std::nullopt;
}

// The preview service is asked for album art at this size.
constexpr float kAlbumArtSide = 1024;

// Whether something exists at the URL's path; a warning with the URL and the path when not.
bool existsAtPathOrWarn(const URL& url, int line, std::string_view format)
{
    Ref<String> path = url.path();
    if (path && pathStatus(path->UTF8String()))
        return true;
    zon_log_obj(__FILE__, line, &url, logger::kLevelWarning, kDefaultLogIdentifier, format, &url, path.get());
    return false;
}

bool thumbnailSourceExists(const URL& url, int line)
{
    return existsAtPathOrWarn(url, line, "Failed to create thumbnail for URL %@, because file %@ does not exist.");
}

} // namespace

bool URL::getFinderInfoFlags_type_creator(uint16_t* flags, uint32_t* type, uint32_t* creator) const
{
    auto info = finderInfo(*this);
    if (!info)
        return false;
    if (flags)
        *flags = bigEndian::load16(*info, kFlagsOffset);
    if (type)
        *type = bigEndian::load32(*info, kTypeOffset);
    if (creator)
        *creator = bigEndian::load32(*info, kCreatorOffset);
    return true;
}

bool URL::setFinderInfoFlags_mask_type_creator(uint16_t flags, uint16_t mask, uint32_t type, uint32_t creator) const
{
    auto info = finderInfo(*this);
    if (!info)
        return false;
    const uint16_t old = bigEndian::load16(*info, kFlagsOffset);
    bigEndian::store16(*info, kFlagsOffset, ((old & ~mask) | (flags & mask)) & ~kHasBeenInited);
    bigEndian::store32(*info, kTypeOffset, type);
    bigEndian::store32(*info, kCreatorOffset, creator);
    return writeFinderInfo(*filePath(*this), *info);
}

bool URL::hasCustomIcon() const
{
    uint16_t flags = 0;
    return getFinderInfoFlags_type_creator(&flags, nullptr, nullptr) && (flags & kHasCustomIcon);
}

Ref<Data> URL::iconFamilyData() const
{
    auto path = filePath(*this);
    auto status = path ? pathStatus(*path) : SystemResult<struct stat>(SystemError {ENOENT, "stat", {}});
    if (!status)
        return nullptr;
    if (hasCustomIcon())
        if (auto icon = customIcon(*path))
            return Data::dataWithBytes(*icon);
    auto elements = genericIconElements(*path, S_ISDIR(status.value().st_mode));
    if (elements.empty())
        return nullptr;
    return Data::dataWithBytes(encodeIconFamily(elements));
}

Ref<Image> URL::generateAlbumArtImageFromQuickLook() const
{
    if (!existsAtPathOrWarn(*this, __LINE__, "Failed to create album art image for URL %@, because file %@ does not exist."))
        return nullptr;
    Ref<BitmapImageRep> preview = BitmapImageRep::quickLookImageFromSourceURL_width_height(this, kAlbumArtSide, kAlbumArtSide);
    Ref<Image> image = Image::initWithSize(preview ? preview->size() : Size {});
    if (preview)
        image->addRepresentation(preview.get());
    return image;
}

Ref<Image> URL::generateThumbnailImageFromQuickLook() const
{
    if (!thumbnailSourceExists(*this, __LINE__))
        return nullptr;
    Ref<Image> albumArt = generateAlbumArtImageFromQuickLook();
    return albumArt ? albumArt->desktopThumbnail() : nullptr;
}

Ref<Image> URL::generateThumbnailImageFromImage() const
{
    if (!thumbnailSourceExists(*this, __LINE__))
        return nullptr;
    Ref<Image> image = Image::initWithContentsOfURL(this);
    return image ? image->desktopThumbnail() : nullptr;
}

} // namespace zon
