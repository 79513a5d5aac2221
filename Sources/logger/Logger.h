#pragma once

// The Logger library: where log records go. Records arrive already formatted (the library's
// zon_log_obj formats them); the Logger filters them by level, stamps them and hands them to its
// sinks. Every entry point is safe from any thread and never throws.
//
// Levels: 1 error, 2 warning, 3 life-cycle information, 5 per-operation detail (4 is unused);
// a record passes a sink when its level is at or below the sink's threshold.

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#define ZON_LOGGER_EXPORT __attribute__((visibility("default")))

namespace zon::logger {

inline constexpr int kLevelError = 1;
inline constexpr int kLevelWarning = 2;
inline constexpr int kLevelInfo = 3;
inline constexpr int kLevelDetail = 5;

struct Record {
    std::string_view file;       // path of the source unit
    int line;
    std::string_view category;   // the object's log category
    int level;
    std::string_view identifier; // the log stream
    std::string_view message;    // the formatted text
    // Stamped by write() before the sinks see the record; callers leave them empty.
    std::chrono::system_clock::time_point time {};
    int thread = 0;              // kernel id of the calling thread
};

// A record with owned copies of its fields, for sinks that keep records past write().
struct KeptRecord {
    std::string file;
    int line = 0;
    std::string category;
    int level = 0;
    std::string identifier;
    std::string message;
    int thread = 0;
};

class ZON_LOGGER_EXPORT Sink {
public:
    explicit Sink(int threshold) : threshold_(threshold) {}
    virtual ~Sink();
    int threshold() const { return threshold_.load(std::memory_order_relaxed); }
    void setThreshold(int level);
    // Called with the Logger's sink lock not held; a sink serialises its own output.
    virtual void write(const Record& record) noexcept = 0;
    // Writes out whatever the sink holds back (counted repeats of a line); nothing by default.
    virtual void flush() noexcept;

private:
    std::atomic<int> threshold_;
};

// The highest threshold of all sinks: a record above it is dropped before any formatting.
ZON_LOGGER_EXPORT extern std::atomic<int> gMaximumThreshold;

inline bool isEnabled(int level) noexcept { return level <= gMaximumThreshold.load(std::memory_order_relaxed); }

ZON_LOGGER_EXPORT void write(const Record& record) noexcept;
// Flushes every sink. Runs at exit, so that repeats counted by then are written.
ZON_LOGGER_EXPORT void flush() noexcept;

ZON_LOGGER_EXPORT void addSink(std::shared_ptr<Sink> sink);
ZON_LOGGER_EXPORT void removeSink(const std::shared_ptr<Sink>& sink);
ZON_LOGGER_EXPORT std::vector<std::shared_ptr<Sink>> sinks();
// Recomputes gMaximumThreshold after a sink's threshold changed (Sink::setThreshold calls it).
ZON_LOGGER_EXPORT void thresholdsChanged();

// The first call of write, addSink, removeSink or sinks installs the sinks the environment asks
// for, once per process:
//   ZON_LOG_LEVEL       threshold of the standard-error sink (default 2)
//   ZON_LOG_STDERR=0    no standard-error sink
//   ZON_LOG_FILE        path of a rotating file sink; ZON_LOG_FILE_LEVEL (default 5),
//                       ZON_LOG_FILE_SIZE (bytes, K/M/G suffixes; default 10M),
//                       ZON_LOG_FILE_COUNT (rotated files kept; default 5)
//   ZON_LOG_JOURNAL=1   a systemd journal sink (threshold 5) when a journal runs
// Until then gMaximumThreshold lets every record through to write(), which does the set-up.

} // namespace zon::logger
