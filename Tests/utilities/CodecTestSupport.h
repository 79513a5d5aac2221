#pragma once

// Helpers shared by the codec tests: byte vectors, raised exceptions, temporary files, commands
// run through the shell and child processes under a memory limit.

#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "support/Raised.h"
#include "support/PeerProcess.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace zon::test {

// Deterministic bytes that compress a little, like real payloads: words from a small vocabulary
// with noise.
inline Bytes sampleBytes(size_t length, uint32_t seed = 1)
{
    static const char* const words[] = {"device ", "track ", "album ", "0x1F ", "sync ", "\n", "playlist "};
    Bytes bytes;
    bytes.reserve(length);
    while (bytes.size() < length) {
        seed = seed * 1664525u + 1013904223u;
        if (seed >> 29 == 0) {
            bytes.push_back(static_cast<uint8_t>(seed >> 16));
            continue;
        }
        for (const char* c = words[(seed >> 16) % 7]; *c && bytes.size() < length; ++c)
            bytes.push_back(static_cast<uint8_t>(*c));
    }
    return bytes;
}

// A file in the temporary folder, removed at the end of the scope.
class TempFile {
public:
    TempFile()
    {
        char pattern[] = "/tmp/zon-codec-XXXXXX";
        const int descriptor = mkstemp(pattern);
        EXPECT_GE(descriptor, 0);
        if (descriptor >= 0)
            close(descriptor);
        path_ = pattern;
    }
    ~TempFile() { std::remove(path_.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& path() const { return path_; }
    void write(const Bytes& bytes) const
    {
        std::ofstream(path_, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
    }
    Bytes read() const
    {
        std::ifstream in(path_, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    std::string path_;
};

// The standard output of a shell command; a failure when it exits non-zero.
inline std::string commandOutput(const std::string& command)
{
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) {
        ADD_FAILURE() << "cannot run " << command;
        return output;
    }
    char chunk[4096];
    size_t count;
    while ((count = fread(chunk, 1, sizeof chunk, pipe)) > 0)
        output.append(chunk, count);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

inline bool haveCommand(const std::string& name)
{
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

// The sanitizers reserve terabytes of address space up front and abort on a failed allocation
// instead of throwing, so a memory limit cannot be tested under them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kMemoryLimitsApply = false;
#else
inline constexpr bool kMemoryLimitsApply = true;
#endif

// Runs body in a child process whose address space may grow by at most headroom bytes past its
// size at the fork, and answers body's result as the child's exit status, or 128 + the signal
// that ended the child. The limit never touches the test process itself.
inline int exitStatusUnderMemoryLimit(size_t headroom, const std::function<int()>& body)
{
    std::fflush(nullptr);
    PeerProcess child;
    const bool started = child.runInChild([&] {
        unsigned long pages = 0;
        if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
            if (std::fscanf(statm, "%lu", &pages) != 1)
                pages = 0;
            std::fclose(statm);
        }
        const rlim_t size = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + headroom;
        const rlimit limit {size, size};
        if (pages == 0 || setrlimit(RLIMIT_AS, &limit) != 0)
            return 126;
        const int status = body();
        std::fflush(nullptr);
        return status;
    });
    const int status = started ? child.wait() : -1;
    if (status < 0)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace zon::test
