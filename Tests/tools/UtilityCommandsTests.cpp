// zon tail, zon random and zon shuffle, run as the user runs them.

#include "support/ZonToolRun.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>

namespace {

using zon::test::runZon;

TEST(ZonUtilityCommands, TailPrintsTheLastLinesAndCanMarkTheirTerminators)
{
    const std::string path = (std::filesystem::temp_directory_path() / "zon-tool-tail.log").string();
    std::ofstream(path) << "one\ntwo\nthree\n";
    EXPECT_EQ(runZon("tail -n 2 " + path).text, "two\nthree\n");
    EXPECT_EQ(runZon("tail -n 9 --show-nul " + path).text, "one\ntwo\\0\nthree\\0\n");
    std::filesystem::remove(path);
    EXPECT_EQ(runZon("tail /nonexistent/log").exitCode, 2);
}

TEST(ZonUtilityCommands, StreamPumpAndReadCountTheirChunks)
{
    const std::string path = (std::filesystem::temp_directory_path() / "zon-tool-stream.bin").string();
    std::ofstream(path, std::ios::binary) << std::string(10000, 'z');
    const auto pumped = runZon("stream pump " + path + " --buffer 4096");
    EXPECT_EQ(pumped.exitCode, 0) << pumped.text;
    EXPECT_NE(pumped.text.find("3 chunks of at most 4096 bytes\n10000 bytes in "), std::string::npos) << pumped.text;
    const auto read = runZon("stream read " + path + " --chunk 4096");
    EXPECT_EQ(read.exitCode, 0) << read.text;
    EXPECT_NE(read.text.find("4 reads reported, the last one 0\n10000 bytes in "), std::string::npos) << read.text;
    std::filesystem::remove(path);
    EXPECT_NE(runZon("stream pump /nonexistent/file").exitCode, 0);
}

TEST(ZonUtilityCommands, RandomAndShuffleFollowTheSeed)
{
    const auto first = runZon("random below 1000 --count 20 --seed 4");
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_EQ(runZon("random below 1000 --count 20 --seed 4").text, first.text);
    EXPECT_NE(runZon("random below 1000 --count 20 --seed 5").text, first.text);
    EXPECT_EQ(runZon("random below 1 --count 3").text, "0\n0\n0\n");
    EXPECT_NE(runZon("random below 0").exitCode, 0) << "a bound of 0 would never return";

    for (int seed = 0; seed < 5; ++seed) {
        const auto shuffled = runZon("shuffle first b c d e --seed " + std::to_string(seed));
        EXPECT_EQ(shuffled.exitCode, 0);
        EXPECT_EQ(shuffled.text.substr(0, 6), "first\n");
        EXPECT_EQ(shuffled.text.size(), std::string("first\nb\nc\nd\ne\n").size());
    }
}

} // namespace
