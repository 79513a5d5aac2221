#pragma once

// Local stream sockets, as the message ports use them. Every descriptor made here is closed on
// exec; each call answers what the system said.

#include "platform/system/FileDescriptor.h"
#include "platform/system/SystemResult.h"

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <sys/types.h>
#include <sys/uio.h>

namespace zon {

struct PeerCredentials {
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
};

// A non-blocking socket listening at path, which gets the given mode. Fails with ENAMETOOLONG
// when path does not fit a socket address.
ZON_EXPORT SystemResult<FileDescriptor> listenOnLocalSocket(const std::string& path, mode_t mode, int backlog);
// A non-blocking socket connected to path. The connect itself blocks for up to timeout, so that
// a listener whose backlog is full is waited out rather than taken for missing.
ZON_EXPORT SystemResult<FileDescriptor> connectToLocalSocket(const std::string& path, std::chrono::milliseconds timeout);
// The next pending connection of a listener, non-blocking; EAGAIN when there is none.
ZON_EXPORT SystemResult<FileDescriptor> acceptConnection(int listener);
// Who is at the other end of a connected socket.
ZON_EXPORT SystemResult<PeerCredentials> peerCredentials(int fd);
// Sends what fits of parts without blocking: the bytes written, 0 when the socket is full. A
// peer that went away is an error (EPIPE), never a signal.
ZON_EXPORT SystemResult<size_t> sendParts(int fd, std::span<const iovec> parts);
// Ends both directions, so a reader on another thread sees the end at once.
ZON_EXPORT SystemResult<> shutdownSocket(int fd);
// Waits up to timeout for room to write on fd; false when none came.
ZON_EXPORT SystemResult<bool> waitUntilWritable(int fd, std::chrono::milliseconds timeout);

} // namespace zon
