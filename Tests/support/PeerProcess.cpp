#include "support/PeerProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace zon::test {

PeerProcess::PeerProcess(const std::string& program, const std::vector<std::string>& arguments, Options options)
{
    start(program, arguments, std::move(options));
}

PeerProcess::~PeerProcess()
{
    stop();
    closeOutput();
}

PeerProcess::PeerProcess(PeerProcess&& other) noexcept { *this = std::move(other); }

PeerProcess& PeerProcess::operator=(PeerProcess&& other) noexcept
{
    if (this != &other) {
        stop();
        closeOutput();
        pid_ = std::exchange(other.pid_, -1);
        output_ = std::exchange(other.output_, -1);
        partialLine_ = std::move(other.partialLine_);
        lines_ = std::move(other.lines_);
    }
    return *this;
}

bool PeerProcess::start(const std::string& program, const std::vector<std::string>& arguments, Options options)
{
    // The argument vector is built before forking, so the child only calls what it must.
    std::vector<std::string> copies = arguments;
    std::vector<char*> argv {const_cast<char*>(program.c_str())};
    for (std::string& argument : copies)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    return spawn(options.captureOutput, [&] {
        if (options.beforeExec)
            options.beforeExec();
        ::execv(program.c_str(), argv.data());
        return 127;
    });
}

bool PeerProcess::runInChild(const std::function<int()>& body) { return spawn(false, body); }

bool PeerProcess::spawn(bool captureOutput, const std::function<int()>& child)
{
    stop();
    closeOutput();
    int fds[2] = {-1, -1};
    if (captureOutput && ::pipe2(fds, O_CLOEXEC) != 0)
        return false;
    pid_ = ::fork();
    if (pid_ == 0) {
        if (captureOutput)
            ::dup2(fds[1], STDOUT_FILENO); // the copy stays open across exec
        ::_exit(child());
    }
    if (captureOutput) {
        ::close(fds[1]);
        if (pid_ > 0) {
            output_ = fds[0];
            ::fcntl(output_, F_SETFL, O_NONBLOCK);
        } else {
            ::close(fds[0]);
        }
    }
    return pid_ > 0;
}

void PeerProcess::stop()
{
    if (pid_ <= 0)
        return;
    ::kill(pid_, SIGKILL);
    wait();
}

int PeerProcess::wait()
{
    if (pid_ <= 0)
        return -1;
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status;
}

int PeerProcess::reapIfEnded()
{
    int status = 0;
    if (pid_ <= 0 || ::waitpid(pid_, &status, WNOHANG) != pid_)
        return -1;
    pid_ = -1;
    return status;
}

const std::vector<std::string>& PeerProcess::lines()
{
    char buffer[4096];
    ssize_t count;
    while (output_ >= 0 && (count = ::read(output_, buffer, sizeof buffer)) > 0) {
        partialLine_.append(buffer, static_cast<size_t>(count));
        for (size_t end; (end = partialLine_.find('\n')) != std::string::npos; partialLine_.erase(0, end + 1))
            lines_.push_back(partialLine_.substr(0, end));
    }
    return lines_;
}

bool PeerProcess::printed(std::string_view line)
{
    const auto& all = lines();
    return std::find(all.begin(), all.end(), line) != all.end();
}

void PeerProcess::closeOutput()
{
    if (output_ >= 0)
        ::close(output_);
    output_ = -1;
    partialLine_.clear();
    lines_.clear();
}

} // namespace zon::test
