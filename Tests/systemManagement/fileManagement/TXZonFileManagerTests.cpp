#include "systemManagement/fileManagement/TXZonFileManager.h"

#include "platform/io/FinderMetadataStore.h"
#include "platform/values/Error.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/MountNamespace.h"
#include "support/FileContents.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;

namespace {

Ref<String> str(const std::string& text) { return String::stringWithUTF8String(text); }

TXZonFileManager* manager() { return TXZonFileManager::defaultManager(); }

// A file of size bytes that takes no disk: a hole with a few marked bytes.
void makeSparseFile(const std::string& path, off_t size)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::ftruncate(fd, size), 0);
    for (off_t at : {off_t(0), size / 2, size - 5})
        ASSERT_EQ(::pwrite(fd, "mark!", 5, at), 5);
    ::close(fd);
}

struct CopyResult {
    bool ok;
    Ref<Error> error;
    FileCopyMethod engine;
};

CopyResult copy(const std::string& from, const std::string& to, bool replace = false)
{
    CopyResult result {};
    result.ok = manager()->copyFileFromPath_toPath_replaceIfExists_error(str(from).get(), str(to).get(), replace,
        &result.error, &result.engine);
    return result;
}

std::string errorText(const Error* error)
{
    return error ? error->domain()->UTF8String() + " " + std::to_string(error->code()) : "nil";
}

} // namespace

TEST(TXZonFileManager, IsOneSingleton)
{
    EXPECT_EQ(TXZonFileManager::defaultManager(), TXZonFileManager::sharedInstance());
    EXPECT_EQ(TXZonFileManager::singletonInstance()->load(), TXZonFileManager::defaultManager());
}

