#pragma once

// A fake xdg-open first on PATH for one test: it writes each argument it gets on a line of its
// own into a file, which the test reads back. Also answers whether this process has children
// left unreaped.

#include "support/ScratchFolder.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace zon::test {

class FakeOpener {
public:
    FakeOpener()
    {
        const std::string script = folder_.write("bin/xdg-open",
            "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > '" + folder_.file("opened.part") + "' && mv '"
                + folder_.file("opened.part") + "' '" + folder_.file("opened") + "'\n");
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        const char* path = std::getenv("PATH");
        env_.set("PATH", folder_.file("bin") + ":" + (path ? path : "/usr/bin:/bin"));
    }

    // The arguments of the first run, once it has finished; nullopt when none came in time.
    std::optional<std::vector<std::string>> arguments(std::chrono::seconds timeout = std::chrono::seconds(10)) const
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!std::filesystem::exists(folder_.file("opened"))) {
            if (std::chrono::steady_clock::now() > deadline)
                return std::nullopt;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        std::vector<std::string> lines;
        std::ifstream in(folder_.file("opened"));
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    }
    bool ran() const { return std::filesystem::exists(folder_.file("opened")); }

private:
    ScratchFolder folder_;
    ScopedEnvironment env_;
};

// Whether some child of this process is a zombie: ended and not yet reaped.
inline bool hasZombieChild()
{
    const std::string parent = std::to_string(::getpid());
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string line;
        if (!std::getline(stat, line))
            continue;
        // pid (comm) state ppid ...: the command may hold spaces and parentheses.
        std::istringstream rest(line.substr(line.rfind(')') + 1));
        std::string state, ppid;
        rest >> state >> ppid;
        if (state == "Z" && ppid == parent)
            return true;
    }
    return false;
}

// Waits until no child of this process is a zombie; false when one stays longer than timeout.
inline bool childrenAreReaped(std::chrono::seconds timeout = std::chrono::seconds(10))
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (hasZombieChild()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace zon::test
