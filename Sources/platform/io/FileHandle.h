#pragma once

#include "platform/runtime/Object.h"
#include "platform/system/FileDescriptor.h"

#include <cstddef>
#include <cstdint>

namespace zon {

class Array;
class Data;
class String;

// The platform's name for failures of file handle operations.
ZON_EXPORT extern String* const NSFileHandleOperationException;

// An open file descriptor as an object: its offset, seeks and reads. Run-time class NSFileHandle.
//
// A handle either owns its descriptor (made from a path, or told to close it) and closes it when
// destroyed, or borrows one that stays open. Operations the system refuses raise
// NSFileHandleOperationException, as the platform's handle does: "*** -[NSConcreteFileHandle
// offsetInFile]: Illegal seek" for the offset of a pipe. Reads go on through interruptions. A
// handle is not meant to be used from two threads at once (they would share one offset).
class ZON_EXPORT FileHandle final : public Object {
    ZON_OBJECT(FileHandle, Object)
public:
    // A handle that owns a descriptor opened read-only; nil when the file cannot be opened.
    static Ref<FileHandle> fileHandleForReadingAtPath(const String* path);
    // A handle over fd that closes it when destroyed only when closeOnDealloc is set.
    static Ref<FileHandle> initWithFileDescriptor_closeOnDealloc(int fd, bool closeOnDealloc);
    static Ref<FileHandle> initWithFileDescriptor(int fd) { return initWithFileDescriptor_closeOnDealloc(fd, false); }

    int fileDescriptor() const { return fd_; }
    unsigned long long offsetInFile() const;
    // Moves to the end and answers the new offset: the file's size.
    unsigned long long seekToEndOfFile();
    void seekToFileOffset(unsigned long long offset);
    // Up to length bytes from the offset on; fewer at the end of the file, empty past it.
    Ref<Data> readDataOfLength(size_t length);
    Ref<Data> readDataToEndOfFile();
    // Writes all of data at the offset (nil writes nothing).
    void writeData(const Data* data);
    // Closes an owned descriptor now; later operations raise. A pipe's reader sees its end once
    // every writing handle is closed.
    void closeFile();

    // ---- NSFileHandle(ZonTail) ------------------------------------------------------------------
    // The last count lines of the file, oldest first, read backwards from the end in 1,024-byte
    // blocks, so the cost follows the lines asked for and not the file's size. Each line found
    // by its line feed ends in U+0000 (the oldest line, when the start of the file was reached,
    // does not); a final line feed gives no empty last line; lines that are not UTF-8 are left out
    // but count. When the start of the file is reached with lines still to find, the reads go on
    // forward from where the last one ended, so a file longer than a block and holding fewer lines
    // than asked gives some of its lines again. The offset is restored afterwards. A count of 0,
    // an empty file or a descriptor that cannot seek (a pipe) gives an empty array.
    Ref<Array> readLastLines(uint32_t count);

protected:
    ~FileHandle() override;

private:
    FileHandle(int fd, FileDescriptor owned) : fd_(fd), owned_(std::move(owned)) {}
    [[noreturn]] void raiseOperationFailure(const char* operation, int code) const;

    int fd_;
    FileDescriptor owned_; // empty when the descriptor is borrowed
};

} // namespace zon
