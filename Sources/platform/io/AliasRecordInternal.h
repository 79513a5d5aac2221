#pragma once

// Alias records, version 2, in the byte layout the original platform writes (all numbers
// big-endian):
//
//   0  user type (4)            4  record size (2)        6  version = 2 (2)
//   8  kind: 0 file, 1 folder   10 volume name (Str27)    38 volume creation date (4)
//   42 volume signature (2)     44 volume type (2)        46 parent folder ID (4)
//   50 file name (Str63)        114 file ID (4)           118 file creation date (4)
//   122 type (4)                126 creator (4)           130 levels from (2)
//   132 levels to (2)           134 volume attributes (4) 138 volume file system ID (2)
//   140 reserved (10)           150 tagged extras: tag (2), length (2), bytes padded to even,
//                                   ended by tag -1 with length 0
//
// Names in the fixed part are Pascal strings in Mac OS Roman; dates count seconds from 1904.

#include "platform/Export.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zon {

enum class AliasKind : uint16_t { file = 0, folder = 1 };

// Inode numbers stand in for file and folder IDs, cut to 32 bits; this value means "no ID".
constexpr uint32_t aliasNoID = 0xFFFFFFFF;
// Levels from/to of a record that was not made relative to another item.
constexpr int16_t aliasNotRelative = -1;

struct AliasExtra {
    int16_t tag = 0;
    std::string bytes;
};

struct AliasRecord {
    uint32_t userType = 0;
    AliasKind kind = AliasKind::file;
    std::string volumeName; // Mac OS Roman, at most 27 bytes
    uint32_t volumeCreationDate = 0;
    uint16_t volumeSignature = 0x482B; // 'H+'
    uint16_t volumeType = 0;
    uint32_t parentID = aliasNoID;
    std::string fileName; // Mac OS Roman, at most 63 bytes
    uint32_t fileID = aliasNoID;
    uint32_t fileCreationDate = 0;
    uint32_t type = 0;
    uint32_t creator = 0;
    int16_t levelsFrom = aliasNotRelative;
    int16_t levelsTo = aliasNotRelative;
    uint32_t volumeAttributes = 0;
    uint16_t volumeFileSystemID = 0;

    // The tagged extras this library reads and writes; absent ones stay nullopt.
    std::optional<std::string> parentName;       // tag 0, Mac OS Roman
    std::optional<std::string> absolutePath;     // tag 2, "Volume:folder:file" in Mac OS Roman
    std::optional<std::u16string> unicodeFileName;   // tag 14
    std::optional<std::u16string> unicodeVolumeName; // tag 15
    std::optional<std::string> posixPath;        // tag 18, UTF-8, from the volume's root ("/a/b")
    std::optional<std::string> volumeMountPoint; // tag 19, UTF-8
    // Extras with other tags, kept as they came so that a record read and written again loses
    // nothing.
    std::vector<AliasExtra> otherExtras;
};

enum AliasExtraTag : int16_t {
    aliasTagParentName = 0,
    aliasTagAbsolutePath = 2,
    aliasTagUnicodeFileName = 14,
    aliasTagUnicodeVolumeName = 15,
    aliasTagPOSIXPath = 18,
    aliasTagVolumeMountPoint = 19,
    aliasTagEnd = -1,
};

// Size of the fixed part, before the extras.
constexpr size_t aliasFixedPartSize = 150;

ZON_EXPORT std::vector<uint8_t> encodeAliasRecord(const AliasRecord& record);
// Nullopt when the bytes are not a version 2 record: too short, another version, a record size
// beyond the bytes, a name longer than its field, or an extra that runs past the record's end.
// Extras after the end tag are ignored, as are bytes after the record size.
ZON_EXPORT std::optional<AliasRecord> decodeAliasRecord(std::span<const uint8_t> bytes);

// Seconds from 1904-01-01 (the original platform's epoch) to a Unix time, cut to 32 bits as the
// record keeps them; 0 for times before 1904 or after 2040.
ZON_EXPORT uint32_t aliasDateFromUnixTime(int64_t seconds);

} // namespace zon
