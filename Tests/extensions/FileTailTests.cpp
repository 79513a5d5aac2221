#include "extensions/NSFileHandle+ZonTail.h"

#include "platform/values/Array.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace zon {
namespace {

using test::str;
using Lines = std::vector<std::string>;

// A line as readLastLines gives it when a line feed ended it: with its U+0000.
std::string ended(std::string line) { return line + '\0'; }

class FileTail : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zon-tail-XXXXXX").string();
        ASSERT_TRUE(::mkdtemp(pattern.data()));
        folder_ = pattern;
    }
    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string write(const std::string& content, const std::string& name = "log")
    {
        const std::string path = folder_ + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    static Lines linesOf(const Array* lines)
    {
        Lines texts;
        for (Object* line : *lines)
            texts.push_back(static_cast<String*>(line)->UTF8String());
        return texts;
    }

    static Lines tail(const std::string& path, uint32_t count)
    {
        Ref<FileHandle> handle = FileHandle::fileHandleForReadingAtPath(str(path).get());
        EXPECT_TRUE(handle) << path;
        return handle ? linesOf(handle->readLastLines(count).get()) : Lines {};
    }

    Lines tailOf(const std::string& content, uint32_t count) { return tail(write(content), count); }

    std::string folder_;
};

TEST_F(FileTail, LinesFoundByALineFeedEndInNul)
{
    EXPECT_EQ(tailOf("a\nb\n", 5), (Lines {"a", ended("b")}));
    EXPECT_EQ(tailOf("a\nb", 1), (Lines {ended("b")}));
    EXPECT_EQ(tailOf("x\ny\nz\n", 2), (Lines {ended("y"), ended("z")}));
    EXPECT_EQ(tailOf("x\ny\nz", 2), (Lines {ended("y"), ended("z")}));
    EXPECT_EQ(tailOf("x\ny\nz", 3), (Lines {"x", ended("y"), ended("z")}));
    // Empty lines are lines; a lone line feed is one empty line reaching the start.
    EXPECT_EQ(tailOf("a\n\n\nb\n", 3), (Lines {ended(""), ended(""), ended("b")}));
    EXPECT_EQ(tailOf("\n", 4), (Lines {""}));
    EXPECT_EQ(tailOf("only", 4), (Lines {"only"}));
}

TEST_F(FileTail, NothingToReadGivesAnEmptyArrayAndKeepsTheOffset)
{
    EXPECT_EQ(tailOf("a\nb\n", 0), Lines {});
    EXPECT_EQ(tailOf("", 3), Lines {});

    Ref<FileHandle> handle = FileHandle::fileHandleForReadingAtPath(str(write("one\ntwo\nthree\n")).get());
    for (uint32_t count : {0u, 1u, 2u, 9u}) {
        handle->seekToFileOffset(5);
        handle->readLastLines(count);
        EXPECT_EQ(handle->offsetInFile(), 5u) << count << " lines";
    }
    EXPECT_EQ(test::textOf(handle->readDataOfLength(3).get()), "wo\n");
    Ref<FileHandle> empty = FileHandle::fileHandleForReadingAtPath(str(write("", "empty")).get());
    empty->readLastLines(2);
    EXPECT_EQ(empty->offsetInFile(), 0u);
}

TEST_F(FileTail, LinesLongerThanABlockAreJoinedAcrossBlocks)
{
    const std::string longASCII(3000, 'a');
    std::string longAccented;
    for (int i = 0; i < 1500; ++i)
        longAccented += i % 2 ? "é" : "😀"; // multi-byte characters cut by block boundaries
    const std::string content = "first\n" + longASCII + "\n" + longAccented + "\nlast\n";
    EXPECT_EQ(tailOf(content, 3), (Lines {ended(longASCII), ended(longAccented), ended("last")}));
    // A line that spans more than one whole block between two others.
    const std::string huge(5000, 'h');
    EXPECT_EQ(tailOf("x\n" + huge + "\ny", 2), (Lines {ended(huge), ended("y")}));
}

TEST_F(FileTail, LinesThatAreNotUTF8AreLeftOutButCount)
{
    EXPECT_EQ(tailOf("a\n\xff\xfe\nc\n", 2), (Lines {ended("c")}));
    EXPECT_EQ(tailOf("a\n\xff\xfe\nc\n", 3), (Lines {"a", ended("c")}));
    // A character cut in half by a line feed spoils both halves.
    EXPECT_EQ(tailOf("ok\n\xc3\n\xa9\n", 9), (Lines {"ok"}));
    // Bytes that are not UTF-8 in the oldest line, reached at the start of the file.
    EXPECT_EQ(tailOf("\xc0\xafx\ny\n", 5), (Lines {ended("y")}));
}

