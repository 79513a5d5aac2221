#pragma once

// A reference to a file or folder, as the original platform's file manager hands them out: an
// 80-byte plain struct that can be copied around freely. Here it holds the item's device and
// inode and the index of its path in a table of paths the process interns; a reference resolves
// while the item at that path is still the same inode, so an item replaced under its name (a
// new inode) no longer resolves.

#include "platform/Export.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zon {

struct FSRef {
    uint64_t device = 0;
    uint64_t inode = 0;
    uint32_t pathIndex = 0; // 1-based; 0 in a reference that was never filled in
    uint8_t reserved[60] = {};
};
static_assert(sizeof(FSRef) == 80);

// The reference of the item at path (a symbolic link there followed); nullopt when there is
// none. A relative path is taken from the working folder.
ZON_EXPORT std::optional<FSRef> makeFSRef(const std::string& path);
// The path of the referenced item while it is still there with the same inode; else nullopt.
ZON_EXPORT std::optional<std::string> pathOfFSRef(const FSRef& reference);

} // namespace zon
