#pragma once

#include "RepeatLimitedSink.h"

namespace zon::logger {

// Sends each record to the systemd journal with structured fields: MESSAGE, PRIORITY, CODE_FILE,
// CODE_LINE, ZON_CATEGORY, ZON_LEVEL and ZON_IDENTIFIER. Exists only where a journal runs and the
// library was built with libsystemd; create() answers null elsewhere. Floods of one line are
// summarised (RepeatFilter.h).
class ZON_LOGGER_EXPORT JournalSink final : public RepeatLimitedSink {
public:
    static std::shared_ptr<JournalSink> create(int threshold);
    static bool isAvailable() noexcept;
    // Syslog priority of a level: 1 err (3), 2 warning (4), 3 and 4 info (6), 5 and above debug (7).
    static int priorityForLevel(int level) noexcept;

    ~JournalSink() override;

private:
    explicit JournalSink(int threshold) : RepeatLimitedSink(threshold) {}
    void writeLocked(const Record& record) override;
};

} // namespace zon::logger
