#pragma once

// A child process that a test or a benchmark talks to: a peer program started with arguments, or
// a function run in a forked copy of this process. Whatever happens, it does not outlive its
// owner: stop() and the destructor kill it and reap it.

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zon::test {

// How PeerProcess::start runs a program (outside the class, so that it can be a default argument).
struct PeerOptions {
    // Its standard output comes back through a pipe, read with lines() and printed().
    bool captureOutput = false;
    // Runs in the child between fork and exec (pinning it to a CPU, say).
    std::function<void()> beforeExec;
};

class PeerProcess {
public:
    using Options = PeerOptions;

    PeerProcess() = default;
    // Starts program (a path) with arguments; running() tells whether fork succeeded.
    PeerProcess(const std::string& program, const std::vector<std::string>& arguments, Options options = {});
    ~PeerProcess();
    PeerProcess(PeerProcess&& other) noexcept;
    PeerProcess& operator=(PeerProcess&& other) noexcept;
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    // Stops what ran before, then starts program with arguments. False when it could not fork
    // (a program that cannot be executed exits with status 127).
    bool start(const std::string& program, const std::vector<std::string>& arguments, Options options = {});
    // Stops what ran before, then runs body in a forked child that exits with body's result.
    bool runInChild(const std::function<int()>& body);

    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }

    // Kills the child (SIGKILL) and reaps it; nothing when none runs.
    void stop();
    // Waits for the child to end by itself and answers its wait status; -1 when none runs.
    int wait();
    // The wait status when the child has ended (it is reaped then); -1 while it runs or when none does.
    int reapIfEnded();

    // The complete lines it has printed so far (with captureOutput), reading without blocking.
    const std::vector<std::string>& lines();
    bool printed(std::string_view line);

private:
    // Forks; the child runs child() and exits with its result.
    bool spawn(bool captureOutput, const std::function<int()>& child);
    void closeOutput();

    pid_t pid_ = -1;
    int output_ = -1;
    std::string partialLine_;
    std::vector<std::string> lines_;
};

} // namespace zon::test
