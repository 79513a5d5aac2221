#include "platform/io/FileManager.h"

#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <cmath>

namespace zon {

ZON_DEFINE_CLASS(FileManager, "NSFileManager")

ZON_STRING_CONSTANT(NSFileSize, "NSFileSize");
ZON_STRING_CONSTANT(NSFileModificationDate, "NSFileModificationDate");
ZON_STRING_CONSTANT(NSFileCreationDate, "NSFileCreationDate");
ZON_STRING_CONSTANT(NSFileType, "NSFileType");
ZON_STRING_CONSTANT(NSFilePosixPermissions, "NSFilePosixPermissions");
ZON_STRING_CONSTANT(NSFileTypeRegular, "NSFileTypeRegular");
ZON_STRING_CONSTANT(NSFileTypeDirectory, "NSFileTypeDirectory");
ZON_STRING_CONSTANT(NSFileTypeSymbolicLink, "NSFileTypeSymbolicLink");
ZON_STRING_CONSTANT(NSFileTypeSocket, "NSFileTypeSocket");
ZON_STRING_CONSTANT(NSFileTypeCharacterSpecial, "NSFileTypeCharacterSpecial");
ZON_STRING_CONSTANT(NSFileTypeBlockSpecial, "NSFileTypeBlockSpecial");
ZON_STRING_CONSTANT(NSFileTypeUnknown, "NSFileTypeUnknown");
ZON_STRING_CONSTANT(NSFilePathErrorKey, "NSFilePath");
ZON_STRING_CONSTANT(NSPOSIXErrorDomain, "NSPOSIXErrorDomain");

namespace {

enum class Access { read, write, remove };

long cocoaCode(int code, Access access)
{
    if (code == ENAMETOOLONG)
        return NSFileReadInvalidFileNameError;
    if (access == Access::remove && code == ENOENT)
        return NSFileNoSuchFileError;
    if (code == ENOENT || code == ENOTDIR)
        return NSFileReadNoSuchFileError;
    if (access == Access::read)
        return code == EACCES || code == EPERM ? NSFileReadNoPermissionError : NSFileReadUnknownError;
    switch (code) {
    case EACCES:
    case EPERM:
    case EROFS: return NSFileWriteNoPermissionError;
    case EEXIST: return NSFileWriteFileExistsError;
    case ENOSPC:
    case EDQUOT: return NSFileWriteOutOfSpaceError;
    default: return NSFileWriteUnknownError;
    }
}

bool fail(Ref<Error>* error, const SystemError& failure, const String* path, Access access)
{
    if (error) {
        auto underlying = Error::errorWithDomain_code(NSPOSIXErrorDomain, failure.code);
        auto userInfo = Dictionary::dictionaryWithObjectsAndKeys({
            {NSFilePathErrorKey, const_cast<String*>(path)},
            {NSUnderlyingErrorKey, underlying.get()},
        });
        *error = Error::errorWithDomain_code_userInfo(NSCocoaErrorDomain, cocoaCode(failure.code, access), userInfo.get());
    }
    return false;
}

Ref<Date> dateOf(const statx_timestamp& time)
{
    return Date::dateWithTimeIntervalSince1970(static_cast<double>(time.tv_sec) + time.tv_nsec / 1e9);
}

String* fileTypeOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFREG: return NSFileTypeRegular;
    case S_IFDIR: return NSFileTypeDirectory;
    case S_IFLNK: return NSFileTypeSymbolicLink;
    case S_IFSOCK: return NSFileTypeSocket;
    case S_IFCHR: return NSFileTypeCharacterSpecial;
    case S_IFBLK: return NSFileTypeBlockSpecial;
    default: return NSFileTypeUnknown;
    }
}

SystemResult<> removeTree(const std::string& path)
{
    auto status = linkStatus(path);
    if (!status)
        return status.error();
    if (!S_ISDIR(status.value().st_mode)) {
        return removeFile(path);
    }
    auto names = directoryEntries(path);
    if (!names)
        return names.error();
    for (const auto& name : names.value()) {
        if (auto removed = removeTree(path + "/" + name); !removed)
            return removed;
    }
    return removeDirectory(path);
}

} // namespace

