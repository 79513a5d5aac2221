#include "platform/system/EventCallsInternal.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

namespace zon {

std::chrono::nanoseconds coarseMonotonicTime() noexcept
{
    timespec now {};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

SystemResult<FileDescriptor> createEpoll()
{
    FileDescriptor fd(::epoll_create1(EPOLL_CLOEXEC));
    if (!fd)
        return SystemError::last("epoll_create1");
    return fd;
}

SystemResult<> epollAdd(int epoll, int fd, uint32_t events, uint64_t id)
{
    epoll_event event {};
    event.events = events;
    event.data.u64 = id;
    if (::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0)
        return SystemError::last("epoll_ctl");
    return {};
}

SystemResult<> epollRemove(int epoll, int fd)
{
    if (::epoll_ctl(epoll, EPOLL_CTL_DEL, fd, nullptr) != 0)
        return SystemError::last("epoll_ctl");
    return {};
}

SystemResult<size_t> epollWait(int epoll, std::span<epoll_event> events, std::chrono::milliseconds timeout)
{
    const int ms = timeout.count() < 0 ? -1 : static_cast<int>(std::min<long long>(timeout.count(), INT_MAX));
    const int count = ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()), ms);
    if (count >= 0)
        return static_cast<size_t>(count);
    if (errno == EINTR)
        return size_t(0);
    return SystemError::last("epoll_wait");
}

SystemResult<FileDescriptor> createSignalWatch(std::initializer_list<int> signals)
{
    sigset_t set;
    sigemptyset(&set);
    for (int signal : signals)
        sigaddset(&set, signal);
    if (const int failed = ::pthread_sigmask(SIG_BLOCK, &set, nullptr); failed != 0)
        return SystemError {failed, "pthread_sigmask", {}};
    FileDescriptor fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd)
        return SystemError::last("signalfd");
    return fd;
}

SystemResult<FileDescriptor> createEventCounter()
{
    FileDescriptor fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!fd)
        return SystemError::last("eventfd");
    return fd;
}

void signalEventCounter(int counter)
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(counter, &one, sizeof one);
}

void drainEventCounter(int counter)
{
    uint64_t count;
    [[maybe_unused]] const ssize_t n = ::read(counter, &count, sizeof count);
}

SystemResult<FileDescriptor> createInotify()
{
    FileDescriptor fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!fd)
        return SystemError::last("inotify_init1");
    return fd;
}

SystemResult<int> inotifyAddWatch(int inotify, const std::string& path, uint32_t mask)
{
    const int watch = ::inotify_add_watch(inotify, path.c_str(), mask);
    if (watch < 0)
        return SystemError::last("inotify_add_watch");
    return watch;
}

SystemResult<> inotifyRemoveWatch(int inotify, int watch)
{
    if (::inotify_rm_watch(inotify, watch) != 0)
        return SystemError::last("inotify_rm_watch");
    return {};
}

} // namespace zon
