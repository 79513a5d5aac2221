#include "platform/io/StandardFolders.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zon {
namespace {

using test::ScopedEnvironment;

std::string text(const Ref<String>& value) { return value ? value->UTF8String() : "(nil)"; }

TEST(StandardFolders, ComeFromHomeAndAbsoluteXDGValues)
{
    AutoreleasePool pool;
    ScopedEnvironment environment;
    environment.set("HOME", "/home/alice");
    environment.set("XDG_DATA_HOME", std::nullopt);
    environment.set("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(text(NSHomeDirectory()), "/home/alice");
    EXPECT_EQ(text(xdgDataHomeDirectory()), "/home/alice/.local/share");
    EXPECT_EQ(text(xdgConfigHomeDirectory()), "/home/alice/.config");

    environment.set("XDG_DATA_HOME", "/srv/data");
    environment.set("XDG_CONFIG_HOME", "/srv/config");
    EXPECT_EQ(text(xdgDataHomeDirectory()), "/srv/data");
    EXPECT_EQ(text(xdgConfigHomeDirectory()), "/srv/config");

    // Relative and empty values are ignored; a home with a trailing slash gets no second one.
    environment.set("XDG_DATA_HOME", "relative/data");
    environment.set("XDG_CONFIG_HOME", "");
    environment.set("HOME", "/home/bob/");
    EXPECT_EQ(text(xdgDataHomeDirectory()), "/home/bob/.local/share");
    EXPECT_EQ(text(xdgConfigHomeDirectory()), "/home/bob/.config");
}

TEST(StandardFolders, WithoutHomeTheUserDatabaseAnswers)
{
    AutoreleasePool pool;
    const passwd* entry = ::getpwuid(::geteuid());
    if (!entry || !entry->pw_dir || !*entry->pw_dir)
        GTEST_SKIP() << "the user database has no home folder for this user";
    const std::string home = entry->pw_dir;
    ScopedEnvironment environment;
    for (std::optional<std::string> emptyOrUnset : {std::optional<std::string>(""), std::optional<std::string>()}) {
        environment.set("HOME", emptyOrUnset);
        environment.set("XDG_DATA_HOME", std::nullopt);
        EXPECT_EQ(text(NSHomeDirectory()), home);
        EXPECT_EQ(text(xdgDataHomeDirectory()), (home.ends_with('/') ? home : home + "/") + ".local/share");
    }
}

TEST(StandardFolders, TemporaryFolderIsTMPDIROrAPrivateFolderUnderTmp)
{
    AutoreleasePool pool;
    ScopedEnvironment environment;
    environment.set("TMPDIR", "/var/tmp/mine");
    EXPECT_EQ(text(NSTemporaryDirectory()), "/var/tmp/mine/");
    environment.set("TMPDIR", "/var/tmp/mine/");
    EXPECT_EQ(text(NSTemporaryDirectory()), "/var/tmp/mine/");

    environment.set("TMPDIR", std::nullopt);
    const std::string folder = "/tmp/zon-" + std::to_string(::geteuid());
    EXPECT_EQ(text(NSTemporaryDirectory()), folder + "/");
    struct stat st {};
    ASSERT_EQ(::lstat(folder.c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    EXPECT_EQ(st.st_uid, ::geteuid());
}

TEST(StandardFolders, TemporaryFolderOthersCanEnterIsRefused)
{
    AutoreleasePool pool;
    ScopedEnvironment environment;
    environment.set("TMPDIR", std::nullopt);
    const std::string folder = "/tmp/zon-" + std::to_string(::geteuid());
    ASSERT_NE(text(NSTemporaryDirectory()), "(nil)");
    ASSERT_EQ(::chmod(folder.c_str(), 0777), 0);
    LogCapture log;
    EXPECT_EQ(NSTemporaryDirectory(), nullptr);
    EXPECT_THAT(log.records(), ContainsLine(1, testing::HasSubstr("No temporary folder: " + folder)));
    ::chmod(folder.c_str(), 0700);
    EXPECT_EQ(text(NSTemporaryDirectory()), folder + "/");
}

} // namespace
} // namespace zon
