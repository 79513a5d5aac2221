// zon fs copy, stat, mkdirs and uti, run as the user runs them; I/O faults come from a preloaded
// shim that fails the reads or writes of one chosen file.

#include "support/ZonToolRun.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using zon::test::runZon;
using Output = zon::test::ZonOutput;

// The shim comes before the sanitizer runtime where there is one; it only forwards calls.
constexpr const char* kPreloadShim = "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" ZON_FAULT_SHIM_PATH;

class ZonFileManagerCommands : public testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zon-fs-XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        source_ = folder_ + "/source";
        destination_ = folder_ + "/destination";
        std::ofstream(source_, std::ios::binary) << std::string(3 * 128 * 1024 + 5, 'z');
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    Output copyWithFault(const std::string& variable, const std::string& path)
    {
        return runZon("fs copy " + source_ + " " + destination_, std::string(kPreloadShim) + " " + variable + "=" + path);
    }

    std::string folder_;
    std::string source_;
    std::string destination_;
};

std::string failure(int code)
{
    return "NO\nerror: " + std::string(std::strerror(code)) + " " + std::to_string(code) + "\n";
}

TEST_F(ZonFileManagerCommands, CopyReportsTheAnswerTheErrorAndTheEngine)
{
    const Output copied = runZon("fs copy " + source_ + " " + folder_ + "/a/b/copy");
    EXPECT_EQ(copied.exitCode, 0);
    EXPECT_TRUE(copied.text.starts_with("YES\nengine: ")) << copied.text;
    EXPECT_EQ(runZon("fs copy " + source_ + " " + folder_ + "/a/b/copy").text, "YES\nengine: none\n");
    const Output missing = runZon("fs copy " + folder_ + "/missing " + destination_);
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.text, failure(ENOENT) + "engine: none\n");
}

TEST_F(ZonFileManagerCommands, AnIOErrorIsPutOnTheSideThatFailed)
{
    const Output reading = copyWithFault("ZON_FAULT_READ_PATH", source_);
    EXPECT_EQ(reading.text.substr(0, failure(EIO).size()), failure(EIO)) << reading.text;
    EXPECT_TRUE(std::filesystem::remove(destination_)) << "opened before the read failed, and kept";
    const Output writing = copyWithFault("ZON_FAULT_WRITE_PATH", destination_);
    EXPECT_EQ(writing.text.substr(0, failure(EIO).size()), failure(EIO)) << writing.text;
    EXPECT_TRUE(std::filesystem::exists(destination_)) << "the partial destination is kept";

    // Only the kernel's copy fails: the range is read and written instead, and all is well.
    std::filesystem::remove(destination_);
    const Output kernelOnly = copyWithFault("ZON_FAULT_KERNEL_COPY_PATH", source_);
    EXPECT_EQ(kernelOnly.text, "YES\nengine: read/write\n");
    EXPECT_EQ(std::filesystem::file_size(destination_), std::filesystem::file_size(source_));
}

TEST_F(ZonFileManagerCommands, ADestinationRemovedBetweenBlocksIsFileMissing)
{
    const Output removed = copyWithFault("ZON_FAULT_UNLINK_PATH", destination_);
    EXPECT_EQ(removed.exitCode, 1);
    EXPECT_EQ(removed.text, "NO\nerror: File Missing -2\nengine: read/write\n");
}

TEST_F(ZonFileManagerCommands, StatMkdirsAndUti)
{
    EXPECT_EQ(runZon("fs stat " + source_).text, "exists: YES\nisDirectory: NO\nsize: 393221\n");
    EXPECT_EQ(runZon("fs stat " + folder_ + "/missing").text, "exists: NO\nisDirectory: NO\nsize: 0\n");
    EXPECT_EQ(runZon("fs mkdirs " + folder_ + "/x/y/z").text, "YES\n");
    EXPECT_TRUE(std::filesystem::is_directory(folder_ + "/x/y/z"));
    EXPECT_EQ(runZon("fs mkdirs " + source_).exitCode, 1);

    std::ofstream(folder_ + "/Song.MP3") << "x";
    EXPECT_EQ(runZon("fs uti " + folder_ + "/Song.MP3").text, "public.mp3\n");
    EXPECT_EQ(runZon("fs uti " + source_).text, "(nil)\n");
    EXPECT_EQ(runZon("fs uti --mime text/html").text, "public.html\n");
    EXPECT_NE(runZon("fs uti").exitCode, 0);
}

} // namespace
