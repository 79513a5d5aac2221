#pragma once

#include "RepeatLimitedSink.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace zon::logger {

// Appends each record as one line (LineFormat.h) to a file and rotates by size: when a line
// would take the file past maxBytes, path.N-1 becomes path.N, ..., path becomes path.1 and a
// fresh path is started, so at most keptFiles old files remain (none: the file starts over).
// maxBytes 0 never rotates. Each line is written with one system call as it arrives, so lines
// survive a crash of the process. One process per path: rotation is not coordinated between
// processes.
//
// A file that cannot be opened drops records; the sink says so once on standard error and tries
// to open it again at most once a second. Floods of one line are summarised (RepeatFilter.h).
class ZON_LOGGER_EXPORT FileSink final : public RepeatLimitedSink {
public:
    FileSink(std::string path, int threshold, uint64_t maxBytes, int keptFiles);
    ~FileSink() override;
    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;

    const std::string& path() const { return path_; }
    uint64_t maxBytes() const { return maxBytes_; }
    int keptFiles() const { return keptFiles_; }

private:
    void writeLocked(const Record& record) override;
    enum class OpenMode { Append, Truncate };
    bool openLocked(OpenMode mode);
    void closeLocked() noexcept;
    void rotateLocked();

    const std::string path_;
    const uint64_t maxBytes_;
    const int keptFiles_;
    int fd_ = -1;
    std::string line_; // the line being written; kept to reuse its memory
    uint64_t size_ = 0;
    bool reportedFailure_ = false;
    std::chrono::steady_clock::time_point lastOpenAttempt_ {};
};

} // namespace zon::logger
