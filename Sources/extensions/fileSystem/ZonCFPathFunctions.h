#pragma once

// C functions on path strings for clients written against the C-level string type (a borrowed
// const String*). Functions whose name holds Create hand back a string the caller owns: one
// reference, given up with release().

#include "platform/io/FSRef.h"
#include "platform/values/String.h"

#include <cstdint>

extern "C" {

// The string's UTF-8 form as a C string in *cString. Answers true when the caller must free() it.
// The buffer holds (length in UTF-16 units + 1) bytes, so any text whose UTF-8 form is longer,
// that is any non-ASCII text, fails: *cString is then null and the answer false. A nil string
// fails the same way.
ZON_EXPORT bool ZonCFStringGetCString(const zon::String* string, char** cString);
// Whether something is at path; *isDirectory (when given) tests the single mode bit 0x4000, so
// a socket (0xC000) and a block device (0x6000) report true as well. A path that cannot be
// made a C string counts as missing.
ZON_EXPORT bool ZonCFFileExists(const zon::String* path, bool* isDirectory);
// True for a missing path (nothing to remove) and when remove(3) succeeds; false when it fails
// or when an existing path cannot be made a C string (any non-ASCII path).
ZON_EXPORT bool ZonCFFileRemove(const zon::String* path);
ZON_EXPORT bool ZonCFStringGetFSRef(const zon::String* path, zon::FSRef* reference);
// The volume number of the item at path; 0 on any failure.
ZON_EXPORT int16_t ZonCFStringGetVolumeRefNum(const zon::String* path);
ZON_EXPORT zon::String* CFStringCreateHomeDirectoryPath();
ZON_EXPORT zon::String* CFStringCreateHomeDirectoryPathWithPathComponent(const zon::String* component);
// A new string equal to first: first is joined as the only element of an array, with second as
// the separator, so second never appears. Kept as the suite's clients know it.
ZON_EXPORT zon::String* CFStringCreateByAppending(const zon::String* first, const zon::String* second);

} // extern "C"
