#include "systemManagement/fileManagement/TXZonFileMonitor.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"
#include "support/CountedObject.h"
#include "support/LogCapture.h"
#include "support/ScratchFolder.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

using namespace zon;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// The monitor with a short window, so that most tests do not wait the real 3.0 s.
class QuickFileMonitor final : public TXZonFileMonitor {
    ZON_OBJECT(QuickFileMonitor, TXZonFileMonitor)
protected:
    double eventStreamLatency() const override { return 0.1; }
};
ZON_DEFINE_CLASS(QuickFileMonitor, "QuickFileMonitor")

class DelegateRecorder final : public Object {
    ZON_OBJECT(DelegateRecorder, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("monitoredFileDidChangeForMonitor:", &DelegateRecorder::monitoredFileDidChange);
    }
    void monitoredFileDidChange(TXZonFileMonitor* monitor)
    {
        ++calls;
        lastMonitor = monitor;
    }
    int calls = 0;
    TXZonFileMonitor* lastMonitor = nullptr;
};
ZON_DEFINE_CLASS(DelegateRecorder, "FileMonitorTestDelegate")

// A delegate that answers nothing.
class SilentDelegate final : public Object {
    ZON_OBJECT(SilentDelegate, Object)
};
ZON_DEFINE_CLASS(SilentDelegate, "FileMonitorSilentDelegate")

Ref<String> text(const std::string& value)
{
    return String::stringWithUTF8String(value);
}

void append(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::app) << bytes;
}

// Sets the file's modification time to a given second, so that two writes within one clock tick
// still differ.
void setModificationTime(const std::string& path, time_t seconds)
{
    std::filesystem::last_write_time(path,
        std::filesystem::file_time_type::clock::from_sys(std::chrono::system_clock::from_time_t(seconds)));
}

// Runs the loop for a while; for checking that nothing happens.
void runFor(std::chrono::milliseconds span)
{
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, std::chrono::nanoseconds(span), false);
}

class TXZonFileMonitorTest : public testing::Test {
protected:
    void SetUp() override { file = folder.write("watched.txt", "first\n"); }

    // A quick monitor on file with the recorder as delegate and a block counting its runs.
    Ref<QuickFileMonitor> watch(const std::string& path)
    {
        auto monitor = TXZonFileMonitor::monitorForFile<QuickFileMonitor>(text(path).get());
        monitor->setDelegate(delegate.get());
        monitor->setFileChangedBlock([this] { ++blockRuns; });
        return monitor;
    }
    bool waitForNotifications(int count)
    {
        return test::runLoopUntil([&] { return delegate->calls >= count && blockRuns >= count; });
    }

    AutoreleasePool pool;
    test::ScratchFolder folder;
    std::string file;
    Ref<DelegateRecorder> delegate = makeObject<DelegateRecorder>();
    int blockRuns = 0;
};

