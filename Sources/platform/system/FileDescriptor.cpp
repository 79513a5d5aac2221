#include "platform/system/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

namespace zon {

void FileDescriptor::reset(int fd) noexcept
{
    if (fd_ >= 0 && fd_ != fd)
        ::close(fd_); // Linux frees the number even when close reports an error: never retry
    fd_ = fd;
}

SystemResult<> FileDescriptor::close()
{
    const int fd = release();
    if (fd >= 0 && ::close(fd) != 0 && errno != EINTR)
        return SystemError::last("close");
    return {};
}

SystemResult<FileDescriptor> FileDescriptor::duplicate() const
{
    const int copy = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        return SystemError::last("fcntl");
    return FileDescriptor(copy);
}

} // namespace zon
