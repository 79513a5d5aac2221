#include "systemManagement/processManagement/TXZonDaemonHelper.h"

#include "platform/io/FileHandle.h"
#include "platform/io/Pipe.h"
#include "platform/values/String.h"
#include "support/PrivateUserManager.h"
#include "support/Raised.h"
#include "support/ScratchFolder.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <unistd.h>

using namespace zon;
using namespace zon::test;

namespace {

// Unit names carry the test's pid, so that runs on one user manager never meet.
std::string unitName(const std::string& stem) { return "zon-test-" + std::to_string(::getpid()) + "-" + stem + ".service"; }

class TXZonDaemonHelperUnits : public testing::Test {
protected:
    static void SetUpTestSuite() { manager_ = std::make_unique<PrivateUserManager>(); }
    static void TearDownTestSuite() { manager_.reset(); }
    void SetUp() override
    {
        if (!manager_->available())
            GTEST_SKIP() << "no systemd user manager: " << manager_->reason();
    }
    void TearDown() override
    {
        for (const std::string& path : unitFiles_)
            disableUnitFile(path);
    }

    // A sleeping service's unit file, disabled when the test ends.
    std::string writeSleeperUnit(const std::string& name)
    {
        unitFiles_.push_back(manager_->writeSleeperUnit(name));
        return unitFiles_.back();
    }

    Ref<TXZonDaemonHelper> helper_ = TXZonDaemonHelper::init();
    std::vector<std::string> unitFiles_;
    static inline std::unique_ptr<PrivateUserManager> manager_;
};

} // namespace

TEST(TXZonDaemonHelper, ConstantsKeepTheirTexts)
{
    EXPECT_EQ(utf8(TXLaunchCtlPath), "/bin/launchctl");
    EXPECT_EQ(utf8(TXLaunchCtlArgLoad), "load");
    EXPECT_EQ(utf8(TXLaunchCtlArgUnload), "unload");
    EXPECT_EQ(utf8(TXLaunchCtlArgList), "list");
    EXPECT_EQ(utf8(TXGrepPath), "/usr/bin/grep");
    EXPECT_EQ(utf8(TXSystemCtlPath), "/usr/bin/systemctl");
}

TEST(TXZonDaemonHelper, FindsMatchingLinesAsABasicRegularExpression)
{
    Ref<Pipe> listing = Pipe::pipe();
    listing->fileHandleForWriting()->writeData(dataOf("a.service\nab-x.service\nb.service\n").get());
    listing->fileHandleForWriting()->closeFile();
    EXPECT_EQ(utf8(TXZonDaemonHelper::init()->findDaemonInOuput_withInputPipe(str("a.").get(), listing.get()).get()),
        "a.service\nab-x.service\n");

    Ref<Pipe> other = Pipe::pipe();
    other->fileHandleForWriting()->writeData(dataOf("b.service\n").get());
    other->fileHandleForWriting()->closeFile();
    EXPECT_EQ(utf8(TXZonDaemonHelper::init()->findDaemonInOuput_withInputPipe(str("a").get(), other.get()).get()), "");
}

TEST(TXZonDaemonHelper, WithoutAUserManagerNothingIsLoadedAndARestartStillAnswersTrue)
{
    ScratchFolder emptyRuntime;
    ScopedEnvironment environment;
    environment.set("XDG_RUNTIME_DIR", emptyRuntime.path);
    environment.set("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    Ref<TXZonDaemonHelper> helper = TXZonDaemonHelper::init();
    EXPECT_FALSE(helper->isDaemonLoaded(str(".").get()));
    EXPECT_TRUE(helper->restartDaemon(str(emptyRuntime.file("none.service")).get()));
}

TEST(TXZonDaemonHelper, AMissingToolRaisesTheLaunchException)
{
    ScratchFolder folder;
    Ref<TXZonDaemonHelper> noSystemCtl = TXZonDaemonHelper::initWithSystemCtlPath_grepPath(str(folder.file("systemctl")).get(), TXGrepPath);
    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { noSystemCtl->isDaemonLoaded(str("x").get()); }),
        "launch path not accessible");
    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { noSystemCtl->restartDaemon(str("x.service").get()); }),
        "launch path not accessible");
    Ref<TXZonDaemonHelper> noGrep = TXZonDaemonHelper::initWithSystemCtlPath_grepPath(TXSystemCtlPath, str(folder.file("grep")).get());
    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { noGrep->isDaemonLoaded(str("x").get()); }),
        "launch path not accessible");
}

TEST_F(TXZonDaemonHelperUnits, ARestartedUnitFileIsLoadedAndFoundByPrefixAndByDot)
{
    const std::string name = unitName("sleeper");
    const std::string path = writeSleeperUnit(name);
    const std::string label = name.substr(0, name.size() - std::string(".service").size());
    EXPECT_FALSE(helper_->isDaemonLoaded(str(label).get()));

    EXPECT_TRUE(helper_->restartDaemon(str(path).get()));
    EXPECT_TRUE(helper_->isDaemonLoaded(str(label).get()));
    EXPECT_TRUE(helper_->isDaemonLoaded(str(label.substr(0, label.size() - 3)).get())) << "a prefix matches";
    std::string dotted = label;
    dotted[dotted.rfind('-')] = '.';
    EXPECT_TRUE(helper_->isDaemonLoaded(str(dotted).get())) << "a dot matches the dash";
    EXPECT_FALSE(helper_->isDaemonLoaded(str(label + "-other").get()));
}

TEST_F(TXZonDaemonHelperUnits, RestartingARunningUnitGivesItANewMainProcess)
{
    const std::string name = unitName("restarted");
    const std::string path = writeSleeperUnit(name);
    ASSERT_TRUE(helper_->restartDaemon(str(path).get()));
    const int first = unitMainPid(name);
    ASSERT_GT(first, 0);
    EXPECT_TRUE(helper_->restartDaemon(str(path).get()));
    const int second = unitMainPid(name);
    EXPECT_GT(second, 0);
    EXPECT_NE(second, first);
    EXPECT_NE(::kill(first, 0), 0) << "the old main process was stopped";
}

TEST_F(TXZonDaemonHelperUnits, ADisabledUnitLeavesTheListing)
{
    const std::string name = unitName("disabled");
    const std::string path = writeSleeperUnit(name);
    ASSERT_TRUE(helper_->restartDaemon(str(path).get()));
    ASSERT_TRUE(helper_->isDaemonLoaded(str(name).get()));
    disableUnitFile(path);
    EXPECT_FALSE(helper_->isDaemonLoaded(str(name).get()));
}
