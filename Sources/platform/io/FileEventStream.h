#pragma once

// Change events for one directory, by path, delivered on the run loop of the thread that made
// the stream.
//
// Contract:
// - The callback runs on the creating thread's run loop, in the default mode, once per batch:
//   the first event after a quiet time opens a window of the stream's latency, and everything
//   that happens until the window ends is one batch. While a window is open the kernel's queue is
//   not read; it is read once when the window ends, so a burst costs what one event costs.
// - All streams of one thread share one inotify instance, and streams on one directory share the
//   kernel's watch on it. A queue overflow counts as a change for every stream and makes each one
//   look at its path again.
// - The path is followed, not the inode: a directory that is deleted, renamed away, recreated or
//   unmounted is watched again by its path, and a directory that does not exist yet is awaited
//   through its deepest existing ancestor. Its appearance counts as a change.
// - Where inotify cannot serve (the user's instance or watch limit is reached, or the directory is
//   on a FUSE, NFS, SMB/CIFS, 9p or ceph mount, where changes made elsewhere raise no events) the
//   stream polls instead: every latency period it compares the directory and the probe file with
//   what it saw last, and calls back when they differ.
// - The stream must be destroyed on the thread that made it; after that the callback never runs.

#include "platform/Export.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace zon {

class ZON_EXPORT FileEventStream {
public:
    enum class Method { Inotify, Polling };
    using Callback = std::function<void()>;

    // Starts watching directory ("" stands for the working folder). probe is the file whose
    // changes polling looks for (inotify reports every change in the directory).
    static std::unique_ptr<FileEventStream> create(
        std::string directory, std::string probe, std::chrono::nanoseconds latency, Callback callback);
    ~FileEventStream();
    FileEventStream(const FileEventStream&) = delete;
    FileEventStream& operator=(const FileEventStream&) = delete;

    Method method() const;
    // Why the stream polls ("inotify watch limit reached", "fuseblk mount", ...); empty for inotify.
    std::string pollingReason() const;

    struct State;

private:
    explicit FileEventStream(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace zon
