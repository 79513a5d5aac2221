#pragma once

#include "platform/runtime/Object.h"

namespace zon {

class Dictionary;
class Error;
class String;

// Files and folders by path: existence, attributes, folders made with their parents, removal.
// Stateless, so usable from any thread; run-time class NSFileManager.
//
// Failures answer false or nil and, when asked, an error in NSCocoaErrorDomain with the original
// platform's codes: 260 for a missing item (ENOENT, ENOTDIR), 257 no permission (EACCES, EPERM),
// 258 a name too long, 256 other read errors; 4 removing an item that is not there; 513 no
// permission to write (EACCES, EPERM, EROFS), 516 an item already there, 640 no space (ENOSPC,
// EDQUOT), 512 other write errors. Each carries the path under NSFilePath and the system's error
// under NSUnderlyingError, in NSPOSIXErrorDomain with the errno as its code.
class ZON_EXPORT FileManager final : public Object {
    ZON_OBJECT(FileManager, Object)
public:
    static FileManager* defaultManager();

    // Whether something is at path, a link followed; a dangling link is nothing.
    bool fileExistsAtPath(const String* path) const;
    // As above; isDirectory (when given) says whether it is a folder.
    bool fileExistsAtPath_isDirectory(const String* path, bool* isDirectory) const;

    // The item itself (a link is not followed): NSFileSize, NSFileModificationDate,
    // NSFileCreationDate (the birth time where the file system records one, else the modification
    // time), NSFileType and NSFilePosixPermissions.
    Ref<Dictionary> attributesOfItemAtPath_error(const String* path, Ref<Error>* error) const;
    // Sets NSFileModificationDate (the access time is left alone). NSFileCreationDate is accepted
    // and ignored: Linux cannot set a birth time, and a copy that carries dates over must not fail
    // for it. Other keys are ignored.
    bool setAttributes_ofItemAtPath_error(const Dictionary* attributes, const String* path, Ref<Error>* error) const;
    // Makes the folder with mode 0777 less the umask; with intermediates, its missing parents too,
    // and a folder already there is no failure. The attributes are not used.
    bool createDirectoryAtPath_withIntermediateDirectories_attributes_error(const String* path,
        bool createIntermediates, const Dictionary* attributes, Ref<Error>* error) const;
    // Removes a file, a link (not what it points to) or a folder with everything in it.
    bool removeItemAtPath_error(const String* path, Ref<Error>* error) const;

private:
    FileManager() = default;
};

// Attribute keys and the values of NSFileType.
ZON_EXPORT extern String* const NSFileSize;
ZON_EXPORT extern String* const NSFileModificationDate;
ZON_EXPORT extern String* const NSFileCreationDate;
ZON_EXPORT extern String* const NSFileType;
ZON_EXPORT extern String* const NSFilePosixPermissions;
ZON_EXPORT extern String* const NSFileTypeRegular;
ZON_EXPORT extern String* const NSFileTypeDirectory;
ZON_EXPORT extern String* const NSFileTypeSymbolicLink;
ZON_EXPORT extern String* const NSFileTypeSocket;
ZON_EXPORT extern String* const NSFileTypeCharacterSpecial;
ZON_EXPORT extern String* const NSFileTypeBlockSpecial;
ZON_EXPORT extern String* const NSFileTypeUnknown;
// The error user-info key of the path, "NSFilePath", and the system's error domain.
ZON_EXPORT extern String* const NSFilePathErrorKey;
ZON_EXPORT extern String* const NSPOSIXErrorDomain;

// The file error codes of NSCocoaErrorDomain.
enum : long {
    NSFileNoSuchFileError = 4,
    NSFileReadUnknownError = 256,
    NSFileReadNoPermissionError = 257,
    NSFileReadInvalidFileNameError = 258,
    NSFileReadNoSuchFileError = 260,
    NSFileWriteUnknownError = 512,
    NSFileWriteNoPermissionError = 513,
    NSFileWriteFileExistsError = 516,
    NSFileWriteOutOfSpaceError = 640,
};

} // namespace zon
