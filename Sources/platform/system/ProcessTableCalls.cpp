#include "platform/system/ProcessTableCallsInternal.h"

#include "platform/system/FileCallsInternal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zon {

namespace {

// The value of a name made only of decimal digits, or -1.
pid_t decimalName(const char* name)
{
    if (*name == '\0')
        return -1;
    int64_t value = 0;
    for (; *name; ++name) {
        if (*name < '0' || *name > '9' || value > INT32_MAX / 10)
            return -1;
        value = value * 10 + (*name - '0');
    }
    return value > INT32_MAX ? -1 : static_cast<pid_t>(value);
}

} // namespace

SystemResult<std::vector<pid_t>> numericDirectoryEntries(int dirfd)
{
    if (::lseek(dirfd, 0, SEEK_SET) != 0)
        return SystemError::last("lseek");
    std::vector<pid_t> ids;
    alignas(dirent64) char buffer[32768];
    for (;;) {
        const long count = ::syscall(SYS_getdents64, dirfd, buffer, sizeof buffer);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            return SystemError::last("getdents64");
        }
        if (count == 0)
            break;
        for (long offset = 0; offset < count;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + offset);
            if (const pid_t id = decimalName(entry->d_name); id >= 0)
                ids.push_back(id);
            offset += entry->d_reclen;
        }
    }
    // /proc lists in ascending order already; sorting keeps the promise for any other folder.
    if (!std::is_sorted(ids.begin(), ids.end()))
        std::sort(ids.begin(), ids.end());
    return ids;
}

SystemResult<std::string> readLinkAt(int dirfd, const std::string& name)
{
    std::string text(256, '\0');
    for (;;) {
        const ssize_t length = ::readlinkat(dirfd, name.c_str(), text.data(), text.size());
        if (length < 0)
            return SystemError::last("readlink");
        // A result that fills the buffer may have been cut: try again with more room.
        if (static_cast<size_t>(length) < text.size()) {
            text.resize(static_cast<size_t>(length));
            return text;
        }
        text.resize(text.size() * 2);
    }
}

SystemResult<> appendFileAt(int dirfd, const char* name, ByteVector& out, size_t maxBytes)
{
    auto file = openFile(name, O_RDONLY, 0, dirfd);
    if (!file)
        return file.error();
    return appendToEnd(file.value().get(), out, maxBytes);
}

pid_t currentProcessID() noexcept { return ::getpid(); }

SystemResult<FileDescriptor> openProcessDescriptor(pid_t pid)
{
    // Called through syscall(2): glibc 2.36's <sys/pidfd.h> declares its wrappers without C
    // linkage for C++. pidfd_open descriptors are always closed on exec.
    const int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0u));
    if (fd < 0)
        return SystemError::last("pidfd_open");
    return FileDescriptor(fd);
}

SystemResult<> signalProcessDescriptor(int pidfd, int signal)
{
    if (::syscall(SYS_pidfd_send_signal, pidfd, signal, nullptr, 0u) != 0)
        return SystemError::last("pidfd_send_signal");
    return {};
}

} // namespace zon
