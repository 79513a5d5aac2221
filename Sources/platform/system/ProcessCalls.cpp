#include "platform/system/ProcessCallsInternal.h"

#include "platform/system/FileCallsInternal.h"

#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
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

// The arguments as exec takes them: pointers into arguments, then a null.
std::vector<char*> argumentVector(const std::vector<std::string>& arguments)
{
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    return argv;
}

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
    std::vector<char*> argv = argumentVector(arguments);

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

namespace {

// Writes the errno to the report pipe and ends the child.
[[noreturn]] void reportChildFailure(int report)
{
    const int failed = errno;
    (void)!::write(report, &failed, sizeof failed);
    ::_exit(127);
}

// The child's side of spawnConfinedProcess, between fork and exec: async-signal-safe calls only.
[[noreturn]] void becomeConfinedChild(char* const* argv, const StandardStreams& streams,
    const ChildConfinement& confinement, int report)
{
    const auto fail = [report] { reportChildFailure(report); };
    // A blocked or ignored signal would outlive exec: the child starts with none blocked and the
    // default action for the ones a process ignores to survive broken pipes.
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    ::sigaction(SIGPIPE, &defaultAction, nullptr);
    if (confinement.newSession && ::setsid() < 0)
        fail();
    const auto limit = [&](int resource, uint64_t value) {
        const struct rlimit bound {value, value};
        if (value && ::setrlimit(resource, &bound) != 0)
            fail();
    };
    limit(RLIMIT_AS, confinement.addressSpaceBytes);
    limit(RLIMIT_CPU, confinement.cpuSeconds);
    if (!confinement.workingDirectory.empty() && ::chdir(confinement.workingDirectory.c_str()) != 0)
        fail();
    const int sources[] = {streams.input, streams.output, streams.error};
    for (int target = 0; target < 3; ++target) {
        if (sources[target] >= 0 && sources[target] != target && ::dup2(sources[target], target) < 0)
            fail();
        if (sources[target] == target && ::fcntl(target, F_SETFD, 0) < 0)
            fail();
    }
    // Everything else goes, except the report pipe, which closes itself on exec.
    if (report > 3)
        ::syscall(SYS_close_range, 3u, unsigned(report - 1), 0u);
    ::syscall(SYS_close_range, unsigned(report + 1), ~0u, 0u);
    ::execve(argv[0], argv, environ);
    reportChildFailure(report);
}

} // namespace

SystemResult<pid_t> spawnConfinedProcess(const std::vector<std::string>& arguments, const StandardStreams& streams,
    const ChildConfinement& confinement)
{
    if (arguments.empty())
        return SystemError{EINVAL, "fork", "no program to start"};
    std::vector<char*> argv = argumentVector(arguments);
    auto report = createPipe();
    if (!report)
        return report.error();
    const pid_t child = ::fork();
    if (child < 0)
        return SystemError::last("fork");
    if (child == 0)
        becomeConfinedChild(argv.data(), streams, confinement, report.value().writing.get());
    report.value().writing.reset();
    int childError = 0;
    auto told = readSome(report.value().reading.get(), {reinterpret_cast<uint8_t*>(&childError), sizeof childError});
    if (told && told.value() == sizeof childError) {
        (void)waitForProcess(child);
        return SystemError{childError, "exec", {}};
    }
    return child;
}

SystemResult<> signalProcessGroup(pid_t group, int signal)
{
    if (::kill(-group, signal) != 0)
        return SystemError::last("kill");
    return {};
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
