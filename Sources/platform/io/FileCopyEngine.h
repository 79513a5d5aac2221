#pragma once

// The copy engine under the file manager's copy: the contents of one open file into another.
//
// It tries the cheapest way the file system offers first. A clone (FICLONE) shares the source's
// blocks and costs nothing whatever the size; failing that the kernel copies (copy_file_range)
// without the bytes passing through this process; failing that, or where the kernel stops short
// of the size that stat reported (files of /proc and /sys report 0 or a page), 128 KiB blocks are
// read and written. Each failure is put on the side that caused it: no space, quota and a file
// grown too big are the destination's; an I/O error from the kernel copy is retried on that range
// with read and write, so that the side that really failed is the one named.

#include "platform/Export.h"
#include "platform/system/SystemResult.h"

#include <cstdint>
#include <optional>

namespace zon {

enum class FileCopyMethod { none, clone, kernelCopy, readWrite };
// "clone", "copy_file_range", "read/write", "none" (nothing was copied).
ZON_EXPORT const char* fileCopyMethodName(FileCopyMethod method);

enum class FileCopySide { source, destination };

struct FileCopyFailure {
    FileCopySide side;
    SystemError error;
};

struct FileCopyOutcome {
    // The way the last bytes were moved.
    FileCopyMethod method = FileCopyMethod::none;
    uint64_t bytesCopied = 0;
    std::optional<FileCopyFailure> failure;

    bool succeeded() const { return !failure; }
};

// The size of one block of the read/write way.
inline constexpr size_t kFileCopyBlockSize = 128 * 1024;

// Copies what source holds from its offset to its end into destination at its offset. Both are
// blocking descriptors, source open for reading and destination for writing; the destination is
// written in place, so after a failure it holds what was copied until then.
ZON_EXPORT FileCopyOutcome copyFileContents(int source, int destination);

} // namespace zon
