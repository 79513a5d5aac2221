#include "logger/Logger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>

using namespace zon::logger;
using ::testing::ExitedWithCode;

// The Logger reads the environment once per process, at its first use. Each case sets the
// variables and logs inside a freshly started child (a death-test child re-executes this program),
// and reports through its exit code and standard error.

namespace {

void logLine(int level, std::string_view message)
{
    write(Record {__FILE__, __LINE__, "default", level, "default", message});
}

std::string contents(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class LoggerEnvironment : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(LoggerEnvironment, LevelAndFileVariablesShapeTheSinks)
{
    std::string path = ::testing::TempDir() + "zon-logger-environment-" + std::to_string(getpid()) + ".log";
    EXPECT_EXIT(
        {
            std::remove(path.c_str());
            setenv("ZON_LOG_LEVEL", "1", 1);
            setenv("ZON_LOG_FILE", path.c_str(), 1);
            setenv("ZON_LOG_FILE_LEVEL", "3", 1);
            logLine(kLevelError, "to both");
            logLine(kLevelInfo, "to the file");
            logLine(kLevelDetail, "to nobody");
            std::string file = contents(path);
            std::remove(path.c_str());
            bool ok = file.find("to both") != std::string::npos && file.find("to the file") != std::string::npos
                && file.find("to nobody") == std::string::npos;
            std::exit(ok ? 0 : 1);
        },
        ExitedWithCode(0), "<E> default/default [^ ]*EnvironmentTests.cpp:[0-9]+: to both\n$");
}

TEST_F(LoggerEnvironment, StderrCanBeTurnedOffLeavingNothingEnabled)
{
    EXPECT_EXIT(
        {
            setenv("ZON_LOG_STDERR", "0", 1);
            setenv("ZON_LOG_LEVEL", "5", 1);
            logLine(kLevelError, "silenced");
            std::exit(sinks().empty() && !isEnabled(kLevelError) ? 0 : 1);
        },
        ExitedWithCode(0), "^$");
}

TEST_F(LoggerEnvironment, IsReadOnlyOnce)
{
    EXPECT_EXIT(
        {
            setenv("ZON_LOG_LEVEL", "1", 1);
            auto first = sinks();
            setenv("ZON_LOG_LEVEL", "5", 1);
            auto second = sinks();
            bool ok = first.size() == 1 && second == first && second[0]->threshold() == 1
                && !isEnabled(kLevelWarning);
            std::exit(ok ? 0 : 1);
        },
        ExitedWithCode(0), "");
}

} // namespace
