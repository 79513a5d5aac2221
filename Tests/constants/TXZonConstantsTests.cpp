#include "constants/TXZonConstants.h"

#include "platform/io/StandardFolders.h"
#include "platform/values/String.h"

#include "support/PeerProcess.h"
#include "support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>

using namespace zon;
using test::ScopedEnvironment;
using test::ScratchFolder;
using testing::ElementsAre;

namespace {

constexpr int kSkipped = 77;

std::string utf8(const Ref<String>& text) { return text ? text->UTF8String() : std::string("(nil)"); }

std::string infoPlist(std::initializer_list<std::pair<const char*, const char*>> entries)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
    for (const auto& [key, value] : entries)
        text += std::string("<key>") + key + "</key><string>" + value + "</string>\n";
    return text + "</dict>\n</plist>\n";
}

// A copy (not a link: the kernel resolves links in /proc/self/exe) of the peer program under
// name in folder, run to its end; its printed lines.
std::vector<std::string> runCopyOfPeer(const ScratchFolder& scratch, const std::string& folder, const std::string& name,
    const std::vector<std::string>& arguments = {})
{
    const std::string copy = scratch.makeFolder(folder) + "/" + name;
    std::filesystem::copy_file(ZON_RUNNING_APPLICATION_PEER_PATH, copy, std::filesystem::copy_options::overwrite_existing);
    test::PeerProcess peer(copy, arguments, {.captureOutput = true});
    const int status = peer.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << name << ": " << status;
    return peer.lines();
}

} // namespace

