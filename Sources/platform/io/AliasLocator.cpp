#include "platform/io/AliasLocatorInternal.h"

#include "platform/io/BigEndianBytesInternal.h"
#include "platform/io/FinderMetadataStore.h"
#include "platform/io/VolumesInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/MacRomanInternal.h"
#include "platform/values/String.h"

#include <deque>
#include <dirent.h>
#include <sys/stat.h>

namespace zon {

namespace {

constexpr size_t volumeNameBytes = 27;
constexpr size_t fileNameBytes = 63;

std::vector<std::string> pathComponents(std::string_view path)
{
    std::vector<std::string> components;
    size_t start = 0;
    while (start < path.size()) {
        const size_t end = std::min(path.find('/', start), path.size());
        if (end > start)
            components.emplace_back(path.substr(start, end - start));
        start = end + 1;
    }
    return components;
}

std::string joinPath(std::string_view folder, std::string_view below)
{
    std::string path(folder);
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    for (const std::string& component : pathComponents(below)) {
        if (!path.ends_with('/'))
            path += '/';
        path += component;
    }
    return path.empty() ? "/" : path;
}

std::string parentOf(std::string_view path)
{
    const size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string_view::npos ? "/" : std::string(path.substr(0, slash));
}

std::string lastComponent(std::string_view path)
{
    const std::vector<std::string> components = pathComponents(path);
    return components.empty() ? "/" : components.back();
}

// File names on Linux are bytes; those that are not UTF-8 are read as Latin-1.
std::u16string utf16OfName(std::string_view name)
{
    if (Ref<String> text = String::stringWithUTF8String(name))
        return std::u16string(text->view());
    return std::u16string(name.begin(), name.end());
}

std::string utf8OfUTF16(std::u16string_view text)
{
    return String::stringWithCharacters(text)->UTF8String();
}

std::string macRomanName(std::string_view name, size_t maxBytes)
{
    return macRomanFromUTF16(utf16OfName(name), maxBytes);
}

uint32_t idOfInode(ino_t inode) { return static_cast<uint32_t>(inode); }

uint32_t creationDateOf(const std::string& path)
{
    auto born = birthTime(path);
    return born && born.value() ? aliasDateFromUnixTime(born.value()->tv_sec) : 0;
}

// "Volume:folder:file", the path form of the original platform's older records.
std::string colonPath(const std::string& volumeName, std::string_view pathInVolume)
{
    std::string path = macRomanName(volumeName, SIZE_MAX);
    for (const std::string& component : pathComponents(pathInVolume))
        path += ':' + macRomanName(component, SIZE_MAX);
    return path;
}

void makeRelative(AliasRecord& record, const std::string& target, const std::string& from)
{
    const std::vector<std::string> targetParts = pathComponents(target);
    const std::vector<std::string> fromParts = pathComponents(from);
    size_t common = 0;
    while (common < targetParts.size() && common < fromParts.size() && targetParts[common] == fromParts[common])
        ++common;
    record.levelsFrom = int16_t(std::min<size_t>(fromParts.size() - common, INT16_MAX));
    record.levelsTo = int16_t(std::min<size_t>(targetParts.size() - common, INT16_MAX));
}

bool exists(const std::string& path) { return pathStatus(path).ok(); }

std::string volumeNameOf(const AliasRecord& record)
{
    if (record.unicodeVolumeName)
        return utf8OfUTF16(*record.unicodeVolumeName);
    return utf8OfUTF16(utf16FromMacRoman(record.volumeName));
}

// The target's path from the ancestor reached by going levelsFrom up from relativeTo.
std::optional<std::string> relativeCandidate(const AliasRecord& record, const std::string& relativeTo)
{
    if (record.levelsFrom < 0 || record.levelsTo < 0 || !record.posixPath)
        return std::nullopt;
    auto from = resolvedPath(relativeTo);
    if (!from)
        return std::nullopt;
    std::vector<std::string> base = pathComponents(from.value());
    const std::vector<std::string> target = pathComponents(*record.posixPath);
    if (size_t(record.levelsFrom) > base.size() || size_t(record.levelsTo) > target.size())
        return std::nullopt;
    base.resize(base.size() - size_t(record.levelsFrom));
    base.insert(base.end(), target.end() - record.levelsTo, target.end());
    std::string path;
    for (const std::string& component : base)
        path += '/' + component;
    return path.empty() ? "/" : path;
}

// Breadth-first search for an entry whose inode, cut to 32 bits, is the record's file ID. It
// stays on one device and does not follow symbolic links; a folder already searched (skip) is
// not entered again.
class FileIDSearch {
public:
    FileIDSearch(const AliasRecord& record, dev_t device, const AliasSearchBounds& bounds)
        : fileID_(record.fileID)
        , wantFolder_(record.kind == AliasKind::folder)
        , device_(device)
        , entriesLeft_(bounds.maxEntries)
        , deadline_(std::chrono::steady_clock::now() + bounds.maxTime)
    {
    }

