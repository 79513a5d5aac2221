#pragma once

// The waiting machinery of run loops: epoll sets and event counters (eventfd); and a cheap clock.

#include "platform/system/FileDescriptor.h"
#include "platform/system/SystemResult.h"

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <sys/epoll.h>

namespace zon {

ZON_EXPORT SystemResult<FileDescriptor> createEpoll();
// Adds fd to an epoll set with the given events; id comes back with each event.
ZON_EXPORT SystemResult<> epollAdd(int epoll, int fd, uint32_t events, uint64_t id);
ZON_EXPORT SystemResult<> epollRemove(int epoll, int fd);
// Waits for events up to timeout (negative: without a limit); an interruption by a signal is
// no failure and answers no events.
ZON_EXPORT SystemResult<size_t> epollWait(int epoll, std::span<epoll_event> events, std::chrono::milliseconds timeout);

// Blocks the given signals on the calling thread and answers a descriptor that reads as readable
// while one of them is pending, so that a run loop can watch for them like any other source.
ZON_EXPORT SystemResult<FileDescriptor> createSignalWatch(std::initializer_list<int> signals);

// A non-blocking counter that reads as readable while it is above zero.
ZON_EXPORT SystemResult<FileDescriptor> createEventCounter();
// Adds one (a wake-up); a counter at its maximum stays readable, which is all a wake-up needs.
ZON_EXPORT void signalEventCounter(int counter);
// Takes the counter back to zero.
ZON_EXPORT void drainEventCounter(int counter);

// A non-blocking inotify instance (inotify_init1); EMFILE when the user's instance limit is reached.
ZON_EXPORT SystemResult<FileDescriptor> createInotify();
// inotify_add_watch: the watch descriptor, the same one again for an inode already watched.
// ENOSPC when the user's watch limit is reached.
ZON_EXPORT SystemResult<int> inotifyAddWatch(int inotify, const std::string& path, uint32_t mask);
ZON_EXPORT SystemResult<> inotifyRemoveWatch(int inotify, int watch);

// The monotonic clock at the resolution of the kernel's tick (a few milliseconds), read in a few
// nanoseconds: for caches that look at something again after a while.
ZON_EXPORT std::chrono::nanoseconds coarseMonotonicTime() noexcept;

} // namespace zon