TEST_F(TXZonFileMonitorTest, RealWritersEachNotifyDelegateAndBlockOnce)
{
    auto monitor = watch(file);
    EXPECT_EQ(monitor->objectClass(), QuickFileMonitor::staticClass());
    EXPECT_EQ(monitor->directory()->UTF8String(), folder.path);

    append(file, "appended\n");
    ASSERT_TRUE(waitForNotifications(1));
    EXPECT_EQ(delegate->lastMonitor, monitor.get());

    // An editor's save: a temp file renamed over the watched one.
    const std::string temp = folder.write(".watched.txt.swp", "saved\n");
    setModificationTime(temp, 1'000'000'000);
    std::filesystem::rename(temp, file);
    ASSERT_TRUE(waitForNotifications(2));

    // Another file in the same folder changes nothing.
    folder.write("other.txt", "x");
    runFor(400ms);
    EXPECT_EQ(delegate->calls, 2);
    EXPECT_EQ(blockRuns, 2);
}

TEST_F(TXZonFileMonitorTest, FileCreatedLaterIsReportedAndDeletionIsOnlyLogged)
{
    LogCapture capture;
    const std::string later = folder.file("later.txt");
    auto monitor = watch(later);
    EXPECT_THAT(capture.records(), ContainsLine(3, "No such file: " + later));
    EXPECT_EQ(monitor->fileModificationDate(), nullptr);

    folder.write("later.txt", "made\n");
    ASSERT_TRUE(waitForNotifications(1));
    EXPECT_NE(monitor->fileModificationDate(), nullptr);

    std::filesystem::remove(later);
    ASSERT_TRUE(test::runLoopUntil([&] {
        return testing::Value(capture.records(), ContainsLine(1, "Unable to resolve file attributes for changed file " + later));
    }));
    runFor(300ms);
    EXPECT_EQ(delegate->calls, 1);
    EXPECT_EQ(blockRuns, 1);
}

TEST_F(TXZonFileMonitorTest, FolderRemovedOrRenamedAwayIsWatchedAgainByPath)
{
    const std::string inner = folder.write("inner/watched.txt", "one\n");
    auto monitor = watch(inner);

    std::filesystem::remove_all(folder.file("inner"));
    runFor(300ms);
    folder.write("inner/watched.txt", "two\n");
    setModificationTime(inner, 1'000'000'000);
    ASSERT_TRUE(waitForNotifications(1));

    // Renamed away: changes in the moved folder no longer concern the path.
    std::filesystem::rename(folder.file("inner"), folder.file("moved"));
    runFor(300ms);
    append(folder.file("moved/watched.txt"), "elsewhere\n");
    runFor(300ms);
    EXPECT_EQ(delegate->calls, 1);

    folder.write("inner/watched.txt", "three\n");
    setModificationTime(inner, 1'100'000'000);
    ASSERT_TRUE(waitForNotifications(2));
}

TEST_F(TXZonFileMonitorTest, EachWayOfBeingToldWorksAlone)
{
    LogCapture capture;
    {
        auto monitor = TXZonFileMonitor::monitorForFile<QuickFileMonitor>(text(file).get());
        monitor->setDelegate(delegate.get());
        append(file, "a\n");
        ASSERT_TRUE(test::runLoopUntil([&] { return delegate->calls == 1; }));
    }
    {
        auto monitor = TXZonFileMonitor::monitorForFile<QuickFileMonitor>(text(file).get());
        monitor->setFileChangedBlock([this] { ++blockRuns; });
        setModificationTime(file, 1'000'000'000);
        ASSERT_TRUE(test::runLoopUntil([&] { return blockRuns == 1; }));
    }
    EXPECT_THAT(capture.records(), testing::Not(ContainsLine(1, testing::_)));

    // A delegate that does not answer and no block: two error lines per change.
    auto silent = makeObject<SilentDelegate>();
    auto monitor = TXZonFileMonitor::monitorForFile<QuickFileMonitor>(text(file).get());
    monitor->setDelegate(silent.get());
    setModificationTime(file, 1'100'000'000);
    ASSERT_TRUE(test::runLoopUntil([&] {
        return testing::Value(capture.records(), ContainsLine(1, "This monitor is not able to notify for " + file));
    }));
    EXPECT_THAT(capture.records(), ContainsLine(1, StartsWith("Callback selector not implemented for  delegate ")));
    EXPECT_THAT(capture.records(), ContainsLine(5, StartsWith("File was modified: ")));
}

TEST_F(TXZonFileMonitorTest, BlockAndWhatItCapturesOutliveTheMonitor)
{
    const int aliveBefore = test::CountedObject::alive;
    {
        Ref<test::CountedObject> captured = makeObject<test::CountedObject>();
        auto monitor = TXZonFileMonitor::monitorForFile<QuickFileMonitor>(text(file).get());
        monitor->setFileChangedBlock([captured] {});
    }
    EXPECT_EQ(test::CountedObject::alive, aliveBefore + 1);

    // A replaced block is released.
    {
        Ref<test::CountedObject> captured = makeObject<test::CountedObject>();
        auto monitor = TXZonFileMonitor::monitorForFile<QuickFileMonitor>(text(file).get());
        monitor->setFileChangedBlock([captured] {});
        monitor->setFileChangedBlock(nullptr);
    }
    EXPECT_EQ(test::CountedObject::alive, aliveBefore + 1);
}

TEST_F(TXZonFileMonitorTest, UnreadableFileIsAnAttributeError)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root reads through any permission";
    ::chmod(folder.path.c_str(), 0300); // searchable off: stat fails with EACCES
    LogCapture capture;
    auto monitor = watch(file);
    ::chmod(folder.path.c_str(), 0700);
    EXPECT_THAT(capture.records(), ContainsLine(1, "Error reading file attributes for file: " + file));
}

// The real window: a burst is one notification, and it never comes before the window ends.
TEST_F(TXZonFileMonitorTest, BurstIsOneNotificationAfterTheFullLatency)
{
    auto monitor = TXZonFileMonitor::monitorForFile(text(file).get());
    monitor->setDelegate(delegate.get());
    const auto firstWrite = std::chrono::steady_clock::now();
    for (int i = 0; i < 50; ++i) {
        append(file, "line\n");
        folder.write("noise" + std::to_string(i), "x");
    }
    ASSERT_TRUE(test::runLoopUntil([&] { return delegate->calls == 1; }));
    EXPECT_GE(std::chrono::steady_clock::now() - firstWrite, 3s);
    runFor(500ms);
    EXPECT_EQ(delegate->calls, 1);
}

TEST_F(TXZonFileMonitorTest, ReplacingSaveIsReportedAtTheRealLatency)
{
    auto monitor = TXZonFileMonitor::monitorForURL(
        URL::fileURLWithPath(text(file).get()).get());
    monitor->setFileChangedBlock([this] { ++blockRuns; });
    EXPECT_EQ(monitor->eventStreamDescription()->UTF8String(), "inotify");
    const std::string temp = folder.write("watched.txt.tmp", "saved\n");
    setModificationTime(temp, 1'000'000'000);
    std::filesystem::rename(temp, file);
    ASSERT_TRUE(test::runLoopUntil([&] { return blockRuns == 1; }));
}

// ---- Where inotify cannot serve. These run the child cases below in a child process. ----

// Runs the named child case of this program through a shell command that prepares its setting;
// true when the case ran there and passed (a child that skipped or matched nothing also exits 0).
bool childCasePassed(const std::string& prefix, const std::string& testCase, const std::string& environment)
{
    test::ScratchFolder scratch;
    const std::string output = scratch.file("child.out");
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    const std::string command = environment + " " + prefix + " " + self + " --gtest_filter=FileMonitorChild."
        + testCase + " >" + output + " 2>&1";
    const int status = std::system(command.c_str());
    std::ifstream in(output);
    const std::string printed((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(status, 0) << printed;
    return status == 0 && printed.find("[       OK ] FileMonitorChild." + testCase) != std::string::npos;
}

bool canMakeUserNamespace()
{
    return std::system("unshare -Ur true >/dev/null 2>&1") == 0;
}

TEST(FileMonitorLimits, PollsWhenTheInstanceOrWatchLimitIsReached)
{
    if (!canMakeUserNamespace())
        GTEST_SKIP() << "unshare -Ur is not allowed here";
    for (const char* limit : {"max_inotify_instances", "max_inotify_watches"}) {
        const std::string prefix = std::string("unshare -Ur sh -c 'echo 0 > /proc/sys/user/") + limit + " && exec \"$0\" \"$@\"'";
        EXPECT_TRUE(childCasePassed(prefix, "NotifiesByPolling", "ZON_MONITOR_CHILD=1")) << limit;
    }
}

TEST(FileMonitorLimits, ChangeBehindAFuseMountIsReported)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "mounting bindfs needs root";
    if (std::system("command -v bindfs >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "bindfs is not installed (scripts/bootstrap installs it)";
    if (!std::filesystem::exists("/dev/fuse") || std::system("unshare -m true >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no /dev/fuse, or no private mount namespace allowed here";
    test::ScratchFolder folder;
    const std::string source = folder.makeFolder("source");
    const std::string view = folder.makeFolder("view");
    // A private mount namespace, so that the mount never shows on the machine; unmounted before
    // the namespace goes, so that the bindfs daemon ends with it.
    const std::string prefix = "unshare -m --propagation private sh -c 'bindfs \"" + source + "\" \"" + view
        + "\" || exit 3; \"$0\" \"$@\"; status=$?; fusermount -u \"" + view + "\" 2>/dev/null || umount \"" + view
        + "\"; exit $status'";
    EXPECT_TRUE(childCasePassed(prefix, "ReportsChangeBehindMount",
        "ZON_MONITOR_CHILD=1 ZON_MONITOR_SOURCE='" + source + "' ZON_MONITOR_VIEW='" + view + "'"));
}

// The child cases: skipped unless a parent above started them.
class FileMonitorChild : public testing::Test {
protected:
    void SetUp() override
    {
        if (!std::getenv("ZON_MONITOR_CHILD"))
            GTEST_SKIP() << "runs only as a child of FileMonitorLimits";
    }
    AutoreleasePool pool;
};

TEST_F(FileMonitorChild, NotifiesByPolling)
{
    test::ScratchFolder folder;
    const std::string file = folder.write("watched.txt", "one\n");
    int runs = 0;
    auto monitor = TXZonFileMonitor::monitorForFile<QuickFileMonitor>(text(file).get());
    monitor->setFileChangedBlock([&] { ++runs; });
    EXPECT_THAT(monitor->eventStreamDescription()->UTF8String(), HasSubstr("polling: inotify"));
    setModificationTime(file, 1'000'000'000);
    EXPECT_TRUE(test::runLoopUntil([&] { return runs == 1; }));
}

TEST_F(FileMonitorChild, ReportsChangeBehindMount)
{
    const std::string source = std::getenv("ZON_MONITOR_SOURCE");
    const std::string view = std::getenv("ZON_MONITOR_VIEW");
    std::ofstream(source + "/watched.txt") << "one\n";
    int runs = 0;
    auto monitor = TXZonFileMonitor::monitorForFile<QuickFileMonitor>(text(view + "/watched.txt").get());
    monitor->setFileChangedBlock([&] { ++runs; });
    EXPECT_EQ(monitor->eventStreamDescription()->UTF8String(), "polling: FUSE mount");
    append(source + "/watched.txt", "behind the mount\n");
    setModificationTime(source + "/watched.txt", 1'000'000'000);
    EXPECT_TRUE(test::runLoopUntil([&] { return runs == 1; }));
}

} // namespace
