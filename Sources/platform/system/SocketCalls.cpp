#include "platform/system/SocketCallsInternal.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace zon {

namespace {

SystemResult<sockaddr_un> localAddress(const std::string& path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return SystemError {ENAMETOOLONG, "socket address", {}};
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

const sockaddr* asSocketAddress(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

SystemResult<FileDescriptor> makeLocalSocket(int flags)
{
    FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    if (!fd)
        return SystemError::last("socket");
    return fd;
}

SystemResult<> setSendTimeout(int fd, std::chrono::milliseconds timeout)
{
    const auto ms = timeout.count();
    timeval limit {static_cast<time_t>(ms / 1000), static_cast<suseconds_t>(ms % 1000 * 1000)};
    if (::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) != 0)
        return SystemError::last("setsockopt");
    return {};
}

} // namespace

SystemResult<FileDescriptor> listenOnLocalSocket(const std::string& path, mode_t mode, int backlog)
{
    auto address = localAddress(path);
    if (!address)
        return address.error();
    auto fd = makeLocalSocket(SOCK_NONBLOCK);
    if (!fd)
        return fd;
    if (::bind(fd.value().get(), asSocketAddress(address.value()), sizeof(sockaddr_un)) != 0)
        return SystemError::last("bind");
    if (::chmod(path.c_str(), mode) != 0)
        return SystemError::last("chmod");
    if (::listen(fd.value().get(), backlog) != 0)
        return SystemError::last("listen");
    return fd;
}

SystemResult<FileDescriptor> connectToLocalSocket(const std::string& path, std::chrono::milliseconds timeout)
{
    auto address = localAddress(path);
    if (!address)
        return address.error();
    auto fd = makeLocalSocket(0);
    if (!fd)
        return fd;
    const int socket = fd.value().get();
    if (auto limited = setSendTimeout(socket, timeout); !limited)
        return limited.error();
    int connected;
    do
        connected = ::connect(socket, asSocketAddress(address.value()), sizeof(sockaddr_un));
    while (connected != 0 && errno == EINTR);
    if (connected != 0)
        return SystemError::last("connect");
    if (auto cleared = setSendTimeout(socket, std::chrono::milliseconds(0)); !cleared)
        return cleared.error();
    if (::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK) != 0)
        return SystemError::last("fcntl");
    return fd;
}

SystemResult<FileDescriptor> acceptConnection(int listener)
{
    for (;;) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0)
            return FileDescriptor(fd);
        if (errno != EINTR && errno != ECONNABORTED) // an aborted connection leaves the others pending
            return SystemError::last("accept4");
    }
}

SystemResult<PeerCredentials> peerCredentials(int fd)
{
    ucred credentials {};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return SystemError::last("getsockopt");
    return PeerCredentials {credentials.pid, credentials.uid, credentials.gid};
}

SystemResult<size_t> sendParts(int fd, std::span<const iovec> parts)
{
    msghdr message {};
    message.msg_iov = const_cast<iovec*>(parts.data());
    message.msg_iovlen = parts.size();
    for (;;) {
        const ssize_t n = ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0)
            return static_cast<size_t>(n);
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return size_t(0);
        if (errno != EINTR)
            return SystemError::last("sendmsg");
    }
}

SystemResult<> shutdownSocket(int fd)
{
    if (::shutdown(fd, SHUT_RDWR) != 0)
        return SystemError::last("shutdown");
    return {};
}

SystemResult<bool> waitUntilWritable(int fd, std::chrono::milliseconds timeout)
{
    pollfd entry {fd, POLLOUT, 0};
    const int ms = static_cast<int>(std::clamp<long long>(timeout.count(), 0, INT_MAX));
    const int ready = ::poll(&entry, 1, ms);
    if (ready < 0 && errno != EINTR)
        return SystemError::last("poll");
    return ready > 0;
}

} // namespace zon
