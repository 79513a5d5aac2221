#pragma once

#include "platform/Export.h"
#include "platform/io/ResourceFile.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Open resource files of this process, used like the original platform's resource manager: a
// file is created, opened under a reference number, made current, given resources, and written
// to its resource fork (FinderMetadataStore.h) when it is closed. Safe to call from any thread;
// the current file is one for the process, as it is in the original.
namespace zon::resourceFiles {

using ResFileRefNum = int16_t;
using OSErr = int16_t;

constexpr OSErr noErr = 0;
constexpr OSErr dupFNErr = -48;       // the file already has a resource fork
constexpr OSErr fnfErr = -43;         // no such file or folder
constexpr OSErr bdNamErr = -37;       // a name the file system cannot hold
constexpr OSErr ioErr = -36;          // the file system refused
constexpr OSErr mapReadErr = -199;    // the fork is not a resource file
constexpr OSErr resFNotFound = -193;  // no open resource file under that number
constexpr OSErr wrPermErr = -61;      // the file is open without write permission

// Permissions of openResFile.
constexpr int8_t fsRdPerm = 1;
constexpr int8_t fsWrPerm = 2;
constexpr int8_t fsRdWrPerm = 3;

// Creates a resource file named by the first nameLength units of name in the folder at
// parentPath: a new empty file, or an empty resource map in an existing file without a fork.
// Units past the end of name are read as 0, which no file name holds (bdNamErr). dupFNErr when
// the file already has a fork.
ZON_EXPORT OSErr createResFile(const std::string& parentPath, size_t nameLength, std::u16string_view name);
// Opens the resource fork of the file at path and makes it current. -1 on failure.
ZON_EXPORT ResFileRefNum openResFile(const std::string& path, int8_t permission);
ZON_EXPORT ResFileRefNum curResFile();
ZON_EXPORT void useResFile(ResFileRefNum file);
// Adds a resource to the current file; a second one with the same type and ID is kept beside
// the first.
ZON_EXPORT OSErr addResource(std::span<const uint8_t> data, uint32_t type, int16_t id, std::string_view pascalName);
// The resources of an open file, in the order they were read and added; nullopt when no file is
// open under that number.
ZON_EXPORT std::optional<std::vector<Resource>> resourcesOf(ResFileRefNum file);
// Writes the file's resources to its fork when they changed, then forgets the file.
ZON_EXPORT OSErr closeResFile(ResFileRefNum file);

} // namespace zon::resourceFiles
