#pragma once

// Runs the zon tool (ZON_TOOL_PATH, defined by the test program's build) as the user runs it.

#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace zon::test {

struct ZonOutput {
    std::string text; // standard output
    int exitCode = -1;
};

// arguments is a shell command line; environment, when given, is put before the command
// ("NAME=value ...").
inline ZonOutput runZon(const std::string& arguments, const std::string& environment = {})
{
    ZonOutput output;
    const std::string command = environment + " " + ZON_TOOL_PATH + " " + arguments + " 2>/dev/null";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe)
        return output;
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.text.append(buffer, n);
    const int status = ::pclose(pipe);
    output.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return output;
}

} // namespace zon::test