// 100 lines of 15 bytes: the first read takes bytes 1024 ... 1499, the second 0 ... 1023. The
// third seek would go before the start and fails, so the read goes on at 1024: the first block
// again, whose final line feed now ends the line pending from the start ("line 0000 abcd"), and
// whose other lines come again, down to the part of line 68 that starts the block.
TEST_F(FileTail, AFileLongerThanABlockWithFewerLinesThanAskedGivesLinesAgain)
{
    std::string content;
    auto lineText = [](int i) {
        char text[16];
        std::snprintf(text, sizeof text, "line %04d abcd", i);
        return std::string(text);
    };
    for (int i = 0; i < 100; ++i)
        content += lineText(i) + "\n";
    ASSERT_EQ(content.size(), 1500u);

    Lines expected {" 0068 abcd"};
    for (int i = 69; i < 100; ++i)
        expected.push_back(ended(lineText(i)));
    for (int i = 0; i < 100; ++i)
        expected.push_back(ended(lineText(i)));
    EXPECT_EQ(tailOf(content, 200), expected);
    // Asked for no more than the lines after the first, the answer is exact.
    Lines last99(expected.end() - 99, expected.end());
    EXPECT_EQ(tailOf(content, 99), last99);
}

TEST_F(FileTail, APipeHasNoEndToReadBackFrom)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::write(ends[1], "a\nb\n", 4), 4);
    ::close(ends[1]);
    Ref<FileHandle> handle = FileHandle::initWithFileDescriptor_closeOnDealloc(ends[0], true);
    EXPECT_EQ(linesOf(handle->readLastLines(5).get()), Lines {});
    EXPECT_EQ(test::textOf(handle->readDataToEndOfFile().get()), "a\nb\n") << "nothing was consumed";
    EXPECT_THAT(test::raisedDescription([&] { handle->offsetInFile(); }),
        "NSFileHandleOperationException: *** -[NSConcreteFileHandle offsetInFile]: Illegal seek");
}

TEST_F(FileTail, AFileTruncatedWhileBeingReadEndsTheRead)
{
    std::string content;
    for (int i = 0; i < 200000; ++i)
        content += "entry " + std::to_string(i) + " of a log being rotated\n";
    const std::string path = write(content);
    for (int round = 0; round < 5; ++round) {
        Ref<FileHandle> handle = FileHandle::fileHandleForReadingAtPath(str(path).get());
        std::atomic<bool> started {false};
        std::thread truncator([&] {
            while (!started)
                std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::microseconds(200 * round));
            ASSERT_EQ(::truncate(path.c_str(), 100), 0);
        });
        started = true;
        const Lines lines = linesOf(handle->readLastLines(1000000).get());
        truncator.join();
        EXPECT_LE(lines.size(), 1000000u);
        std::ofstream(path, std::ios::binary) << content;
    }
}

TEST_F(FileTail, ASingleGigabyteLineCostsOnePass)
{
    constexpr off_t kLineBytes = off_t(1) << 30;
    struct statvfs disk {};
    ASSERT_EQ(::statvfs(folder_.c_str(), &disk), 0);
    if (uint64_t(disk.f_bavail) * disk.f_frsize < (uint64_t(64) << 20))
        GTEST_SKIP() << "less than 64 MiB free in " << folder_ << " for a sparse 1 GiB file";
    long availableKiB = 0;
    std::ifstream meminfo("/proc/meminfo");
    for (std::string key; meminfo >> key;) {
        if (key == "MemAvailable:") {
            meminfo >> availableKiB;
            break;
        }
    }
    if (availableKiB < (6L << 20))
        GTEST_SKIP() << "less than 6 GiB of memory available for a 1 GiB line";

    // "first", then a line of 1 GiB of zero bytes (a hole: U+0000 each), each ended by a line feed.
    const std::string path = write("\nfirst\n", "sparse");
    ASSERT_EQ(::truncate(path.c_str(), 7 + kLineBytes), 0);
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(7 + kLineBytes);
        file << "\n";
    }
    Ref<FileHandle> handle = FileHandle::fileHandleForReadingAtPath(str(path).get());
    Ref<Array> lines = handle->readLastLines(2);
    ASSERT_EQ(lines->count(), 2u);
    EXPECT_TRUE(static_cast<String*>(lines->objectAtIndex(0))->isEqualToString(str(ended("first")).get()));
    auto* line = static_cast<String*>(lines->objectAtIndex(1));
    ASSERT_EQ(line->length(), size_t(kLineBytes) + 1);
    EXPECT_EQ(line->characterAtIndex(0), u'\0');
    EXPECT_EQ(line->characterAtIndex(size_t(kLineBytes)), u'\0');
}

