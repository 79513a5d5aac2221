#pragma once

#include "Logger.h"

#include <mutex>
#include <unistd.h>

namespace zon::logger {

// Writes each record as one line (LineFormat.h) to standard error, or to another descriptor the
// sink does not own. Lines of concurrent writers never interleave.
class ZON_LOGGER_EXPORT StderrSink final : public Sink {
public:
    explicit StderrSink(int threshold, int fd = STDERR_FILENO) : Sink(threshold), fd_(fd) {}
    void write(const Record& record) noexcept override;

private:
    const int fd_;
    std::mutex lock_;
};

} // namespace zon::logger
