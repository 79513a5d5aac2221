#pragma once

// Helpers shared by the codec tests: byte vectors, raised exceptions, temporary files and
// commands run through the shell.

#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "support/Raised.h"
#include "support/Values.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>
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

} // namespace zon::test
