#include "extensions/fileSystem/ZonCFPathFunctions.h"

#include "platform/io/StandardFolders.h"
#include "platform/io/VolumesInternal.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Array.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

using namespace zon;

namespace {

// Owns what ZonCFStringGetCString handed out when it has to be freed.
struct CString {
    explicit CString(const String* text) { mustFree = ZonCFStringGetCString(text, &bytes); }
    ~CString()
    {
        if (mustFree)
            std::free(bytes);
    }
    CString(const CString&) = delete;
    CString& operator=(const CString&) = delete;

    char* bytes = nullptr;
    bool mustFree = false;
};

String* handedToCaller(Ref<String> text) { return text.leakRef(); }

} // namespace

bool ZonCFStringGetCString(const String* string, char** cString)
{
    *cString = nullptr;
    if (!string)
        return false;
    // The buffer rule is the original's: one byte per UTF-16 unit and the terminator.
    const size_t capacity = string->length() + 1;
    const std::string utf8 = string->UTF8String();
    if (utf8.size() + 1 > capacity)
        return false;
    auto* buffer = static_cast<char*>(std::malloc(capacity));
    if (!buffer)
        return false;
    std::memcpy(buffer, utf8.c_str(), utf8.size() + 1);
    *cString = buffer;
    return true;
}

bool ZonCFFileExists(const String* path, bool* isDirectory)
{
    const CString text(path);
    bool exists = false;
    bool directory = false;
    if (text.bytes) {
        auto status = pathStatus(text.bytes);
        exists = status.ok();
        directory = exists && (status.value().st_mode & 0x4000) != 0;
    }
    if (isDirectory)
        *isDirectory = directory;
    return exists;
}

bool ZonCFFileRemove(const String* path)
{
    // Existence is asked of the path itself, not of its C string, so that an existing item whose
    // name cannot be converted answers false rather than "nothing to remove".
    if (!path || !pathStatus(path->UTF8String()))
        return true;
    const CString text(path);
    return text.bytes && std::remove(text.bytes) == 0;
}

bool ZonCFStringGetFSRef(const String* path, FSRef* reference)
{
    if (!path)
        return false;
    const auto made = makeFSRef(path->UTF8String());
    if (made && reference)
        *reference = *made;
    return made.has_value();
}

int16_t ZonCFStringGetVolumeRefNum(const String* path)
{
    return path ? volumeRefNumOfPath(path->UTF8String()) : 0;
}

String* CFStringCreateHomeDirectoryPath()
{
    AutoreleasePool pool;
    return handedToCaller(NSHomeDirectory());
}

String* CFStringCreateHomeDirectoryPathWithPathComponent(const String* component)
{
    AutoreleasePool pool;
    Ref<String> home = NSHomeDirectory();
    return handedToCaller(home ? home->stringByAppendingPathComponent(component) : nullptr);
}

String* CFStringCreateByAppending(const String* first, const String* second)
{
    AutoreleasePool pool;
    if (!first)
        return nullptr;
    Ref<Array> parts = Array::arrayWithObject(const_cast<String*>(first));
    return handedToCaller(parts->componentsJoinedByString(second));
}
