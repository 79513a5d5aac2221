#include "FileSink.h"

#include "LineFormat.h"
#include "WriteFully.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace zon::logger {

FileSink::FileSink(std::string path, int threshold, uint64_t maxBytes, int keptFiles)
    : RepeatLimitedSink(threshold)
    , path_(std::move(path))
    , maxBytes_(maxBytes)
    , keptFiles_(keptFiles < 0 ? 0 : keptFiles)
{
    std::lock_guard guard(lock_);
    openLocked(OpenMode::Append);
}

FileSink::~FileSink()
{
    flush();
    closeLocked();
}

bool FileSink::openLocked(OpenMode mode)
{
    lastOpenAttempt_ = std::chrono::steady_clock::now();
    int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (mode == OpenMode::Truncate ? O_TRUNC : 0);
    fd_ = ::open(path_.c_str(), flags, 0644);
    struct stat info;
    if (fd_ >= 0 && ::fstat(fd_, &info) == 0) {
        size_ = uint64_t(info.st_size);
        reportedFailure_ = false;
        return true;
    }
    int error = errno;
    closeLocked();
    if (!reportedFailure_) {
        reportedFailure_ = true;
        std::string message = "zon logger: cannot open log file " + path_ + ": " + std::strerror(error) + "\n";
        writeFully(STDERR_FILENO, message);
    }
    return false;
}

void FileSink::closeLocked() noexcept
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    size_ = 0;
}

void FileSink::rotateLocked()
{
    closeLocked();
    if (keptFiles_ == 0) {
        openLocked(OpenMode::Truncate);
        return;
    }
    std::string from, to;
    for (int index = keptFiles_ - 1; index >= 1; --index) {
        from = path_ + "." + std::to_string(index);
        to = path_ + "." + std::to_string(index + 1);
        std::rename(from.c_str(), to.c_str()); // a missing older file is fine
    }
    std::rename(path_.c_str(), (path_ + ".1").c_str());
    openLocked(OpenMode::Append);
}

void FileSink::writeLocked(const Record& record)
{
    line_.clear();
    appendLine(line_, record);
    if (fd_ < 0) {
        if (std::chrono::steady_clock::now() - lastOpenAttempt_ < std::chrono::seconds(1))
            return;
        if (!openLocked(OpenMode::Append))
            return;
    }
    if (maxBytes_ > 0 && size_ > 0 && size_ + line_.size() > maxBytes_) {
        rotateLocked();
        if (fd_ < 0)
            return;
    }
    if (writeFully(fd_, line_))
        size_ += line_.size();
}

} // namespace zon::logger
