#pragma once

// The owner of one open file descriptor: it closes the descriptor when it goes, on every path.
// Move-only; an empty owner holds -1.

#include "platform/Export.h"
#include "platform/system/SystemResult.h"

namespace zon {

class ZON_EXPORT FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return fd_; }
    bool isValid() const { return fd_ >= 0; }
    explicit operator bool() const { return isValid(); }

    // Gives the descriptor up without closing it.
    [[nodiscard]] int release() noexcept
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    // Closes what is held (ignoring the outcome) and takes fd.
    void reset(int fd = -1) noexcept;
    // Closes now and says whether the close succeeded: the last chance a file has to report that
    // written data did not reach the disk.
    SystemResult<> close();
    // A second descriptor for the same open file, closed on exec.
    SystemResult<FileDescriptor> duplicate() const;

private:
    int fd_ = -1;
};

} // namespace zon
