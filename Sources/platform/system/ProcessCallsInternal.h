#pragma once

// The running program and the programs it starts.

#include "platform/system/SystemResult.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace zon {

// The running program's executable, from /proc/self/exe.
ZON_EXPORT SystemResult<std::string> executablePath();
// The file of the loaded library or program that holds address (dladdr).
ZON_EXPORT SystemResult<std::string> loadedObjectPath(const void* address);

// Starts a program with posix_spawn: arguments[0] is the program, looked up on PATH when it holds
// no "/"; the arguments go to it as they are, with no shell between. The child inherits the
// environment and descriptors 0 to 2 only: every other descriptor is closed in it, even one a
// caller left open across exec. The caller must reap the child (waitForProcess or reapWhenDone).
ZON_EXPORT SystemResult<pid_t> spawnProcess(const std::vector<std::string>& arguments);
// Waits for a child to end and answers its wait status (WIFEXITED and kin read it).
ZON_EXPORT SystemResult<int> waitForProcess(pid_t child);
// Reaps a child on a thread of its own when it ends, so that none stays a zombie while the
// caller goes on without waiting.
ZON_EXPORT void reapWhenDone(pid_t child);

} // namespace zon
