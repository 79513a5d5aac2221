#pragma once

#include "Logger.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace zon::logger {

// Collapses floods of one line, so that no peer can fill a disk through the log.
//
// Two records are the same line when they agree in file, line, level, category, identifier and
// formatted message: everything a sink shows but the time and the thread. The first record of a
// line is written; the same line again within kWindow of it is only counted. When the window is
// over the count goes out as one summary record, the line's own fields with the message
// "<message> (repeated N times)", and the next record of the line starts a new window. A window
// ends when a later record (of any line) passes its end, when the line's slot is needed for
// another line, or at flush(). So a flood that stops is summarised at the next record the sink
// gets or at flush, which the Logger runs at exit. A steady flood comes out as the line and its
// summary once a second.
//
// Windows go by the records' own time stamps: a clock set back ends them. Not thread-safe; a sink
// calls it under its lock.
class ZON_LOGGER_EXPORT RepeatFilter {
public:
    static constexpr std::chrono::seconds kWindow {1};
    // Lines tracked at once: interleaved floods of up to this many lines are each collapsed.
    static constexpr size_t kTrackedLines = 8;

    using Emit = std::function<void(const Record&)>;

    // Whether record is to be written. Summaries that are due are handed to emit first.
    bool admit(const Record& record, const Emit& emit);
    // Hands the summaries of all counted repeats to emit and forgets every line.
    void flush(std::chrono::system_clock::time_point now, const Emit& emit);

private:
    struct Line {
        bool used = false;
        size_t hash = 0;
        KeptRecord kept;
        std::chrono::system_clock::time_point start {};
        uint64_t repeats = 0;

        bool matches(size_t recordHash, const Record& record) const;
        void assign(size_t recordHash, const Record& record);
    };

    // Ends line's window, handing its summary to emit when it counted repeats.
    static void close(Line& line, std::chrono::system_clock::time_point now, const Emit& emit);

    std::array<Line, kTrackedLines> lines_;
};

} // namespace zon::logger
