#include "platform/system/ProcessCallsInternal.h"

#include "platform/system/FileCallsInternal.h"

#include <dlfcn.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

extern char** environ;

namespace zon {

SystemResult<std::string> executablePath() { return symbolicLinkTarget("/proc/self/exe"); }

SystemResult<std::string> loadedObjectPath(const void* address)
{
    Dl_info info {};
    if (::dladdr(address, &info) == 0 || !info.dli_fname || !*info.dli_fname)
        return SystemError{ENOENT, "dladdr", "no loaded object holds the address"};
    return std::string(info.dli_fname);
}

namespace {

// posix_spawn's attribute and file-action records, destroyed on every path.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    SpawnSetup() { ::posix_spawn_file_actions_init(&actions); }
    ~SpawnSetup() { ::posix_spawn_file_actions_destroy(&actions); }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
};

} // namespace

SystemResult<pid_t> spawnProcess(const std::vector<std::string>& arguments, ProgramLookup lookup,
    const StandardStreams& streams)
{
    if (arguments.empty())
        return SystemError{EINVAL, "posix_spawn", "no program to start"};
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    SpawnSetup setup;
    // dup2 onto the same number clears close-on-exec, so a stream already in place survives too.
    const int sources[] = {streams.input, streams.output, streams.error};
    for (int target = 0; target < 3; ++target) {
        if (sources[target] < 0)
            continue;
        if (const int failed = ::posix_spawn_file_actions_adddup2(&setup.actions, sources[target], target))
            return SystemError{failed, "posix_spawn_file_actions_adddup2", {}};
    }
    if (const int failed = ::posix_spawn_file_actions_addclosefrom_np(&setup.actions, 3))
        return SystemError{failed, "posix_spawn_file_actions_addclosefrom_np", {}};
    pid_t child = 0;
    const auto spawn = lookup == ProgramLookup::searchPath ? ::posix_spawnp : ::posix_spawn;
    const int failed = spawn(&child, argv[0], &setup.actions, nullptr, argv.data(), environ);
    if (failed)
        return SystemError{failed, "posix_spawn", {}};
    return child;
}

SystemResult<int> waitForProcess(pid_t child)
{
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return SystemError::last("waitpid");
    }
    return status;
}

SystemResult<ProcessUsage> waitForProcessWithUsage(pid_t child)
{
    ProcessUsage usage;
    while (::wait4(child, &usage.status, 0, &usage.resources) < 0) {
        if (errno != EINTR)
            return SystemError::last("wait4");
    }
    return usage;
}

SystemResult<std::optional<int>> reapIfEnded(pid_t child)
{
    int status = 0;
    pid_t reaped;
    while ((reaped = ::waitpid(child, &status, WNOHANG)) < 0) {
        if (errno != EINTR)
            return SystemError::last("waitpid");
    }
    return reaped == 0 ? std::nullopt : std::optional<int>(status);
}

void reapWhenDone(pid_t child)
{
    std::thread([child] { (void)waitForProcess(child); }).detach();
}

} // namespace zon
