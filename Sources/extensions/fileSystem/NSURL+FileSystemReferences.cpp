// NSURL(FileSystem): file references, volumes and alias types.

#include "platform/io/FSRef.h"
#include "platform/io/VolumesInternal.h"
#include "platform/io/Workspace.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

#include <sys/stat.h>

namespace zon {

namespace {

constexpr uint32_t applicationPackageType = 0x66617061; // 'fapa'
constexpr uint32_t applicationType = 0x61647270;        // 'adrp'
constexpr uint32_t packageType = 0x66706B61;            // 'fpka'
constexpr uint32_t diskType = 0x6864736B;               // 'hdsk'
constexpr uint32_t folderType = 0x66647270;             // 'fdrp'
constexpr uint32_t applicationFileType = 0x4150504C;    // 'APPL'
constexpr uint16_t hasBundleFlag = 0x2000;

// What the original's item-information call reports of an item, as far as alias types ask.
struct ItemFlags {
    bool plainFile = false;
    bool package = false;
    bool application = false;
    bool volume = false;
};

// A folder is a mount point when its parent is on another device, or is itself (the root). Only
// this folder and its parent are looked at; a bind mount of a folder of the same file system is
// not seen as one.
bool isMountPoint(const std::string& path, const struct stat& status)
{
    auto parent = pathStatus(path + "/..");
    return parent && (parent.value().st_dev != status.st_dev || parent.value().st_ino == status.st_ino);
}

std::optional<ItemFlags> itemFlags(const URL& url)
{
    Ref<String> path = url.isFileURL() ? url.path() : nullptr;
    if (!path)
        return std::nullopt;
    auto status = pathStatus(path->UTF8String());
    if (!status)
        return std::nullopt;
    uint16_t finderFlags = 0;
    uint32_t type = 0;
    url.getFinderInfoFlags_type_creator(&finderFlags, &type, nullptr);
    ItemFlags flags;
    const bool folder = S_ISDIR(status.value().st_mode);
    flags.plainFile = !folder;
    flags.package = (folder && Workspace::sharedWorkspace()->isFilePackageAtPath(path)) || (finderFlags & hasBundleFlag);
    flags.application = (folder && path->pathExtension()->UTF8String() == "app") || type == applicationFileType;
    flags.volume = folder && isMountPoint(path->UTF8String(), status.value());
    return flags;
}

} // namespace

bool URL::getFSRef(FSRef* reference) const
{
    Ref<String> path = isFileURL() ? this->path() : nullptr;
    const auto made = path ? makeFSRef(path->UTF8String()) : std::nullopt;
    if (made && reference)
        *reference = *made;
    return made.has_value();
}

Ref<URL> URL::URLWithFSRef(const FSRef* reference)
{
    const auto path = reference ? pathOfFSRef(*reference) : std::nullopt;
    if (!path)
        return nullptr;
    auto status = pathStatus(*path);
    return fileURLWithPath_isDirectory(String::stringWithUTF8String(*path), status && S_ISDIR(status.value().st_mode));
}

int16_t URL::volumeRefNum() const
{
    FSRef reference;
    return getFSRef(&reference) ? volumeRefNumForDevice(dev_t(reference.device)) : 0;
}

Ref<URL> URL::volumeURL() const
{
    const int16_t number = volumeRefNum();
    const auto mountPoint = number ? mountPointForVolumeRefNum(number) : std::nullopt;
    return mountPoint ? fileURLWithPath_isDirectory(String::stringWithUTF8String(*mountPoint), true) : nullptr;
}

uint32_t URL::aliasType() const
{
    const auto flags = itemFlags(*this);
    if (!flags)
        return folderType;
    if (flags->application)
        return flags->package ? applicationPackageType : applicationType;
    if (flags->plainFile)
        return 0;
    if (flags->package)
        return packageType;
    if (flags->volume)
        return diskType;
    return folderType;
}

} // namespace zon
