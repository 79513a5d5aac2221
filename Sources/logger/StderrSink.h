#pragma once

#include "RepeatLimitedSink.h"

#include <string>
#include <unistd.h>

namespace zon::logger {

// Writes each record as one line (LineFormat.h) to standard error, or to another descriptor the
// sink does not own. Lines of concurrent writers never interleave; floods of one line are
// summarised (RepeatFilter.h).
class ZON_LOGGER_EXPORT StderrSink final : public RepeatLimitedSink {
public:
    explicit StderrSink(int threshold, int fd = STDERR_FILENO) : RepeatLimitedSink(threshold), fd_(fd) {}
    ~StderrSink() override;

private:
    void writeLocked(const Record& record) override;

    const int fd_;
    std::string line_; // the line being written; kept to reuse its memory
};

} // namespace zon::logger
