#include "extensions/fileSystem/ZonCFPathFunctions.h"
#include "platform/runtime/AutoreleasePool.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zon {
namespace {

using test::ScratchFolder;
using test::ScopedEnvironment;

Ref<String> text(const std::string& utf8) { return String::stringWithUTF8String(utf8); }

// Takes over what a Create function handed out.
Ref<String> owned(String* created) { return adoptRef(created); }

TEST(ZonCFPathFunctions, CStringsFailForNonASCIIText)
{
    char* bytes = nullptr;
    ASSERT_TRUE(ZonCFStringGetCString(text("/tmp/plain"), &bytes));
    EXPECT_STREQ(bytes, "/tmp/plain");
    std::free(bytes);

    bytes = reinterpret_cast<char*>(1);
    EXPECT_FALSE(ZonCFStringGetCString(text("/tmp/caf\xC3\xA9"), &bytes));
    EXPECT_EQ(bytes, nullptr);
    EXPECT_FALSE(ZonCFStringGetCString(nullptr, &bytes));
}

TEST(ZonCFPathFunctions, ExistsTestsTheSingleDirectoryBitSoASocketIsADirectory)
{
    ScratchFolder scratch;
    bool isDirectory = false;
    EXPECT_TRUE(ZonCFFileExists(text(scratch.path), &isDirectory));
    EXPECT_TRUE(isDirectory);
    EXPECT_TRUE(ZonCFFileExists(text(scratch.write("file", "x")), &isDirectory));
    EXPECT_FALSE(isDirectory);
    EXPECT_FALSE(ZonCFFileExists(text(scratch.file("missing")), &isDirectory));
    EXPECT_FALSE(isDirectory);

    const std::string socketPath = scratch.file("socket");
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_TRUE(ZonCFFileExists(text(socketPath), &isDirectory));
    EXPECT_TRUE(isDirectory); // mode 0xC000 has the 0x4000 bit
    ::close(socket);

    // A non-ASCII path cannot become a C string, so it counts as missing.
    EXPECT_FALSE(ZonCFFileExists(text(scratch.write("caf\xC3\xA9", "x")), nullptr));
}

TEST(ZonCFPathFunctions, RemoveAnswersYesForMissingAndNoForNonASCIIPaths)
{
    ScratchFolder scratch;
    EXPECT_TRUE(ZonCFFileRemove(text(scratch.file("missing"))));
    const std::string plain = scratch.write("plain", "x");
    EXPECT_TRUE(ZonCFFileRemove(text(plain)));
    EXPECT_FALSE(std::filesystem::exists(plain));
    const std::string accented = scratch.write("caf\xC3\xA9", "x");
    EXPECT_FALSE(ZonCFFileRemove(text(accented)));
    EXPECT_TRUE(std::filesystem::exists(accented));
}

TEST(ZonCFPathFunctions, ReferencesAndVolumesTakeNonASCIIPaths)
{
    ScratchFolder scratch;
    const std::string accented = scratch.write("\xE6\x97\xA5\xE6\x9C\xAC/caf\xC3\xA9", "x");
    FSRef reference;
    ASSERT_TRUE(ZonCFStringGetFSRef(text(accented), &reference));
    EXPECT_EQ(pathOfFSRef(reference), accented);
    EXPECT_LE(ZonCFStringGetVolumeRefNum(text(accented)), -100);
    EXPECT_FALSE(ZonCFStringGetFSRef(text(scratch.file("missing")), &reference));
    EXPECT_EQ(ZonCFStringGetVolumeRefNum(text(scratch.file("missing"))), 0);
}

TEST(ZonCFPathFunctions, StringsComeFromTheHomeFolderAndAppendingKeepsTheFirst)
{
    AutoreleasePool pool;
    ScopedEnvironment environment;
    environment.set("HOME", "/home/\xC3\xA9lise");
    EXPECT_EQ(owned(CFStringCreateHomeDirectoryPath())->UTF8String(), "/home/\xC3\xA9lise");
    EXPECT_EQ(owned(CFStringCreateHomeDirectoryPathWithPathComponent(text("Music")))->UTF8String(), "/home/\xC3\xA9lise/Music");
    EXPECT_EQ(owned(CFStringCreateByAppending(text("a"), text("b")))->UTF8String(), "a");
    EXPECT_EQ(CFStringCreateByAppending(nullptr, text("b")), nullptr);
}

} // namespace
} // namespace zon
