// A child for the process-table tests. Without arguments, or with "park" first, it waits for a
// signal (any further arguments are only there to be read back). "list [N]" parks N children of
// its own, then prints "pid fullname" for each process it sees. "recycle" signals a stale snapshot
// of a child whose pid has been handed to a new child (root in a fresh pid namespace only).
// "duplicates" prints the pid of each other instance of itself that duplicateProcesses finds.

#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Array.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonProcess.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace zon;

namespace {

constexpr int kSkipped = 77;

[[noreturn]] void park()
{
    for (;;)
        ::pause();
}

pid_t parkedChild()
{
    const pid_t pid = ::fork();
    if (pid == 0)
        park();
    return pid;
}

int list(int children)
{
    for (int i = 0; i < children; ++i)
        parkedChild();
    Ref<Array> processes = TXZonProcess::allRunningProcesses();
    for (Object* object : *processes) {
        auto* process = static_cast<TXZonProcess*>(object);
        std::printf("%d %s\n", process->pid(), process->fullname()->UTF8String().c_str());
    }
    return 0;
}

int duplicates()
{
    Ref<Array> others = TXZonProcess::duplicateProcesses();
    for (Object* object : *others)
        std::printf("%d\n", static_cast<TXZonProcess*>(object)->pid());
    return 0;
}

bool setLastPID(pid_t pid)
{
    const int fd = ::open("/proc/sys/kernel/ns_last_pid", O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const std::string text = std::to_string(pid);
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    return written;
}

// 0 when the stale snapshot's signal is refused and the new holder of the pid lives on.
int recycle()
{
    const pid_t first = parkedChild();
    Ref<TXZonProcess> stale = TXZonProcess::processForPid(first);
    if (!stale)
        return 1;
    ::kill(first, SIGKILL);
    ::waitpid(first, nullptr, 0);
    // Start times count clock ticks (10 ms): the new holder must start in a later one.
    ::usleep(30'000);
    if (!setLastPID(first - 1))
        return kSkipped;
    const pid_t second = parkedChild();
    if (second != first)
        return kSkipped;
    const bool refused = !stale->terminate();
    const bool alive = ::waitpid(second, nullptr, WNOHANG) == 0;
    ::kill(second, SIGKILL);
    return refused && alive ? 0 : 2;
}

} // namespace

int main(int argc, char** argv)
{
    AutoreleasePool pool;
    const std::string mode = argc > 1 ? argv[1] : "park";
    if (mode == "list")
        return list(argc > 2 ? std::atoi(argv[2]) : 0);
    if (mode == "recycle")
        return recycle();
    if (mode == "duplicates")
        return duplicates();
    park();
}
