#pragma once

#include "Logger.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace zon::logger {

// One record as a capture sink keeps it: owned copies of every field.
using CapturedRecord = KeptRecord;

// Keeps the records it receives in memory, in arrival order, for tests to inspect. Safe from any
// thread; the accessors answer copies.
class ZON_LOGGER_EXPORT CaptureSink final : public Sink {
public:
    explicit CaptureSink(int threshold = kLevelDetail) : Sink(threshold) {}

    void write(const Record& record) noexcept override;

    std::vector<CapturedRecord> records() const;
    // The messages of the records, in order.
    std::vector<std::string> lines() const;
    void clear();

    // Waits until a kept record matches (one kept before the call counts); false after timeout.
    bool waitForRecord(const std::function<bool(const CapturedRecord&)>& matches, std::chrono::milliseconds timeout);
    bool waitForLine(std::string_view message, std::chrono::milliseconds timeout);

private:
    mutable std::mutex lock_;
    std::condition_variable arrived_;
    std::vector<CapturedRecord> records_;
};

} // namespace zon::logger
