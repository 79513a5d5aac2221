#pragma once

// The machine's process table, read from /proc.
//
// Each process is read through one descriptor of its /proc/PID folder: the stat line, the exe
// link, cmdline and environ. Should the pid be reused while we read, the old descriptor answers
// ESRCH rather than the new process's files, so one record never mixes two processes. A process
// whose stat cannot be read has gone and is left out of a listing.

#include "platform/system/SystemResult.h"
#include "platform/values/ByteVector.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace zon {

// What the stat line says: the name between the first "(" and the last ")", the state letter
// after it, and the start time (field 22, clock ticks after boot).
struct ProcessStatLine {
    std::string_view name;
    char state = 0;
    uint64_t startTime = 0;
};

// Nothing when the line is not a stat line.
ZON_EXPORT std::optional<ProcessStatLine> parseProcessStatLine(std::string_view line);

// The argument area laid out as the original platform's kernel hands it over: the argument count
// (4 bytes, host order), the executable path and a NUL, the arguments, then the environment, each
// string ending in a NUL. The reader fills it in three steps, with the arguments and the
// environment read straight into it.
ZON_EXPORT void beginArgumentArea(ByteVector& area, std::string_view executablePath);
// Ends the arguments that follow the path: counts them into the header and ends the last with a
// NUL when it lacks one (a process that rewrote its arguments may leave it unterminated, and it
// must not run into the first environment entry). The environment is appended after.
ZON_EXPORT void endArgumentsOfArea(ByteVector& area, size_t executablePathLength);
// All three steps at once, for tests and fuzzing.
ZON_EXPORT std::string buildArgumentArea(std::string_view executablePath, std::string_view commandLine,
    std::string_view environment);

struct ProcessRecord {
    pid_t pid = 0;
    std::string name; // the kernel's name: at most 15 bytes, possibly cut inside a UTF-8 sequence
    char state = 0;
    uint64_t startTime = 0;
    // False when exe, cmdline or environ could not be read (another user's process, a kernel
    // thread, a zombie), or when they were not asked for.
    bool hasArgumentArea = false;
    ByteVector argumentArea;

    std::string_view argumentAreaBytes() const
    {
        return {reinterpret_cast<const char*>(argumentArea.data()), argumentArea.size()};
    }
};

enum class ProcessDetail { statLineOnly, withArgumentArea };

// Each of cmdline and environ is read up to this many bytes; a longer one counts as unreadable.
// The kernel refuses an exec whose arguments and environment together pass 3/4 of its 8 MiB stack
// cap, so only a process that moved its area with prctl can reach it.
inline constexpr size_t kArgumentFileCap = 6u << 20;
// A stat line is about 300 bytes: a 15-byte name and 50 numbers.
inline constexpr size_t kStatLineCap = 4096;

class ZON_EXPORT ProcessTable {
public:
    // The ids of /proc in ascending order (the kernel's order).
    static SystemResult<std::vector<pid_t>> processIDs();
    // One process, read through one descriptor of its folder.
    static SystemResult<ProcessRecord> readProcess(pid_t pid, ProcessDetail detail);
    // Calls visit with every process that could be read, in ascending pid order; false when /proc
    // cannot be listed. The record handed over is reused for the next process.
    static bool forEachProcess(ProcessDetail detail, const std::function<void(const ProcessRecord&)>& visit);
    // The stat line of pid now, read directly by its path (one open, one read).
    static SystemResult<ProcessRecord> readStatLine(pid_t pid);
    // Signals the process with pid when it is still the one that started at startTime: a process
    // descriptor is opened first and the start time checked after, so the signal reaches that
    // process or nobody. False (with no signal sent) when another process holds the id now.
    static SystemResult<bool> signalProcess(pid_t pid, uint64_t startTime, int signal);
};

} // namespace zon
