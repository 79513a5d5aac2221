#include "logger/Configuration.h"
#include "logger/FileSink.h"
#include "logger/StderrSink.h"

#include <gtest/gtest.h>

#include <map>

using namespace zon::logger;

namespace {

Configuration configure(std::map<std::string, std::string> variables)
{
    return configurationFromEnvironment([&variables](const char* name) -> const char* {
        auto found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    });
}

TEST(Configuration, EmptyEnvironmentGivesStderrAtWarnings)
{
    Configuration configuration = configure({});
    EXPECT_TRUE(configuration.stderrEnabled);
    EXPECT_EQ(configuration.stderrLevel, kLevelWarning);
    EXPECT_TRUE(configuration.filePath.empty());
    EXPECT_FALSE(configuration.journal);

    auto sinks = makeSinks(configuration);
    ASSERT_EQ(sinks.size(), 1u);
    EXPECT_NE(dynamic_cast<StderrSink*>(sinks[0].get()), nullptr);
    EXPECT_EQ(sinks[0]->threshold(), kLevelWarning);
}

TEST(Configuration, ReadsEveryVariable)
{
    std::string path = ::testing::TempDir() + "zon-logger-configuration.log";
    Configuration configuration = configure({{"ZON_LOG_LEVEL", "5"}, {"ZON_LOG_STDERR", "0"}, {"ZON_LOG_FILE", path},
        {"ZON_LOG_FILE_LEVEL", "3"}, {"ZON_LOG_FILE_SIZE", "64K"}, {"ZON_LOG_FILE_COUNT", "2"}, {"ZON_LOG_JOURNAL", "1"}});
    EXPECT_EQ(configuration.stderrLevel, 5);
    EXPECT_FALSE(configuration.stderrEnabled);
    EXPECT_EQ(configuration.filePath, path);
    EXPECT_EQ(configuration.fileLevel, 3);
    EXPECT_EQ(configuration.fileMaxBytes, 64u * 1024);
    EXPECT_EQ(configuration.fileCount, 2);
    EXPECT_TRUE(configuration.journal);
    EXPECT_EQ(configure({{"ZON_LOG_FILE_SIZE", "3m"}}).fileMaxBytes, 3u << 20);
    EXPECT_EQ(configure({{"ZON_LOG_FILE_SIZE", "2G"}}).fileMaxBytes, uint64_t(2) << 30);

    configuration.journal = false; // whether a journal runs depends on the machine
    auto sinks = makeSinks(configuration);
    ASSERT_EQ(sinks.size(), 1u);
    auto* file = dynamic_cast<FileSink*>(sinks[0].get());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->path(), path);
    EXPECT_EQ(file->threshold(), 3);
    EXPECT_EQ(file->maxBytes(), 64u * 1024);
    EXPECT_EQ(file->keptFiles(), 2);
    sinks.clear();
    std::remove(path.c_str());
}

TEST(Configuration, MalformedValuesKeepTheDefaults)
{
    Configuration defaults;
    for (const char* bad : {"", "abc", "3x", " 3", "99999999999999999999", "K", "18446744073709551615K"}) {
        Configuration configuration = configure({{"ZON_LOG_LEVEL", bad},
            {"ZON_LOG_STDERR", bad}, {"ZON_LOG_FILE_SIZE", bad}, {"ZON_LOG_FILE_COUNT", bad}, {"ZON_LOG_JOURNAL", bad}});
        EXPECT_EQ(configuration.stderrLevel, defaults.stderrLevel) << bad;
        EXPECT_EQ(configuration.stderrEnabled, defaults.stderrEnabled) << bad;
        EXPECT_EQ(configuration.fileMaxBytes, defaults.fileMaxBytes) << bad;
        EXPECT_EQ(configuration.fileCount, defaults.fileCount) << bad;
        EXPECT_EQ(configuration.journal, defaults.journal) << bad;
    }
    EXPECT_EQ(configure({{"ZON_LOG_FILE_COUNT", "-1"}}).fileCount, defaults.fileCount);
}

} // namespace
