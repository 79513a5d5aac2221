// The one independent reader and writer of these stores on Debian: a real Samba with its Mac
// support modules, serving a scratch folder on the loopback interface. What the library writes
// must come out of the AFP_AfpInfo and AFP_Resource streams, and what a client puts into them
// must be read back.

#include "FinderMetadataTestSupport.h"
#include "support/ScratchFolder.h"

#include "extensions/fileSystem/ZonResourceFork.h"
#include "platform/io/FinderMetadataStore.h"
#include "platform/io/ResourceFile.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace zon;
using namespace zon::test;

namespace {

class SambaPeer : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0)
            GTEST_SKIP() << "the Samba peer test runs as root";
        if (!std::filesystem::exists("/usr/sbin/smbd") || !std::filesystem::exists("/usr/bin/smbclient"))
            GTEST_SKIP() << "samba and smbclient are not installed (scripts/bootstrap installs them)";
        for (const char* dir : {"share", "private", "lock", "state", "cache", "pid"})
            folder_.makeFolder(dir);
        port_ = 40000 + ::getpid() % 20000;
        std::string conf = "[global]\n interfaces = lo\n bind interfaces only = yes\n smb ports = " + std::to_string(port_)
            + "\n disable netbios = yes\n load printers = no\n map to guest = Bad User\n server role = standalone server\n";
        for (const char* dir : {"private", "lock", "state", "cache", "pid"})
            conf += std::string(" ") + dir + " directory = " + folder_.file(dir) + "\n";
        conf += " log file = " + folder_.file("smbd.log") + "\n[share]\n path = " + folder_.file("share")
            + "\n guest ok = yes\n read only = no\n force user = root\n vfs objects = catia fruit streams_xattr\n";
        const std::string confPath = folder_.write("smb.conf", conf);
        smbd_ = ::fork();
        ASSERT_GE(smbd_, 0);
        if (smbd_ > 0)
            ::setpgid(smbd_, smbd_);
        if (smbd_ == 0) {
            // A group of its own: smbd signals its whole process group when it stops.
            ::setpgid(0, 0);
            ::execl("/usr/sbin/smbd", "smbd", "--foreground", "--no-process-group", "-s", confPath.c_str(), nullptr);
            ::_exit(127);
        }
        // Ready once a client gets a listing.
        for (int i = 0; i < 100 && !client("ls"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }

    void TearDown() override
    {
        if (smbd_ > 0) {
            ::kill(-smbd_, SIGTERM);
            ::waitpid(smbd_, nullptr, 0);
        }
    }

    bool client(const std::string& commands) const
    {
        const std::string command = "cd '" + folder_.path + "' && smbclient //127.0.0.1/share -p " + std::to_string(port_)
            + " -N -c '" + commands + "' >/dev/null 2>&1";
        return std::system(command.c_str()) == 0;
    }

    ScratchFolder folder_;
    int port_ = 0;
    pid_t smbd_ = -1;
};

} // namespace

TEST_F(SambaPeer, WhatTheLibraryWritesComesOutOfTheStreams)
{
    const std::string file = folder_.write("share/Caf\u00e9.txt", "x");
    ASSERT_TRUE(String::stringWithUTF8String(file)->setFinderInfoFlags_mask_type_creator(0x0400, 0x0400, 0x54455854, 0x74747874));
    const Bytes fork = encodeResourceFile({{0x69636E73, -16455, 0, std::nullopt, {1, 2, 3}}});
    ASSERT_TRUE(writeResourceFork(file, fork));

    ASSERT_TRUE(client("get \"Caf\u00e9.txt:AFP_AfpInfo\" afpinfo; get \"Caf\u00e9.txt:AFP_Resource\" resource"));
    auto afpInfo = fileBytes(folder_.file("afpinfo"));
    ASSERT_TRUE(afpInfo);
    ASSERT_EQ(afpInfo->size(), 60u);
    EXPECT_EQ(std::string(afpInfo->begin(), afpInfo->begin() + 4), std::string("AFP\0", 4));
    EXPECT_EQ(Bytes(afpInfo->begin() + 16, afpInfo->begin() + 48), finderInfo("TEXT", "ttxt", 0x0400));
    EXPECT_EQ(fileBytes(folder_.file("resource")), fork);
}

// What a client writes into the two streams comes back through the library. The Finder
// information travels in the 60-byte AfpInfo record: "AFP\0", version 0x100, a reserved word, the
// backup time, the 32 bytes of Finder information, then ProDOS information and padding.
TEST_F(SambaPeer, WhatAClientPutsIntoTheStreamsIsReadBack)
{
    const std::string file = folder_.write("share/song.mp3", "x");
    Bytes afpInfo {'A', 'F', 'P', 0, 0, 0, 1, 0};
    afpInfo.resize(16, 0);
    const Bytes info = finderInfo("MPG3", "hook", 0x0400);
    afpInfo.insert(afpInfo.end(), info.begin(), info.end());
    afpInfo.resize(60, 0);
    writeBytes(folder_.file("afpinfo"), afpInfo);
    const Bytes fork = encodeResourceFile({{0x616C6973, 0, 0, std::string("ZON Alias"), {9, 8, 7}}});
    writeBytes(folder_.file("resource"), fork);
    ASSERT_TRUE(client("put afpinfo song.mp3:AFP_AfpInfo; put resource song.mp3:AFP_Resource"));

    uint16_t flags = 0;
    uint32_t type = 0, creator = 0;
    ASSERT_TRUE(String::stringWithUTF8String(file)->getFinderInfoFlags_type_creator(&flags, &type, &creator));
    EXPECT_EQ(flags, 0x0400);
    EXPECT_EQ(type, 0x4D504733u); // 'MPG3'
    EXPECT_EQ(creator, 0x686F6F6Bu); // 'hook'
    EXPECT_EQ(readResourceFork(file), fork);
}
