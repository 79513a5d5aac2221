#pragma once

// The calls the process table makes: the entries of /proc, links read relative to a folder, and
// process descriptors (pidfd) for signals that cannot reach a recycled process id.

#include "platform/system/FileDescriptor.h"
#include "platform/system/SystemResult.h"
#include "platform/values/ByteVector.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace zon {

// The names of folder that are whole decimal numbers (the process ids of /proc), in ascending
// order. Reads the folder open at dirfd from its start.
ZON_EXPORT SystemResult<std::vector<pid_t>> numericDirectoryEntries(int dirfd);
// readlinkat(2): the text of the link name relative to dirfd, however long.
ZON_EXPORT SystemResult<std::string> readLinkAt(int dirfd, const std::string& name);
// Reads the file name relative to dirfd to its end, appending to out (which keeps its capacity
// from one call to the next, so a scan of many small files allocates once). EFBIG when the file
// holds more than maxBytes; out then holds what was read.
ZON_EXPORT SystemResult<> appendFileAt(int dirfd, const char* name, ByteVector& out, size_t maxBytes);
// getpid(2).
ZON_EXPORT pid_t currentProcessID() noexcept;
// pidfd_open(2): a descriptor that stays bound to the process that has pid now, closed on exec.
ZON_EXPORT SystemResult<FileDescriptor> openProcessDescriptor(pid_t pid);
// pidfd_send_signal(2): ESRCH once that process has been reaped, whatever holds its id since.
ZON_EXPORT SystemResult<> signalProcessDescriptor(int pidfd, int signal);

} // namespace zon
