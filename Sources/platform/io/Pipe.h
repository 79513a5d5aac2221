#pragma once

#include "platform/runtime/Object.h"

#include <cstddef>

namespace zon {

class FileHandle;

// A one-way channel between processes: a handle to read from and one to write to, each owning its
// descriptor (closed on exec). Run-time class NSPipe. Given to a Task as its standard output, the
// writing end goes to the child and the task closes the parent's copy, so the reader sees the end
// of the data once the child and whatever it started have finished writing.
class ZON_EXPORT Pipe final : public Object {
    ZON_OBJECT(Pipe, Object)
public:
    // Nil when the process has no descriptors left.
    static Ref<Pipe> pipe();
    // A pipe whose kernel buffer holds at least bytes when the system allows it (else as much as
    // it allows, the default 64 KiB at worst): a writer blocks only when that much is unread,
    // so a tool whose output is read after it exits can write that much and still finish.
    static Ref<Pipe> pipeHoldingAtLeast(size_t bytes);

    FileHandle* fileHandleForReading() const { return reading_.get(); }
    FileHandle* fileHandleForWriting() const { return writing_.get(); }

private:
    Pipe(Ref<FileHandle> reading, Ref<FileHandle> writing);
    ~Pipe() override;

    Ref<FileHandle> reading_;
    Ref<FileHandle> writing_;
};

} // namespace zon
