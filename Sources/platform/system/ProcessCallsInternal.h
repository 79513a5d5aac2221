#pragma once

// The running program and the programs it starts.

#include "platform/system/SystemResult.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <vector>

namespace zon {

// The running program's executable, from /proc/self/exe.
ZON_EXPORT SystemResult<std::string> executablePath();
// The file of the loaded library or program that holds address (dladdr).
ZON_EXPORT SystemResult<std::string> loadedObjectPath(const void* address);

// How spawnProcess finds the program named by arguments[0].
enum class ProgramLookup {
    searchPath, // looked up on PATH when it holds no "/"
    exactPath,  // used as it stands, relative to the working folder when it holds no "/"
};
// Descriptors the child gets as its standard input, output and error; -1 leaves the parent's.
struct StandardStreams {
    int input = -1;
    int output = -1;
    int error = -1;
};

// Starts a program with posix_spawn; the arguments, arguments[0] included, go to it as they are,
// with no shell between. The child inherits the environment and descriptors 0 to 2 only (or the
// ones streams names in their place): every other descriptor is closed in it, even one a caller
// left open across exec. A program that cannot be executed fails here (posix_spawn reports the
// exec's failure), not in the child. The caller must reap the child (waitForProcess or
// reapWhenDone).
ZON_EXPORT SystemResult<pid_t> spawnProcess(const std::vector<std::string>& arguments,
    ProgramLookup lookup = ProgramLookup::searchPath, const StandardStreams& streams = {});
// How spawnConfinedProcess holds a child in: each field left at its default changes nothing.
struct ChildConfinement {
    std::string workingDirectory; // the child's working folder; empty keeps the parent's
    uint64_t addressSpaceBytes = 0; // RLIMIT_AS, soft and hard; 0 for none
    uint64_t cpuSeconds = 0; // RLIMIT_CPU, soft and hard; 0 for none
    bool newSession = false; // setsid(): its own session and process group, no terminal
};
// Starts the program at arguments[0] (an exact path) like spawnProcess, confined as confinement
// says before the program runs. posix_spawn cannot set resource limits, so this forks and does
// the setup in the child with async-signal-safe calls only, reporting a failed setup or exec
// back through a close-on-exec pipe: a program that cannot be run fails here, not in the child.
ZON_EXPORT SystemResult<pid_t> spawnConfinedProcess(const std::vector<std::string>& arguments,
    const StandardStreams& streams, const ChildConfinement& confinement);
// Sends signal to every process of the group (kill(2) with -group).
ZON_EXPORT SystemResult<> signalProcessGroup(pid_t group, int signal);
// Waits for that one child to end (other children are left to their owners) and answers its wait
// status (WIFEXITED and kin read it).
ZON_EXPORT SystemResult<int> waitForProcess(pid_t child);
// The same (wait4(2)), with what the child used: its CPU time and its peak resident size.
struct ProcessUsage {
    int status = 0;
    struct rusage resources {};
};
ZON_EXPORT SystemResult<ProcessUsage> waitForProcessWithUsage(pid_t child);
// The wait status of that one child when it has ended (and is now reaped); nullopt while it runs.
ZON_EXPORT SystemResult<std::optional<int>> reapIfEnded(pid_t child);
// Reaps a child on a thread of its own when it ends, so that none stays a zombie while the
// caller goes on without waiting.
ZON_EXPORT void reapWhenDone(pid_t child);

} // namespace zon
