#include "logger/FileSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

using namespace zon::logger;
namespace fs = std::filesystem;

namespace {

class FileSinkTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory_ = fs::path(::testing::TempDir()) / ("zon-filesink-" + std::to_string(getpid()));
        fs::remove_all(directory_);
        fs::create_directories(directory_);
        path_ = (directory_ / "test.log").string();
    }
    void TearDown() override { fs::remove_all(directory_); }

    static void writeRecord(FileSink& sink, int index)
    {
        std::string message = "record " + std::to_string(index);
        sink.write(Record {"Sources/logger/FileSink.cpp", 1, "default", kLevelDetail, "default", message});
    }
    static std::string contents(const std::string& path)
    {
        std::ifstream in(path);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    // The record numbers in a file, in order.
    static std::vector<int> recordNumbers(const std::string& path)
    {
        std::vector<int> numbers;
        std::istringstream lines(contents(path));
        for (std::string line; std::getline(lines, line);)
            numbers.push_back(std::stoi(line.substr(line.rfind(' ') + 1)));
        return numbers;
    }

    fs::path directory_;
    std::string path_;
};

TEST_F(FileSinkTest, RotatesBySizeAndKeepsTheNewestFilesInOrder)
{
    constexpr uint64_t kMaxBytes = 1000;
    {
        FileSink sink(path_, kLevelDetail, kMaxBytes, 2);
        for (int i = 0; i < 100; ++i)
            writeRecord(sink, i);
    }
    ASSERT_TRUE(fs::exists(path_ + ".1"));
    ASSERT_TRUE(fs::exists(path_ + ".2"));
    EXPECT_FALSE(fs::exists(path_ + ".3"));
    for (auto path : {path_, path_ + ".1", path_ + ".2"})
        EXPECT_LE(fs::file_size(path), kMaxBytes) << path;

    // Oldest to newest, the kept files continue one another and end with the last record.
    std::vector<int> numbers;
    for (auto path : {path_ + ".2", path_ + ".1", path_}) {
        auto part = recordNumbers(path);
        EXPECT_FALSE(part.empty()) << path;
        numbers.insert(numbers.end(), part.begin(), part.end());
    }
    ASSERT_FALSE(numbers.empty());
    EXPECT_EQ(numbers.back(), 99);
    for (size_t i = 1; i < numbers.size(); ++i)
        EXPECT_EQ(numbers[i], numbers[i - 1] + 1);
}

TEST_F(FileSinkTest, AppendsToAnExistingFileAndCountsItsSize)
{
    { std::ofstream(path_) << std::string(900, 'x') << '\n'; }
    FileSink sink(path_, kLevelDetail, 1000, 1);
    writeRecord(sink, 1);
    EXPECT_THAT(contents(path_ + ".1"), ::testing::StartsWith(std::string(900, 'x')));
    EXPECT_EQ(recordNumbers(path_), std::vector<int> {1});
}

TEST_F(FileSinkTest, WithNoKeptFilesTheFileStartsOver)
{
    FileSink sink(path_, kLevelDetail, 300, 0);
    for (int i = 0; i < 20; ++i)
        writeRecord(sink, i);
    EXPECT_FALSE(fs::exists(path_ + ".1"));
    EXPECT_LE(fs::file_size(path_), 300u);
    EXPECT_EQ(recordNumbers(path_).back(), 19);
}

TEST_F(FileSinkTest, LineLongerThanTheLimitGetsAFileOfItsOwn)
{
    FileSink sink(path_, kLevelDetail, 100, 3);
    writeRecord(sink, 1);
    std::string longMessage(500, 'L');
    sink.write(Record {"f", 1, "default", kLevelDetail, "default", longMessage});
    writeRecord(sink, 2);
    EXPECT_EQ(recordNumbers(path_ + ".2"), std::vector<int> {1});
    EXPECT_THAT(contents(path_ + ".1"), ::testing::HasSubstr(longMessage));
    EXPECT_EQ(recordNumbers(path_), std::vector<int> {2});
}

TEST_F(FileSinkTest, UnwritablePathDropsRecordsWithoutFailing)
{
    FileSink sink((directory_ / "missing" / "test.log").string(), kLevelDetail, 100, 1);
    writeRecord(sink, 1);
    EXPECT_FALSE(fs::exists(directory_ / "missing"));
}

} // namespace
