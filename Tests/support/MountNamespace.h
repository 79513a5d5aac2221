#pragma once

// Tests that mount run the mounting part in a forked child that first takes a private mount
// namespace: what it mounts is seen by no one else and goes away when the child exits, whatever
// happens to the test. The child's findings come back as text through a pipe.

#include <functional>
#include <optional>
#include <string>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zon::test {

inline bool runningAsRoot() { return ::geteuid() == 0; }

// The text body answers, or nullopt when the child could not be set up (no fork, no namespace).
inline std::optional<std::string> inPrivateMountNamespace(const std::function<std::string()>& body)
{
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0)
        return std::nullopt;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(pipeEnds[0]);
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            ::_exit(2);
        const std::string answer = body();
        for (size_t done = 0; done < answer.size();) {
            const ssize_t n = ::write(pipeEnds[1], answer.data() + done, answer.size() - done);
            if (n <= 0)
                break;
            done += static_cast<size_t>(n);
        }
        ::_exit(0);
    }
    ::close(pipeEnds[1]);
    std::string answer;
    char buffer[4096];
    for (ssize_t n; (n = ::read(pipeEnds[0], buffer, sizeof buffer)) > 0;)
        answer.append(buffer, static_cast<size_t>(n));
    ::close(pipeEnds[0]);
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return std::nullopt;
    return answer;
}

} // namespace zon::test
