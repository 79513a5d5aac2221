#include "logger/LineFormat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

using namespace zon::logger;

namespace {

Record recordAt(std::time_t seconds, int microseconds, int level)
{
    Record record {"/home/build/zon/Sources/exceptions/TXZonBaseException.cpp", 42, "BufferStream", level,
        "networkcomm", "Exception X -- y (z) created"};
    record.time = std::chrono::system_clock::from_time_t(seconds) + std::chrono::microseconds(microseconds);
    record.thread = 4242;
    return record;
}

std::string lineFor(const Record& record)
{
    std::string line;
    appendLine(line, record);
    return line;
}

TEST(LineFormat, LineCarriesLocalTimeProcessThreadLevelAddressAndMessage)
{
    std::tm parts {};
    parts.tm_year = 2026 - 1900;
    parts.tm_mon = 10;
    parts.tm_mday = 22;
    parts.tm_hour = 0;
    parts.tm_min = 19;
    parts.tm_sec = 7;
    parts.tm_isdst = -1;
    std::time_t seconds = std::mktime(&parts);

    EXPECT_EQ(lineFor(recordAt(seconds, 123, kLevelError)),
        "2026-11-22 00:19:07.000123 " + std::string(program_invocation_short_name) + "[" + std::to_string(getpid())
            + ":4242] <E> BufferStream/networkcomm Sources/exceptions/TXZonBaseException.cpp:42: Exception X -- y (z) created\n");
}

TEST(LineFormat, LevelsPrintAsLettersAndUnusedLevelsAsNumbers)
{
    std::vector<std::string> tags;
    for (int level : {1, 2, 3, 4, 5, 0, 9})
        tags.push_back(lineFor(recordAt(0, 0, level)));
    const char* expected[] = {" <E> ", " <W> ", " <I> ", " <4> ", " <D> ", " <0> ", " <9> "};
    for (size_t i = 0; i < tags.size(); ++i)
        EXPECT_THAT(tags[i], ::testing::HasSubstr(expected[i]));
}

TEST(LineFormat, SourcePathIsShortenedFromTheLastSourcesFolder)
{
    EXPECT_EQ(shortenedSourcePath("/a/Sources/b/Sources/atomic/TXZonAtomicSingleton.cpp"),
        "Sources/atomic/TXZonAtomicSingleton.cpp");
    EXPECT_EQ(shortenedSourcePath("Sources/versions/TXZonVersion.cpp"), "Sources/versions/TXZonVersion.cpp");
    EXPECT_EQ(shortenedSourcePath("/a/Sources/b/OtherSources/x.cpp"), "Sources/b/OtherSources/x.cpp");
    EXPECT_EQ(shortenedSourcePath("/a/MySources/x.cpp"), "/a/MySources/x.cpp");
    EXPECT_EQ(shortenedSourcePath("x.cpp"), "x.cpp");
    EXPECT_EQ(shortenedSourcePath(""), "");
}

} // namespace
