#pragma once

// Making an alias record for an item on disk, and finding the item a record stands for.

#include "platform/io/AliasRecordInternal.h"

#include "platform/Export.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace zon {

// A record for the item at targetPath (links followed), or nullopt when it does not exist. With
// fromPath (which must exist) the record is also made relative to that item.
ZON_EXPORT std::optional<AliasRecord> makeAliasRecord(const std::string& targetPath, const std::string* fromPath);

// How far the search by file ID may go before it gives up.
struct AliasSearchBounds {
    size_t maxEntries = 100000;
    std::chrono::milliseconds maxTime {1000};
};

// The path of the item the record stands for, tried in this order: the recorded mount point and
// the POSIX path within the volume; the same POSIX path on each mounted volume of the recorded
// name; the relative path from relativeTo, when the record was made relative and relativeTo is
// given; then the file ID (an inode cut to 32 bits) in the recorded parent folder and below it,
// then below each of the parent's ancestors up to the volume's root, within bounds. Nullopt when
// none finds it.
ZON_EXPORT std::optional<std::string> resolveAliasRecord(const AliasRecord& record, const std::string* relativeTo,
    const AliasSearchBounds& bounds = {});

} // namespace zon