TEST(TXZonFileManager, CopiesEverySizeWithDatesAndNewFilePermissions)
{
    ScratchFolder scratch;
    const mode_t oldMask = ::umask(022);
    for (size_t size : {size_t(0), size_t(1), size_t(128 * 1024 - 1), size_t(128 * 1024), size_t(128 * 1024 + 1)}) {
        const std::string bytes = patternBytes(size);
        const std::string source = scratch.write("source", bytes);
        ::chmod(source.c_str(), 0600);
        const timespec times[2] = {{0, UTIME_OMIT}, {1'000'000'000, 500'000'000}};
        ::utimensat(AT_FDCWD, source.c_str(), times, 0);
        const std::string destination = scratch.file("deep/er/copy-" + std::to_string(size));

        auto result = copy(source, destination);
        EXPECT_TRUE(result.ok) << size << ": " << errorText(result.error.get());
        EXPECT_FALSE(result.error);
        EXPECT_TRUE(fileContents(destination) == bytes) << size;
        struct stat copied {};
        ASSERT_EQ(::stat(destination.c_str(), &copied), 0);
        EXPECT_EQ(copied.st_mtim.tv_sec, 1'000'000'000);
        EXPECT_NEAR(copied.st_mtim.tv_nsec, 500'000'000, 1000);
        EXPECT_EQ(copied.st_mode & 07777, 0644u) << "0666 less the umask, not the source's 0600";
    }
    ::umask(oldMask);
}

namespace {

// Holes read as zeros, so the copy writes a whole gibibyte: in memory (a tmpfs in a private
// mount namespace) as root, where a shared disk would take half a minute, on the disk otherwise.
std::string copyOneGibibyte(const std::string& folder)
{
    const off_t size = off_t(1) << 30;
    makeSparseFile(folder + "/big", size);
    auto result = copy(folder + "/big", folder + "/big-copy");
    std::string answer = std::string(result.ok ? "YES" : "NO ") + errorText(result.error.get());
    std::ifstream copied(folder + "/big-copy", std::ios::binary);
    for (off_t at : {off_t(0), size / 3, size / 2, size - 5}) {
        char mark[6] = {};
        copied.seekg(at).read(mark, 5);
        answer += std::string(" ") + (mark[0] ? mark : "zero");
    }
    std::error_code ignored;
    answer += " " + std::to_string(std::filesystem::file_size(folder + "/big-copy", ignored));
    return answer;
}

} // namespace

TEST(TXZonFileManager, CopiesOneGibibyte)
{
    ScratchFolder scratch;
    const std::string expected = "YESnil mark! zero mark! mark! 1073741824";
    if (!runningAsRoot()) {
        EXPECT_EQ(copyOneGibibyte(scratch.path), expected);
        return;
    }
    const std::string memory = scratch.makeFolder("memory");
    auto answer = inPrivateMountNamespace([&] {
        if (::mount("tmpfs", memory.c_str(), "tmpfs", 0, "size=1100m") != 0)
            return std::string("mount failed");
        return copyOneGibibyte(memory);
    });
    ASSERT_TRUE(answer);
    EXPECT_EQ(*answer, expected);
}

TEST(TXZonFileManager, AnExistingDestinationWithoutReplaceIsSuccessUntouched)
{
    ScratchFolder scratch;
    const std::string source = scratch.write("source", "new");
    const std::string destination = scratch.write("destination", "old");
    LogCapture logs;
    auto result = copy(source, destination);
    EXPECT_TRUE(result.ok);
    EXPECT_FALSE(result.error);
    EXPECT_EQ(fileContents(destination), "old");
    EXPECT_THAT(logs.records(), ContainsLine(2, "File already exists at path " + destination + " -- not replacing"));
    EXPECT_TRUE(manager()->copyFileFromPath_toPath_error(str(source).get(), str(destination).get(), nullptr));

    result = copy(source, destination, true);
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(fileContents(destination), "new");
}

TEST(TXZonFileManager, OpenAndReadFailuresCarryTheSystemErrorText)
{
    ScratchFolder scratch;
    LogCapture logs;
    auto missing = copy(scratch.file("missing"), scratch.file("copy"));
    EXPECT_FALSE(missing.ok);
    EXPECT_EQ(errorText(missing.error.get()), "No such file or directory 2");
    EXPECT_FALSE(missing.error->userInfo());
    EXPECT_THAT(logs.records(), ContainsLine(1, "Cannot open file at: " + scratch.file("missing")));

    // A folder opens for reading; reading it fails.
    scratch.makeFolder("folder");
    auto folder = copy(scratch.file("folder"), scratch.file("copy"));
    EXPECT_FALSE(folder.ok);
    EXPECT_EQ(errorText(folder.error.get()), "Is a directory 21");
    EXPECT_THAT(logs.records(), ContainsLine(1, "Read error at: " + scratch.file("folder")));
    // The destination was opened before the read failed, and is kept.
    EXPECT_TRUE(std::filesystem::exists(scratch.file("copy")));

    const std::string source = scratch.write("source", "x");
    auto intoFolder = copy(source, scratch.path);
    EXPECT_TRUE(intoFolder.ok) << "a folder at the destination exists: nothing is replaced";
    auto replacingUnderFile = copy(source, source + "/below", true);
    EXPECT_FALSE(replacingUnderFile.ok);
    EXPECT_EQ(errorText(replacingUnderFile.error.get()), "NSCocoaErrorDomain 260");
    EXPECT_THAT(logs.records(), ContainsLine(1, "Remove error at: " + source + "/below"));
}

TEST(TXZonFileManager, ExistenceCountsPathsThatCannotBeExamined)
{
    ScratchFolder scratch;
    const std::string file = scratch.write("file", "x");
    ::symlink("loop-b", scratch.file("loop-a").c_str());
    ::symlink("loop-a", scratch.file("loop-b").c_str());
    EXPECT_TRUE(manager()->fileExistsAtPath(str(scratch.file("loop-a")).get())) << "ELOOP";
    EXPECT_TRUE(manager()->fileExistsAtPath(str(file + "/below").get())) << "ENOTDIR";
    EXPECT_FALSE(manager()->fileExistsAtPath(str(scratch.file("missing")).get()));
    EXPECT_FALSE(manager()->fileExistsAtPath(nullptr));

    bool isDirectory = true;
    EXPECT_TRUE(manager()->fileExistsAtPath_isDirectory(str(scratch.path).get(), &isDirectory));
    EXPECT_FALSE(isDirectory) << "an ordinary folder has permission bits";
    const std::string bare = scratch.makeFolder("bare");
    ::chmod(bare.c_str(), 0);
    EXPECT_TRUE(manager()->fileExistsAtPath_isDirectory(str(bare).get(), &isDirectory));
    EXPECT_TRUE(isDirectory) << "mode word exactly 0x4000";
    isDirectory = true;
    EXPECT_TRUE(manager()->fileExistsAtPath_isDirectory(str(scratch.file("loop-a")).get(), &isDirectory));
    EXPECT_FALSE(isDirectory);
    ::chmod(bare.c_str(), 0700);
}

TEST(TXZonFileManager, SizeKeepsTheLowThirtyTwoBits)
{
    ScratchFolder scratch;
    makeSparseFile(scratch.file("five"), off_t(5) << 30);
    EXPECT_EQ(manager()->sizeOfFile(str(scratch.file("five")).get()), 1u << 30);
    EXPECT_EQ(manager()->sizeOfFile(str(scratch.write("small", "12345")).get()), 5u);
    EXPECT_EQ(manager()->sizeOfFile(str(scratch.file("missing")).get()), 0u);
}

TEST(TXZonFileManager, EnsureDirectoryMakesTheChainBelowTheRoot)
{
    ScratchFolder scratch;
    EXPECT_TRUE(manager()->ensureDirectoryExistsAtPath(str(scratch.file("a/b/c")).get()));
    EXPECT_TRUE(std::filesystem::is_directory(scratch.file("a/b/c")));
    EXPECT_TRUE(manager()->ensureDirectoryExistsAtPath(str(scratch.file("a/b/c")).get()));
    EXPECT_TRUE(manager()->ensureDirectoryExistsAtPath(str("/zon-never-made-by-a-test").get()));
    EXPECT_FALSE(std::filesystem::exists("/zon-never-made-by-a-test"));
    EXPECT_TRUE(manager()->ensureDirectoryExistsAtPath(str("relative-name").get()));

    const std::string file = scratch.write("file", "x");
    LogCapture logs;
    EXPECT_FALSE(manager()->ensureDirectoryExistsAtPath(str(file).get()));
    EXPECT_THAT(logs.records(), ContainsLine(1, "Cannot create directory, it already exists as a file: " + file));
    EXPECT_FALSE(manager()->ensureDirectoryExistsAtPath(str(scratch.file(std::string(300, 'n'))).get()));
    EXPECT_THAT(logs.records(), ContainsLine(1, HasSubstr("Cannot create directory because of error: Error Domain=NSCocoaErrorDomain Code=258")));
}

TEST(TXZonFileManager, TypeIdentifiersOfFilesAndMimeTypes)
{
    ScratchFolder scratch;
    auto utiOf = [&](const std::string& name) {
        Ref<String> uti = manager()->utiOfFile(str(scratch.write(name, "x")).get());
        return uti ? uti->UTF8String() : std::string("nil");
    };
    EXPECT_EQ(utiOf("PHOTO.JPG"), "public.jpeg");
    EXPECT_EQ(utiOf("song.Mp3"), "public.mp3");
    EXPECT_EQ(utiOf("query.sql"), "dyn.ah62d4rv4ge81g6pq");
    EXPECT_TRUE(utiOf("Thing.app").starts_with("dyn.a")) << "a bundle extension is not data";
    EXPECT_EQ(utiOf("README"), "nil") << "no extension and no type code";

    // Without an extension the Finder type code decides; a code of zero is no code.
    const std::string application = scratch.write("Launcher", "x");
    FinderInfoBytes info {};
    std::memcpy(info.data(), "APPL", 4);
    ASSERT_TRUE(writeFinderInfo(application, info));
    EXPECT_EQ(manager()->utiOfFile(str(application).get())->UTF8String(), "com.apple.application-file");
    const std::string zeroCode = scratch.write("Blank", "x");
    ASSERT_TRUE(writeFinderInfo(zeroCode, FinderInfoBytes {}));
    EXPECT_FALSE(manager()->utiOfFile(str(zeroCode).get()));
    EXPECT_FALSE(manager()->utiOfFile(str(scratch.file("missing.jpg")).get()));

    EXPECT_EQ(manager()->utiForMimeType(str("image/png").get())->UTF8String(), "public.png");
    EXPECT_EQ(manager()->utiForMimeType(str("IMAGE/JPEG").get())->UTF8String(), "public.jpeg");
    EXPECT_TRUE(manager()->utiForMimeType(str("application/x-zon-made-up").get())->UTF8String().starts_with("dyn.a"));
    EXPECT_FALSE(manager()->utiForMimeType(nullptr));
}

TEST(TXZonFileManager, CurrentSystemErrorNamesErrnoByItsText)
{
    errno = EACCES;
    Ref<Error> error = manager()->currentSystemError();
    EXPECT_EQ(error->domain()->UTF8String(), std::strerror(EACCES));
    EXPECT_EQ(error->code(), EACCES);
    EXPECT_FALSE(error->userInfo());
}

// ---- As root, on file systems made for the test -------------------------------------------------

namespace {

bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

uint64_t freeBytes(const std::string& path)
{
    struct statvfs status {};
    ::statvfs(path.c_str(), &status);
    return uint64_t(status.f_bavail) * status.f_frsize;
}

} // namespace

TEST(TXZonFileManager, AsRootAFullDiskIsAWriteErrorAndKeepsThePartialCopy)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "mounting a tmpfs needs root";
    ScratchFolder scratch;
    const std::string mountPoint = scratch.makeFolder("small");
    const std::string source = scratch.write("source", patternBytes(16 << 20));
    auto answer = inPrivateMountNamespace([&] {
        if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=8m") != 0)
            return std::string("mount failed");
        LogCapture logs;
        auto result = copy(source, mountPoint + "/copy");
        const auto kept = std::filesystem::file_size(mountPoint + "/copy");
        const bool logged = testing::Value(logs.records(), ContainsLine(1, "Write error at: " + mountPoint + "/copy"));
        return std::string(result.ok ? "YES " : "NO ") + errorText(result.error.get()) + (logged ? " logged" : " silent")
            + (kept > 0 ? " kept" : " empty");
    });
    ASSERT_TRUE(answer);
    EXPECT_EQ(*answer, std::string("NO ") + std::strerror(ENOSPC) + " 28 logged kept");
}

TEST(TXZonFileManager, AsRootAReadOnlyMountFailsToOpenTheDestination)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "mounting needs root";
    ScratchFolder scratch;
    const std::string mountPoint = scratch.makeFolder("readonly");
    const std::string source = scratch.write("source", "x");
    auto answer = inPrivateMountNamespace([&] {
        if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", MS_RDONLY, "size=1m") != 0)
            return std::string("mount failed");
        LogCapture logs;
        auto result = copy(source, mountPoint + "/copy");
        const bool logged = testing::Value(logs.records(), ContainsLine(1, "Cannot open file at: " + mountPoint + "/copy"));
        return std::string(result.ok ? "YES " : "NO ") + errorText(result.error.get()) + (logged ? " logged" : " silent");
    });
    ASSERT_TRUE(answer);
    EXPECT_EQ(*answer, std::string("NO ") + std::strerror(EROFS) + " 30 logged");
}

TEST(TXZonFileManager, AsRootAReflinkFileSystemCopiesByCloning)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "mounting a loop file needs root";
    if (!run("command -v mkfs.xfs"))
        GTEST_SKIP() << "mkfs.xfs is missing (package xfsprogs)";
    ScratchFolder scratch;
    const std::string image = scratch.file("xfs.img");
    const std::string mountPoint = scratch.makeFolder("xfs");
    if (!run("truncate -s 320M " + image) || !run("mkfs.xfs -q -m reflink=1 " + image))
        GTEST_SKIP() << "could not make an XFS image";
    auto answer = inPrivateMountNamespace([&] {
        if (!run("mount -o loop " + image + " " + mountPoint))
            return std::string("mount failed");
        const std::string source = mountPoint + "/source";
        std::ofstream(source, std::ios::binary) << patternBytes(64 << 20);
        ::sync();
        const uint64_t before = freeBytes(mountPoint);
        auto result = copy(source, mountPoint + "/copy");
        ::sync();
        const uint64_t after = freeBytes(mountPoint);
        const bool same = fileContents(source) == fileContents(mountPoint + "/copy");
        run("umount " + mountPoint);
        return std::string(result.ok ? "YES " : "NO ") + fileCopyMethodName(result.engine)
            + (same ? " same" : " different") + (before - after < (16u << 20) ? " shared" : " duplicated");
    });
    if (answer && answer->starts_with("mount failed"))
        GTEST_SKIP() << "no loop device here";
    ASSERT_TRUE(answer);
    EXPECT_EQ(*answer, "YES clone same shared");
}