FileManager* FileManager::defaultManager()
{
    static FileManager* const shared = [] {
        FileManager* manager = makeObject<FileManager>().leakRef();
        manager->makeImmortal();
        return manager;
    }();
    return shared;
}

bool FileManager::fileExistsAtPath(const String* path) const { return fileExistsAtPath_isDirectory(path, nullptr); }

bool FileManager::fileExistsAtPath_isDirectory(const String* path, bool* isDirectory) const
{
    if (!path)
        return false;
    auto status = pathStatus(path->UTF8String());
    if (isDirectory)
        *isDirectory = status && S_ISDIR(status.value().st_mode);
    return status.ok();
}

Ref<Dictionary> FileManager::attributesOfItemAtPath_error(const String* path, Ref<Error>* error) const
{
    if (!path)
        return nullptr;
    auto status = extendedStatus(path->UTF8String(), AT_SYMLINK_NOFOLLOW);
    if (!status) {
        fail(error, status.error(), path, Access::read);
        return nullptr;
    }
    const struct statx& item = status.value();
    const bool hasBirthTime = (item.stx_mask & STATX_BTIME) != 0;
    auto size = Number::numberWithUnsignedLongLong(item.stx_size);
    auto modified = dateOf(item.stx_mtime);
    auto created = hasBirthTime ? dateOf(item.stx_btime) : modified;
    auto permissions = Number::numberWithShort(static_cast<short>(item.stx_mode & 07777));
    return Dictionary::dictionaryWithObjectsAndKeys({
        {NSFileSize, size.get()},
        {NSFileModificationDate, modified.get()},
        {NSFileCreationDate, created.get()},
        {NSFileType, fileTypeOf(item.stx_mode)},
        {NSFilePosixPermissions, permissions.get()},
    });
}

bool FileManager::setAttributes_ofItemAtPath_error(const Dictionary* attributes, const String* path, Ref<Error>* error) const
{
    if (!path || !attributes)
        return false;
    auto* modified = dynamicCast<Date>(attributes->objectForKey(NSFileModificationDate));
    if (!modified)
        return true;
    const double seconds = modified->timeIntervalSince1970();
    timespec times[2] = {{0, UTIME_OMIT}, {}};
    times[1].tv_sec = static_cast<time_t>(std::floor(seconds));
    times[1].tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
    if (auto set = setFileTimes(path->UTF8String(), times); !set)
        return fail(error, set.error(), path, Access::write);
    return true;
}

bool FileManager::createDirectoryAtPath_withIntermediateDirectories_attributes_error(const String* path,
    bool createIntermediates, const Dictionary*, Ref<Error>* error) const
{
    if (!path)
        return false;
    const std::string target = path->UTF8String();
    if (createIntermediates) {
        for (size_t slash = target.find('/', 1); slash != std::string::npos; slash = target.find('/', slash + 1)) {
            if (auto made = makeDirectory(target.substr(0, slash), 0777); !made)
                return fail(error, made.error(), path, Access::write);
        }
        if (auto made = makeDirectory(target, 0777); !made)
            return fail(error, made.error(), path, Access::write);
        // mkdir lets EEXIST pass: what is there must be a folder.
        auto status = pathStatus(target);
        if (!status)
            return fail(error, status.error(), path, Access::write);
        if (!S_ISDIR(status.value().st_mode))
            return fail(error, SystemError {EEXIST, "mkdir", {}}, path, Access::write);
        return true;
    }
    if (pathStatus(target))
        return fail(error, SystemError {EEXIST, "mkdir", {}}, path, Access::write);
    if (auto made = makeDirectory(target, 0777); !made)
        return fail(error, made.error(), path, Access::write);
    return true;
}

bool FileManager::removeItemAtPath_error(const String* path, Ref<Error>* error) const
{
    if (!path)
        return false;
    if (auto removed = removeTree(path->UTF8String()); !removed)
        return fail(error, removed.error(), path, Access::remove);
    return true;
}

} // namespace zon
