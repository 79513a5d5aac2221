#include "platform/io/ProcessTableInternal.h"
#include "platform/graphics/Image.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/io/Bundle.h"
#include "support/ApplicationFixtures.h"
#include "support/ImageBytes.h"
#include "support/PeerProcess.h"
#include "systemManagement/processManagement/TXZonProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <thread>

using namespace zon;
using namespace zon::test;
namespace fs = std::filesystem;
using testing::ElementsAre;

namespace {

const std::string kPeer = ZON_PROCESS_PEER_PATH;

Ref<String> text(const std::string& utf8) { return String::stringWithUTF8String(utf8); }

std::string utf8(const String* value) { return value ? value->UTF8String() : "(nil)"; }

std::vector<std::string> strings(const Array* array)
{
    std::vector<std::string> out;
    if (array)
        for (Object* item : *array)
            out.push_back(utf8(static_cast<String*>(item)));
    return out;
}

bool eventually(const std::function<bool()>& done)
{
    for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10); std::chrono::steady_clock::now() < end;) {
        if (done())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

std::string executableOf(pid_t pid)
{
    std::error_code error;
    return fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", error).string();
}

// Starts program with arguments and waits until it runs program itself (not the forked copy of
// this test, nor the env that may start it) and sleeps: the kernel switches the executable link
// before it sets up the new arguments.
void startAndWait(PeerProcess& peer, const std::string& program, const std::vector<std::string>& arguments,
    const std::string& runs)
{
    ASSERT_TRUE(peer.start(program, arguments));
    ASSERT_TRUE(eventually([&] {
        auto stat = ProcessTable::readStatLine(peer.pid());
        return executableOf(peer.pid()) == runs && stat && stat.value().state == 'S';
    })) << runs;
}

Ref<TXZonProcess> listed(pid_t pid)
{
    Ref<Array> all = TXZonProcess::allRunningProcesses();
    for (Object* object : *all)
        if (static_cast<TXZonProcess*>(object)->pid() == pid)
            return static_cast<TXZonProcess*>(object);
    return nullptr;
}

Ref<TXZonProcess> processFor(const std::string& name, int32_t pid)
{
    return TXZonProcess::initWithProcessInformation(Dictionary::dictionaryWithObjectsAndKeys({
        {ZSTR("ProcessName"), text(name).get()},
        {ZSTR("ProcessPID"), Number::numberWithUnsignedInt(static_cast<unsigned>(pid)).get()},
    }).get());
}

bool hasOnlyNameAndPID(const TXZonProcess& process)
{
    return process.processInformation()->count() == 2 && !process.path() && !process.arguments()
        && !process.environment();
}

// A folder of its own under the temporary folder, removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string pattern = (fs::temp_directory_path() / "zon-process-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~TemporaryFolder()
    {
        std::error_code error;
        fs::remove_all(path_, error);
    }
    // A copy of the peer at relative (a copy, so that the exe link names it).
    std::string peerCopy(const std::string& relative) const
    {
        const fs::path target = path_ / relative;
        fs::create_directories(target.parent_path());
        fs::copy_file(kPeer, target);
        return target.string();
    }
    // Writes bytes to relative, making the folders on the way.
    void write(const std::string& relative, std::string_view bytes) const
    {
        const fs::path target = path_ / relative;
        fs::create_directories(target.parent_path());
        std::ofstream(target, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
    }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

int parkForever()
{
    for (;;)
        ::pause();
}

bool isRoot() { return ::geteuid() == 0; }

constexpr uid_t kNobody = 65534;

} // namespace

TEST(TXZonProcess, ReadsArgumentsAndEnvironmentWithTheSuitesRules)
{
    PeerProcess peer;
    startAndWait(peer, "/usr/bin/env", {"ZON_PROCESS_MARK=1", kPeer, "park", "--mode=fast", "mode=fast", "-psn_0_12345", kPeer},
        kPeer);
    Ref<TXZonProcess> process = listed(peer.pid());
    ASSERT_TRUE(process);

    EXPECT_EQ(utf8(process->path()), kPeer);
    EXPECT_EQ(utf8(process->fullname().get()), "ProcessPeer");
    EXPECT_EQ(utf8(process->name()), "ProcessPeer");
    // argv[0] and the later copy equal the path and are dropped; mode=fast is an environment entry.
    EXPECT_THAT(strings(process->arguments()), ElementsAre("park", "--mode=fast", "-psn_0_12345"));
    EXPECT_THAT(strings(process->userArguments().get()), ElementsAre("park", "--mode=fast"));
    EXPECT_EQ(utf8(process->environment()->objectForKey<String>(ZSTR("mode"))), "fast");
    EXPECT_EQ(utf8(process->environment()->objectForKey<String>(ZSTR("ZON_PROCESS_MARK"))), "1");
    EXPECT_EQ(utf8(process->description().get()), "ProcessPeer (" + std::to_string(peer.pid()) + ")");
    EXPECT_EQ(process->state(), TXZonProcessStateSleeping);
}

TEST(TXZonProcess, InitialiserScansTheGivenProcessAndKeepsTheGivenName)
{
    PeerProcess peer;
    startAndWait(peer, kPeer, {"park", "x"}, kPeer);
    Ref<TXZonProcess> process = processFor("given", peer.pid());
    EXPECT_EQ(utf8(process->name()), "given");
    EXPECT_EQ(utf8(process->path()), kPeer);
    EXPECT_THAT(strings(process->arguments()), ElementsAre("park", "x"));
    EXPECT_FALSE(TXZonProcess::initWithProcessInformation(nullptr));
}

TEST(TXZonProcess, PidThatDoesNotExist)
{
    constexpr int32_t kNoSuchPID = 0x7ffffff0; // above any pid_max
    EXPECT_FALSE(TXZonProcess::processForPid(kNoSuchPID));
    Ref<TXZonProcess> ghost = processFor("ghost", kNoSuchPID);
    EXPECT_TRUE(hasOnlyNameAndPID(*ghost));
    EXPECT_EQ(utf8(ghost->fullname().get()), "ghost");
    EXPECT_EQ(ghost->state(), TXZonProcessStateNotFound);
    EXPECT_FALSE(ghost->terminate());
}

TEST(TXZonProcess, ZombieKeepsNameAndPIDOnly)
{
    PeerProcess child;
    ASSERT_TRUE(child.runInChild([] { return 0; }));
    Ref<TXZonProcess> zombie;
    ASSERT_TRUE(eventually([&] {
        zombie = listed(child.pid());
        return zombie && zombie->state() == TXZonProcessStateZombie;
    }));
    EXPECT_TRUE(hasOnlyNameAndPID(*zombie));
    EXPECT_EQ(zombie->fullname()->length(), zombie->name()->length());
}

TEST(TXZonProcess, SuspendResumeAndInterruptReachTheChild)
{
    PeerProcess peer;
    startAndWait(peer, kPeer, {}, kPeer);
    Ref<TXZonProcess> process = listed(peer.pid());
    ASSERT_TRUE(process);
    ASSERT_TRUE(process->suspend());
    EXPECT_TRUE(eventually([&] { return process->state() == TXZonProcessStateStopped; }));
    ASSERT_TRUE(process->resume());
    EXPECT_TRUE(eventually([&] { return process->state() == TXZonProcessStateSleeping; }));
    ASSERT_TRUE(process->interrupt());
    const int status = peer.wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
    EXPECT_EQ(process->state(), TXZonProcessStateNotFound);
    EXPECT_FALSE(process->kill()); // reaped: the descriptor finds nobody
}

TEST(TXZonProcess, BundlePiecesComeFromTheApplicationBundle)
{
    TemporaryFolder folder;
    const std::string identifier = "org.zoncommon.test.T" + std::to_string(::getpid());
    folder.write("T.app/Contents/Info.plist", infoPlistWithIdentifier(identifier));
    // Icons where a bundle keeps them, and where the executable's folder would: the icon is looked
    // for below the executable's own path, a file, so neither is found.
    const std::string icns = iconFamily({iconElement("ic08", pngHeader(256, 256))});
    folder.write("T.app/Contents/Resources/T.icns", icns);
    folder.write("T.app/Contents/MacOS/Contents/Resources/T.icns", icns);
    PeerProcess same, other;
    const std::string samePath = folder.peerCopy("T.app/Contents/MacOS/T");
    const std::string otherPath = folder.peerCopy("T.app/Contents/MacOS/Other");
    startAndWait(same, samePath, {}, samePath);
    startAndWait(other, otherPath, {}, otherPath);

    Ref<TXZonProcess> bundled = listed(same.pid());
    EXPECT_EQ(utf8(bundled->bundlePath().get()), (folder.path() / "T.app").string());
    ASSERT_TRUE(bundled->bundle());
    EXPECT_EQ(utf8(bundled->bundle()->bundlePath()), (folder.path() / "T.app").string());
    EXPECT_EQ(utf8(bundled->bundleID().get()), identifier);
    EXPECT_FALSE(bundled->icon());
    EXPECT_EQ(TXZonProcess::processForBundleID(text(identifier).get())->pid(), same.pid());
    EXPECT_TRUE(TXZonProcess::processIsRunningWithBundleID(text(identifier).get()));
    EXPECT_FALSE(TXZonProcess::processIsRunningWithBundleID(ZSTR("org.zoncommon.test.NoSuchApplication")));
    EXPECT_FALSE(TXZonProcess::processForBundleID(nullptr));

    for (pid_t unbundled : {other.pid(), ::getpid()}) {
        Ref<TXZonProcess> process = listed(unbundled);
        EXPECT_FALSE(process->bundlePath());
        EXPECT_FALSE(process->bundle());
        EXPECT_FALSE(process->bundleID());
        EXPECT_FALSE(process->icon());
    }
}

TEST(TXZonProcess, BundleIDNeedsAFilePackage)
{
    // The same layout without the ".app": a bundle path, but not a package, so no identifier.
    TemporaryFolder folder;
    folder.write("T/Contents/Info.plist", infoPlistWithIdentifier("org.zoncommon.test.Plain"));
    const std::string path = folder.peerCopy("T/Contents/MacOS/T");
    PeerProcess peer;
    startAndWait(peer, path, {}, path);
    Ref<TXZonProcess> process = listed(peer.pid());
    EXPECT_EQ(utf8(process->bundlePath().get()), (folder.path() / "T").string());
    EXPECT_TRUE(process->bundle());
    EXPECT_FALSE(process->bundleID());
}

TEST(TXZonProcess, DuplicatesShareTheBundleIdentifier)
{
    // Two programs of different names and paths in bundles of one identifier are duplicates.
    TemporaryFolder folder;
    const std::string identifier = "org.zoncommon.test.Twin" + std::to_string(::getpid());
    folder.write("A.app/Contents/Info.plist", infoPlistWithIdentifier(identifier));
    folder.write("B.app/Contents/Info.plist", infoPlistWithIdentifier(identifier));
    const std::string a = folder.peerCopy("A.app/Contents/MacOS/A");
    const std::string b = folder.peerCopy("B.app/Contents/MacOS/B");
    PeerProcess parked, lister;
    startAndWait(parked, b, {}, b);
    ASSERT_TRUE(lister.start(a, {"duplicates"}, {.captureOutput = true}));
    ASSERT_TRUE(WIFEXITED(lister.wait()));
    EXPECT_THAT(lister.lines(), ElementsAre(std::to_string(parked.pid())));
}

TEST(TXZonProcess, DeletedExecutableAndNameCutInsideACharacter)
{
    TemporaryFolder folder;
    // 17 bytes; the kernel keeps 15, which ends inside the euro sign.
    const std::string path = folder.peerCopy("ééééééé€");
    PeerProcess peer;
    startAndWait(peer, path, {}, path);
    EXPECT_EQ(utf8(listed(peer.pid())->name()), "ééééééé\uFFFD");
    fs::remove(path);
    ASSERT_TRUE(eventually([&] { return executableOf(peer.pid()) == path + " (deleted)"; }));
    Ref<TXZonProcess> process = listed(peer.pid());
    ASSERT_TRUE(process);
    EXPECT_FALSE(process->path());
    EXPECT_EQ(utf8(process->fullname().get()), "ééééééé\uFFFD");
    EXPECT_TRUE(process->arguments());
}

TEST(TXZonProcess, NameLookupsAndDuplicates)
{
    TemporaryFolder folder;
    const std::string unique = folder.peerCopy("ZonUniquePeer");
    PeerProcess peer, copyA, copyB;
    startAndWait(peer, unique, {}, unique);
    EXPECT_TRUE(TXZonProcess::processIsRunningWithFullname(ZSTR("ZonUniquePeer")));
    EXPECT_FALSE(TXZonProcess::multipleProcessesAreRunningWithFullname(ZSTR("ZonUniquePeer")));
    EXPECT_EQ(TXZonProcess::processForName(ZSTR("ZonUniquePeer"))->pid(), peer.pid());
    EXPECT_EQ(TXZonProcess::processesForName(ZSTR("ZonUniquePeer"))->count(), 1u);
    EXPECT_FALSE(TXZonProcess::processForName(ZSTR("ZonNoSuchProgram")));

    // Forked copies of this test are other instances of this program.
    ASSERT_TRUE(copyA.runInChild(parkForever));
    ASSERT_TRUE(copyB.runInChild(parkForever));
    Ref<TXZonProcess> current = TXZonProcess::currentProcess();
    ASSERT_TRUE(current);
    EXPECT_EQ(current->pid(), ::getpid());
    EXPECT_TRUE(TXZonProcess::multipleProcessesAreRunningWithFullname(current->fullname().get()));
    std::set<int32_t> duplicates;
    Ref<Array> found = TXZonProcess::duplicateProcesses();
    for (Object* process : *found)
        duplicates.insert(static_cast<TXZonProcess*>(process)->pid());
    EXPECT_TRUE(duplicates.contains(copyA.pid()));
    EXPECT_TRUE(duplicates.contains(copyB.pid()));
    EXPECT_FALSE(duplicates.contains(::getpid()));
    EXPECT_FALSE(duplicates.contains(peer.pid()));
}

TEST(TXZonProcess, ListingIsInAscendingPIDOrder)
{
    Ref<Array> all = TXZonProcess::allRunningProcesses();
    ASSERT_GT(all->count(), 1u);
    int32_t previous = 0;
    for (Object* object : *all) {
        const int32_t pid = static_cast<TXZonProcess*>(object)->pid();
        EXPECT_GT(pid, previous);
        previous = pid;
    }
}

TEST(TXZonProcess, AnotherUsersProcessKeepsNameAndPIDOnly)
{
    if (!isRoot())
        GTEST_SKIP() << "needs root to start a process as nobody";
    // A process that changed its user is not dumpable: even other processes of that user cannot
    // read its environment. Its lister is a second nobody child.
    PeerProcess parked, lister;
    ASSERT_TRUE(parked.runInChild([] {
        if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
            return 1;
        return parkForever();
    }));
    ASSERT_TRUE(eventually([&] { return fs::status("/proc/" + std::to_string(parked.pid())).permissions() != fs::perms::unknown
        && listed(parked.pid()); }));
    const pid_t root = ::getpid();
    const pid_t other = parked.pid();
    ASSERT_TRUE(lister.runInChild([root, other] {
        if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
            return 1;
        Ref<TXZonProcess> rootProcess = listed(root);
        Ref<TXZonProcess> nobodyProcess = listed(other);
        if (!rootProcess || !hasOnlyNameAndPID(*rootProcess) || rootProcess->fullname()->isEqual(ZSTR("")))
            return 2;
        if (!nobodyProcess || !hasOnlyNameAndPID(*nobodyProcess))
            return 3;
        return rootProcess->terminate() ? 4 : 0; // the kernel refuses
    }));
    const int status = lister.wait();
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1 setuid, 2 root's process, 3 the other nobody process, 4 signal";
}

TEST(TXZonProcess, ListingsStayWholeWhileProcessesComeAndGo)
{
    std::atomic<bool> stop = false;
    std::thread spawner([&] {
        while (!stop) {
            const pid_t pid = ::fork();
            if (pid == 0) {
                ::execl("/bin/true", "true", nullptr);
                ::_exit(127);
            }
            if (pid > 0)
                ::waitpid(pid, nullptr, 0);
        }
    });
    // A child is a copy of this test until its exec, "true" after it. The kernel switches the
    // executable before the name, so one process may show the test's name with the path of
    // true, but never the name "true" with this test's path: that entry would pair a "true" that
    // exited with the next child given its pid.
    const std::string self = executableOf(::getpid());
    size_t mixed = 0, missing = 0;
    for (int listing = 0; listing < 1000; ++listing) {
        Ref<Array> all = TXZonProcess::allRunningProcesses();
        for (Object* object : *all) {
            auto* process = static_cast<TXZonProcess*>(object);
            missing += !process->name() || process->pid() <= 0;
            mixed += process->name() && process->name()->isEqual(ZSTR("true")) && utf8(process->path()) == self;
        }
    }
    stop = true;
    spawner.join();
    EXPECT_EQ(missing, 0u);
    EXPECT_EQ(mixed, 0u);
}

TEST(TXZonProcess, ExactListInsideAPIDNamespace)
{
    if (!isRoot())
        GTEST_SKIP() << "needs root for unshare --pid --mount-proc";
    PeerProcess lister;
    ASSERT_TRUE(lister.start("/usr/bin/unshare", {"--pid", "--fork", "--mount-proc", kPeer, "list", "2"}, {.captureOutput = true}));
    const int status = lister.wait();
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
        GTEST_SKIP() << "unshare refused here (exit " << WEXITSTATUS(status) << ")";
    EXPECT_THAT(lister.lines(), ElementsAre("1 ProcessPeer", "2 ProcessPeer", "3 ProcessPeer"));
}

TEST(TXZonProcess, SignalToARecycledPIDIsRefused)
{
    if (!isRoot())
        GTEST_SKIP() << "needs root to hand a pid out again (ns_last_pid in a new pid namespace)";
    PeerProcess peer;
    ASSERT_TRUE(peer.start("/usr/bin/unshare", {"--pid", "--fork", "--mount-proc", kPeer, "recycle"}));
    const int status = peer.wait();
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "the pid could not be handed out again";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1 no snapshot, 2 the signal reached the new holder of the pid";
}
