#pragma once

// Volumes: the mounted file systems, as /proc/self/mountinfo lists them, and the volume reference
// numbers that stand for them. A number is handed out per device (st_dev) the first time one is
// asked for, counting down from -100, and keeps its device for the life of the process.

#include "platform/Export.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace zon {

struct MountEntry {
    dev_t device = 0;
    std::string root;       // the folder of the file system mounted here ("/" for the whole of it)
    std::string mountPoint; // with the octal escapes (\040 for a space) decoded
    std::string fileSystemType;
    std::string source;
};

// The entries of a mountinfo text, in its order (later mounts last); malformed lines are skipped.
ZON_EXPORT std::vector<MountEntry> parseMountInfo(std::string_view text);
// This process's mounts; empty when /proc cannot be read.
ZON_EXPORT std::vector<MountEntry> currentMounts();

// The mount whose mount point holds path (an absolute path with no links), the longest such.
ZON_EXPORT std::optional<MountEntry> mountContaining(const std::vector<MountEntry>& mounts, std::string_view path);
// The name of the volume mounted at mountPoint: its last component, "/" for the root.
ZON_EXPORT std::string volumeNameOfMountPoint(std::string_view mountPoint);

ZON_EXPORT int16_t volumeRefNumForDevice(dev_t device);
ZON_EXPORT std::optional<dev_t> deviceForVolumeRefNum(int16_t refNum);
// Where the volume of that number is mounted: the first mount of its device that shows the
// whole file system, else the first mount of it; nullopt for an unknown number.
ZON_EXPORT std::optional<std::string> mountPointForVolumeRefNum(int16_t refNum);
// The volume number of the item at path (a link followed); 0 when it cannot be looked at.
ZON_EXPORT int16_t volumeRefNumOfPath(const std::string& path);

} // namespace zon