TEST(TXZonConstants, FoldersFollowTheXDGRules)
{
    ScratchFolder home;
    ScopedEnvironment environment;
    environment.set("HOME", home.path);
    environment.set("XDG_DATA_HOME", std::nullopt);
    environment.set("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(utf8(TXZonConstants::userApplicationSupportPath()), home.path + "/.local/share");
    EXPECT_EQ(utf8(TXZonConstants::userPreferencePath()), home.path + "/.config");
    EXPECT_EQ(utf8(TXZonConstants::userLaunchAgentPath()), home.path + "/.config/systemd/user");
    EXPECT_EQ(utf8(TXZonConstants::pallidorApplicationSupportPath()), home.path + "/.local/share/Pallidor Bridge");
    EXPECT_EQ(utf8(TXZonConstants::wmsPublicKeyFile()), home.path + "/.local/share/Pallidor Bridge/public.pem");

    environment.set("XDG_DATA_HOME", "/srv/data");
    environment.set("XDG_CONFIG_HOME", "/srv/config/");
    EXPECT_EQ(utf8(TXZonConstants::wmsPublicKeyFile()), "/srv/data/Pallidor Bridge/public.pem");
    EXPECT_EQ(utf8(TXZonConstants::userLaunchAgentPath()), "/srv/config/systemd/user");

    // Relative values are ignored.
    environment.set("XDG_DATA_HOME", "data");
    environment.set("XDG_CONFIG_HOME", "config");
    EXPECT_EQ(utf8(TXZonConstants::userApplicationSupportPath()), home.path + "/.local/share");
    EXPECT_EQ(utf8(TXZonConstants::userPreferencePath()), home.path + "/.config");
    EXPECT_FALSE(std::filesystem::exists(home.file(".local")));
}

TEST(TXZonConstants, WithoutAHomeSupportFilesGoToTheTemporaryFolder)
{
    // A user with no entry in the user database and no HOME has no home folder.
    test::PeerProcess child;
    ASSERT_TRUE(child.runInChild([] {
        ::unsetenv("HOME");
        ::unsetenv("TMPDIR");
        ::unsetenv("XDG_DATA_HOME");
        ::unsetenv("XDG_CONFIG_HOME");
        constexpr uid_t kUnlistedUser = 61234;
        if (::geteuid() != 0 || ::setgid(kUnlistedUser) != 0 || ::setuid(kUnlistedUser) != 0)
            return kSkipped;
        if (NSHomeDirectory())
            return kSkipped;
        const std::string temporary = utf8(NSTemporaryDirectory());
        const bool ok = utf8(TXZonConstants::userApplicationSupportPath()) == temporary
            && utf8(TXZonConstants::wmsPublicKeyFile()) == temporary + "Pallidor Bridge/public.pem"
            && !TXZonConstants::userPreferencePath() && !TXZonConstants::userLaunchAgentPath();
        std::filesystem::remove_all(temporary);
        return ok ? 0 : 1;
    }));
    const int status = child.wait();
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == kSkipped)
        GTEST_SKIP() << "needs root to become a user without a home folder";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(TXZonConstants, MusicServerConstants)
{
    EXPECT_EQ(utf8(TXZonConstants::wmsPrivateKeyName()), "Wi-Fi Music Server Key");
    EXPECT_EQ(utf8(TXZonConstants::wmsCertificateName()), "Wi-Fi Music Server Certificate");
    EXPECT_EQ(TXZonConstants::wmsMaxDefaultMusicTleTracks(), 10000);
    EXPECT_EQ(TXZonConstants::wmsMaxPL7MusicTleTracks(), 15000);
    EXPECT_EQ(TXZonConstants::sharedInstance(), TXZonConstants::sharedInstance());
    EXPECT_EQ(utf8(kTXBundleVersionKey), "CFBundleVersion");
    EXPECT_EQ(utf8(kTXBundleShortVersionKey), "CFBundleShortVersionString");
    EXPECT_EQ(utf8(kCFBundleShortVersionKey), "CFBundleShortVersionString");
}

TEST(TXZonConstants, ProgramsAreKnownByTheirExecutableNameExactly)
{
    ScratchFolder scratch;
    const std::string bin = scratch.file("bin");
    EXPECT_THAT(runCopyOfPeer(scratch, "bin", "Pallidor Station Software"),
        ElementsAre("1|Pallidor® Station Software|" + bin + "/Pallidor Station Software"));
    EXPECT_THAT(runCopyOfPeer(scratch, "bin", "PallidorMobileMediaServer"),
        ElementsAre("2|Pallidor® Media Server|" + bin + "/PallidorMobileMediaServer"));
    EXPECT_THAT(runCopyOfPeer(scratch, "bin", "Pallidor Media Server Status"),
        ElementsAre("3|Pallidor® Media Server Status|" + bin + "/Pallidor Media Server Status"));
    EXPECT_THAT(runCopyOfPeer(scratch, "bin", "pallidor station software"),
        ElementsAre("0|Pallidor® Unknown Application|" + bin + "/pallidor station software"));

    // An Info.plist's CFBundleExecutable names the program, whatever the file is called; the
    // path operation then answers that name.
    scratch.write("app/Info.plist", infoPlist({{"CFBundleExecutable", "PallidorMobileMediaServer"}}));
    EXPECT_THAT(runCopyOfPeer(scratch, "app", "server"), ElementsAre("2|Pallidor® Media Server|PallidorMobileMediaServer"));
    // An Info.plist without it leaves the executable's own path.
    scratch.write("plain/Info.plist", infoPlist({{"CFBundleIdentifier", "org.example.plain"}}));
    EXPECT_THAT(runCopyOfPeer(scratch, "plain", "Pallidor Media Server Status"),
        ElementsAre("3|Pallidor® Media Server Status|" + scratch.file("plain") + "/Pallidor Media Server Status"));
}

TEST(TXZonConstants, AKnownCodeAndThePathStayCachedAnUnknownCodeDoesNot)
{
    ScratchFolder scratch;
    scratch.write("station/Info.plist", infoPlist({{"CFBundleExecutable", "Pallidor Station Software"}}));
    scratch.write("other/Info.plist", infoPlist({{"CFBundleExecutable", "Other"}}));
    // Unknown, then the main bundle changes: the code is looked up again, the path stays.
    EXPECT_THAT(runCopyOfPeer(scratch, "bin", "tool", {scratch.file("station")}),
        ElementsAre("0|Pallidor® Unknown Application|" + scratch.file("bin") + "/tool", "1|" + scratch.file("bin") + "/tool"));
    // Known: nothing changes afterwards.
    EXPECT_THAT(runCopyOfPeer(scratch, "bin", "PallidorMobileMediaServer", {scratch.file("other")}),
        ElementsAre("2|Pallidor® Media Server|" + scratch.file("bin") + "/PallidorMobileMediaServer",
            "2|" + scratch.file("bin") + "/PallidorMobileMediaServer"));
}
