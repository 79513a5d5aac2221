#pragma once

#include "atomic/TXZonAtomicSingleton.h"
#include "platform/io/FileCopyEngine.h"

#include <cstdint>

namespace zon {

class Error;
class String;

// The process-wide file utility: a byte-for-byte copy with explicit overwrite rules and logging,
// a folder chain made on demand, existence and size tests made directly with stat, the type
// identifier of a file or a MIME type, and the calling thread's errno as an error. It keeps no
// state: every operation may be called from any thread.
//
// The copy goes through the platform copy engine (a clone, the kernel's copy, or 128 KiB blocks
// read and written, whichever the file system allows first) and keeps the original's open, read
// and write errors, each built from the errno of the side that failed. Only the contents and the
// two dates are copied; the destination is written in place and kept after a failure.
class ZON_EXPORT TXZonFileManager final : public TXZonAtomicSingleton {
    ZON_OBJECT(TXZonFileManager, TXZonAtomicSingleton)
public:
    static Slot* singletonInstance();
    static TXZonFileManager* defaultManager();
    static TXZonFileManager* sharedInstance() { return TXZonAtomicSingleton::sharedInstance<TXZonFileManager>(); }

    // replace = NO.
    bool copyFileFromPath_toPath_error(const String* source, const String* destination, Ref<Error>* error);
    // An existing destination with replace = NO is success, untouched. The error out-pointer is
    // set to nil first; a failure to carry the dates over still answers YES with the error set.
    // engineUsed, when given, receives the way the bytes were moved.
    bool copyFileFromPath_toPath_replaceIfExists_error(const String* source, const String* destination,
        bool replace, Ref<Error>* error, FileCopyMethod* engineUsed = nullptr);
    // Makes the folder and its missing parents; a path directly under "/" (or a single relative
    // name) answers YES unchecked.
    bool ensureDirectoryExistsAtPath(const String* path);
    // stat succeeds, or fails with an error other than ENOENT and EPERM (a path that cannot be
    // examined counts as existing).
    bool fileExistsAtPath(const String* path);
    // As above; the flag is YES only when the whole mode word is 0x4000, so an ordinary folder
    // with permission bits reports NO.
    bool fileExistsAtPath_isDirectory(const String* path, bool* isDirectory);
    // The low 32 bits of the size; 0 when stat fails.
    uint32_t sizeOfFile(const String* path);
    // The identifier of the file's extension conforming to public.data (a dynamic one for an
    // unknown extension); without an extension that of its Finder type code; nil for a missing
    // file and for one with neither.
    Ref<String> utiOfFile(const String* path);
    // The identifier claiming the MIME type, a dynamic one for an unknown type.
    Ref<String> utiForMimeType(const String* mimeType);
    // Domain: strerror's text of the calling thread's errno; code: errno; no user info.
    Ref<Error> currentSystemError();

private:
    TXZonFileManager() = default;
};

} // namespace zon