TEST(SafeRead, ReportsAFailureOnStandardOutputAndAnswersZero)
{
    const int folder = ::open("/", O_RDONLY | O_DIRECTORY);
    ASSERT_GE(folder, 0);
    char buffer[8];
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(safe_read(folder, buffer, sizeof buffer), 0u);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "ERROR: (21) Is a directory\n");
    ::close(folder);
}

void ignoreAlarm(int) {}

TEST(SafeRead, GoesOnThroughInterruptions)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    // The writer thread must not take the alarm: it inherits this blocked mask.
    sigset_t alarmOnly, previousMask;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &alarmOnly, &previousMask), 0);
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ASSERT_EQ(::write(ends[1], "late", 4), 4);
    });
    ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &previousMask, nullptr), 0);
    struct sigaction action {}, previousAction {};
    action.sa_handler = ignoreAlarm; // without SA_RESTART, so the read fails with EINTR
    ASSERT_EQ(::sigaction(SIGALRM, &action, &previousAction), 0);
    itimerval timer {{0, 50000}, {0, 50000}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &timer, nullptr), 0);

    char buffer[8];
    ::testing::internal::CaptureStdout();
    const size_t count = safe_read(ends[0], buffer, sizeof buffer);
    const std::string printed = ::testing::internal::GetCapturedStdout();

    itimerval off {};
    ::setitimer(ITIMER_REAL, &off, nullptr);
    ::sigaction(SIGALRM, &previousAction, nullptr);
    writer.join();
    ::close(ends[0]);
    ::close(ends[1]);
    EXPECT_EQ(std::string(buffer, count), "late");
    EXPECT_EQ(printed, "");
}

TEST(SafeRead, TheBackwardsSearchIsTheCLibrarys)
{
    // The definition every caller binds to is the C library's (or a sanitizer's in its place),
    // never one of ours.
    Dl_info search {}, library {};
    ASSERT_NE(::dladdr(::dlsym(RTLD_DEFAULT, "memrchr"), &search), 0);
    ASSERT_NE(::dladdr(reinterpret_cast<void*>(&safe_read), &library), 0);
    EXPECT_STRNE(search.dli_fname, library.dli_fname);
    EXPECT_THAT(library.dli_fname, ::testing::HasSubstr("libZonCommon"));
    const char text[] = "a\nb\nc";
    EXPECT_EQ(::memrchr(text, '\n', 5), text + 3);
    EXPECT_EQ(::memrchr(text, '\n', 3), text + 1);
    EXPECT_EQ(::memrchr(text, '\n', 1), nullptr);
}

// The lines tail(1) prints, for a file holding more lines than asked: the same bytes.
TEST_F(FileTail, MatchesTailOverGeneratedLogs)
{
    if (std::system("tail --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no tail(1) to compare with";
    std::mt19937 generator(12);
    const char* words[] = {"sync", "device", "é", "ü", "😀", "started", "error", "—", "queue", "x"};
    for (int file = 0; file < 6; ++file) {
        std::string content;
        const int lineCount = 50 + int(generator() % 3000);
        for (int i = 0; i < lineCount; ++i) {
            std::string line = "2026-11-24 00:00:" + std::to_string(i) + " [" + std::to_string(file) + "]";
            const int wordCount = int(generator() % (i % 97 == 0 ? 400 : 30)); // some lines over a block
            for (int w = 0; w < wordCount; ++w)
                line += std::string(" ") + words[generator() % std::size(words)];
            content += line + "\n";
        }
        if (file % 2)
            content.pop_back(); // no final line feed
        const std::string path = write(content, "generated" + std::to_string(file));
        for (uint32_t count : {1u, 10u, 49u}) {
            const std::string expectedPath = path + ".tail";
            ASSERT_EQ(std::system(("tail -n " + std::to_string(count) + " '" + path + "' > '" + expectedPath + "'").c_str()), 0);
            std::ifstream expectedFile(expectedPath, std::ios::binary);
            const std::string expected((std::istreambuf_iterator<char>(expectedFile)), std::istreambuf_iterator<char>());
            std::string ours;
            for (const std::string& line : tail(path, count))
                ours += (line.empty() || line.back() != '\0' ? line : line.substr(0, line.size() - 1)) + "\n";
            if (file % 2)
                ours.pop_back();
            EXPECT_EQ(ours, expected) << "file " << file << ", " << count << " lines";
        }
    }
}

} // namespace
} // namespace zon
