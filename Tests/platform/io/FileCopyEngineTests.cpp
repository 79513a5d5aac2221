#include "platform/io/FileCopyEngine.h"

#include "platform/system/FileCallsInternal.h"
#include "support/FileContents.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace zon;
using namespace zon::test;

namespace {

FileCopyOutcome copyPath(const std::string& from, const std::string& to)
{
    auto source = openFile(from, O_RDONLY);
    auto destination = openFile(to, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (!source || !destination)
        return {FileCopyMethod::none, 0, FileCopyFailure {FileCopySide::source, SystemError {EBADF, "open", {}}}};
    return copyFileContents(source.value().get(), destination.value().get());
}

} // namespace

TEST(FileCopyEngine, CopiesEverySizeAroundTheBlock)
{
    ScratchFolder scratch;
    for (size_t size : {size_t(0), size_t(1), kFileCopyBlockSize - 1, kFileCopyBlockSize, kFileCopyBlockSize + 1, 3 * kFileCopyBlockSize + 7}) {
        const std::string bytes = patternBytes(size);
        const std::string source = scratch.write("source", bytes);
        auto outcome = copyPath(source, scratch.file("copy"));
        EXPECT_TRUE(outcome.succeeded()) << size;
        EXPECT_EQ(outcome.bytesCopied, size);
        EXPECT_TRUE(fileContents(scratch.file("copy")) == bytes) << size;
    }
}

TEST(FileCopyEngine, ReadsWhatProcFilesHoldBeyondTheirStatSize)
{
    ScratchFolder scratch;
    auto outcome = copyPath("/proc/self/mountinfo", scratch.file("copy"));
    EXPECT_TRUE(outcome.succeeded());
    EXPECT_EQ(outcome.method, FileCopyMethod::readWrite);
    EXPECT_GT(fileContents(scratch.file("copy")).size(), 0u);
}

TEST(FileCopyEngine, BlamesTheSideThatFailed)
{
    ScratchFolder scratch;
    auto fromFolder = copyPath(scratch.path, scratch.file("copy"));
    ASSERT_TRUE(fromFolder.failure);
    EXPECT_EQ(fromFolder.failure->side, FileCopySide::source);
    EXPECT_EQ(fromFolder.failure->error.code, EISDIR);

    // The full device takes nothing: no space, the destination's fault.
    const std::string source = scratch.write("source", patternBytes(1000));
    auto input = openFile(source, O_RDONLY);
    auto full = openFile("/dev/full", O_WRONLY);
    if (!full)
        GTEST_SKIP() << "no /dev/full";
    auto toFull = copyFileContents(input.value().get(), full.value().get());
    ASSERT_TRUE(toFull.failure);
    EXPECT_EQ(toFull.failure->side, FileCopySide::destination);
    EXPECT_EQ(toFull.failure->error.code, ENOSPC);
}
