#include "support/PrivateUserManager.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace zon::test {

namespace {

constexpr const char* kSystemdPath = "/lib/systemd/systemd";
constexpr const char* kSystemCtlPath = "/usr/bin/systemctl";

bool exists(const std::string& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

// In the child, before it becomes the manager: a mount namespace whose mounts never reach the
// host, and a /run/systemd of its own that says systemd runs the machine.
void enterManagerNamespace(const std::string& logPath)
{
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || ::mount("tmpfs", "/run/systemd", "tmpfs", 0, "mode=0755") != 0 || ::mkdir("/run/systemd/system", 0755) != 0)
        ::_exit(126);
    const int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (log >= 0) {
        ::dup2(log, STDOUT_FILENO);
        ::dup2(log, STDERR_FILENO);
    }
}

} // namespace

PrivateUserManager::PrivateUserManager()
{
    unitFolder_ = folder_.makeFolder("units");
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && exists(std::string(runtime) + "/systemd/private")) {
        available_ = true;
        return;
    }
    if (::geteuid() != 0) {
        reason_ = "no user manager runs for this user, and starting a private one needs root";
        return;
    }
    if (!exists(kSystemdPath) || !exists(kSystemCtlPath)) {
        reason_ = "systemd is not installed (scripts/bootstrap installs it)";
        return;
    }
    available_ = startPrivateManager();
}

bool PrivateUserManager::startPrivateManager()
{
    const std::string runtime = folder_.makeFolder("run");
    ::chmod(runtime.c_str(), 0700);
    environment_.set("XDG_RUNTIME_DIR", runtime);
    environment_.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + runtime + "/bus");
    environment_.set("HOME", folder_.makeFolder("home"));
    environment_.set("XDG_CONFIG_HOME", folder_.makeFolder("config"));

    const std::string logPath = folder_.file("manager.log");
    PeerOptions options;
    options.beforeExec = [logPath] { enterManagerNamespace(logPath); };
    if (!manager_.start(kSystemdPath, {"--user"}, options)) {
        reason_ = "could not fork the user manager";
        return false;
    }
    const std::string socket = runtime + "/systemd/private";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!exists(socket)) {
        if (const int status = manager_.reapIfEnded(); status != -1) {
            reason_ = WIFEXITED(status) && WEXITSTATUS(status) == 126
                ? "cannot make a mount namespace with a private /run/systemd"
                : "the private user manager exited at start (see its log)";
            return false;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            reason_ = "the private user manager did not open its socket within 10 s";
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

PrivateUserManager::~PrivateUserManager()
{
    if (manager_.running()) {
        // Asked to stop, the manager stops its units first; a kill would orphan them.
        ::kill(manager_.pid(), SIGTERM);
        (void)manager_.wait();
    }
}

std::string PrivateUserManager::writeSleeperUnit(const std::string& name) const
{
    return folder_.write("units/" + name, "[Service]\nExecStart=/bin/sleep 1000\n[Install]\nWantedBy=default.target\n");
}

void disableUnitFile(const std::string& path)
{
    (void)std::system((std::string(kSystemCtlPath) + " --user disable --now " + path + " >/dev/null 2>&1").c_str());
}

int unitMainPid(const std::string& unit)
{
    const std::string command = std::string(kSystemCtlPath) + " --user show -p MainPID --value " + unit;
    FILE* output = ::popen(command.c_str(), "r");
    if (!output)
        return 0;
    int pid = 0;
    if (std::fscanf(output, "%d", &pid) != 1)
        pid = 0;
    ::pclose(output);
    return pid;
}

} // namespace zon::test