    std::optional<std::string> below(const std::string& start, const std::string& skip)
    {
        std::deque<std::string> folders {start};
        while (!folders.empty() && entriesLeft_ > 0 && std::chrono::steady_clock::now() < deadline_) {
            const std::string folder = std::move(folders.front());
            folders.pop_front();
            auto listing = directoryListing(folder, entriesLeft_);
            if (!listing)
                continue;
            entriesLeft_ -= listing.value().size();
            for (const DirectoryEntry& entry : listing.value()) {
                const std::string path = joinPath(folder, entry.name);
                if (idOfInode(entry.inode) == fileID_ && isTarget(path))
                    return path;
                if (path != skip && isFolderOnDevice(entry, path))
                    folders.push_back(path);
            }
        }
        return std::nullopt;
    }

private:
    bool isTarget(const std::string& path) const
    {
        auto status = linkStatus(path);
        return status && status.value().st_dev == device_ && S_ISDIR(status.value().st_mode) == wantFolder_;
    }
    bool isFolderOnDevice(const DirectoryEntry& entry, const std::string& path) const
    {
        if (entry.type != DT_DIR && entry.type != DT_UNKNOWN)
            return false;
        auto status = linkStatus(path);
        return status && S_ISDIR(status.value().st_mode) && status.value().st_dev == device_;
    }

    uint32_t fileID_;
    bool wantFolder_;
    dev_t device_;
    size_t entriesLeft_;
    std::chrono::steady_clock::time_point deadline_;
};

// The mount point of the record's volume here: the recorded one when it exists, else the first
// mounted volume of the recorded name.
std::optional<std::string> volumeRoot(const AliasRecord& record, const std::vector<MountEntry>& mounts)
{
    if (record.volumeMountPoint && exists(*record.volumeMountPoint))
        return record.volumeMountPoint;
    const std::string name = volumeNameOf(record);
    for (const MountEntry& mount : mounts) {
        if (volumeNameOfMountPoint(mount.mountPoint) == name)
            return mount.mountPoint;
    }
    return std::nullopt;
}

std::optional<std::string> searchByFileID(const AliasRecord& record, const std::string& root, const AliasSearchBounds& bounds)
{
    auto rootStatus = pathStatus(root);
    if (record.fileID == aliasNoID || !record.posixPath || !rootStatus)
        return std::nullopt;
    // The recorded parent folder, or its nearest ancestor that is still there.
    std::string folder = joinPath(root, parentOf(*record.posixPath));
    while (folder.size() > root.size() && !exists(folder))
        folder = parentOf(folder);
    FileIDSearch search(record, rootStatus.value().st_dev, bounds);
    std::string searched;
    for (;;) {
        if (auto found = search.below(folder, searched))
            return found;
        if (folder.size() <= root.size() || folder == "/")
            return std::nullopt;
        searched = folder;
        folder = parentOf(folder);
    }
}

} // namespace

std::optional<AliasRecord> makeAliasRecord(const std::string& targetPath, const std::string* fromPath)
{
    auto target = resolvedPath(targetPath);
    std::optional<SystemResult<std::string>> from;
    if (fromPath && !(from = resolvedPath(*fromPath))->ok())
        return std::nullopt;
    if (!target)
        return std::nullopt;
    const std::string& path = target.value();
    auto status = pathStatus(path);
    const auto mount = mountContaining(currentMounts(), path);
    if (!status || !mount)
        return std::nullopt;

    const bool isMountRoot = path == mount->mountPoint;
    const std::string volumeName = volumeNameOfMountPoint(mount->mountPoint);
    const std::string pathInVolume = joinPath("/", std::string_view(path).substr(mount->mountPoint.size()));
    const std::string fileName = isMountRoot ? volumeName : lastComponent(path);

    AliasRecord record;
    record.kind = S_ISDIR(status.value().st_mode) ? AliasKind::folder : AliasKind::file;
    record.volumeName = macRomanName(volumeName, volumeNameBytes);
    record.volumeCreationDate = creationDateOf(mount->mountPoint);
    record.fileName = macRomanName(fileName, fileNameBytes);
    record.fileID = idOfInode(status.value().st_ino);
    record.fileCreationDate = creationDateOf(path);
    if (!isMountRoot) {
        const std::string parent = parentOf(path);
        auto parentStatus = pathStatus(parent);
        record.parentID = parentStatus ? idOfInode(parentStatus.value().st_ino) : aliasNoID;
        record.parentName = macRomanName(parent == mount->mountPoint ? volumeName : lastComponent(parent), SIZE_MAX);
    }
    if (record.kind == AliasKind::file) {
        if (const auto info = readFinderInfo(path)) {
            record.type = bigEndian::load32(*info, 0);
            record.creator = bigEndian::load32(*info, 4);
        }
    }
    record.absolutePath = colonPath(volumeName, pathInVolume);
    record.unicodeFileName = utf16OfName(fileName);
    record.unicodeVolumeName = utf16OfName(volumeName);
    record.posixPath = pathInVolume;
    record.volumeMountPoint = mount->mountPoint;
    if (from)
        makeRelative(record, path, from->value());
    return record;
}

std::optional<std::string> resolveAliasRecord(const AliasRecord& record, const std::string* relativeTo, const AliasSearchBounds& bounds)
{
    if (!record.posixPath)
        return std::nullopt;
    if (record.volumeMountPoint) {
        const std::string candidate = joinPath(*record.volumeMountPoint, *record.posixPath);
        if (exists(candidate))
            return candidate;
    }
    const std::vector<MountEntry> mounts = currentMounts();
    const std::string volumeName = volumeNameOf(record);
    for (const MountEntry& mount : mounts) {
        if (volumeNameOfMountPoint(mount.mountPoint) != volumeName)
            continue;
        const std::string candidate = joinPath(mount.mountPoint, *record.posixPath);
        if (exists(candidate))
            return candidate;
    }
    if (relativeTo) {
        if (auto candidate = relativeCandidate(record, *relativeTo); candidate && exists(*candidate))
            return candidate;
    }
    if (auto root = volumeRoot(record, mounts))
        return searchByFileID(record, *root, bounds);
    return std::nullopt;
}

} // namespace zon
