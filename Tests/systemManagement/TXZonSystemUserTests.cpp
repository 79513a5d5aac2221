#include "systemManagement/userManagement/TXZonSystemUser.h"

#include "platform/values/Array.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/PeerProcess.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

using namespace zon;
using namespace zon::test;

namespace {

constexpr int kNoNamespace = 77;

// Runs check in a forked child with a tmpfs of its own on /home (the test process keeps its
// namespaces; nothing reaches the host's mounts); prepare fills it first. The child's exit
// status is check's: 0 when it held.
int withPrivateHome(const std::function<void()>& prepare, const std::function<bool()>& check)
{
    PeerProcess child;
    child.runInChild([&] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
            || ::mount("tmpfs", "/home", "tmpfs", 0, "mode=0755") != 0)
            return kNoNamespace;
        prepare();
        return check() ? 0 : 1;
    });
    const int status = child.wait();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> names(const Array* array)
{
    std::vector<std::string> found;
    for (Object* name : *array)
        found.push_back(utf8(static_cast<String*>(name)));
    return found;
}

} // namespace

TEST(TXZonSystemUser, ListsAccountFoldersOnly)
{
    const int outcome = withPrivateHome(
        [] {
            for (const char* name : {"Shared", ".localized", "lost+found", "alice", ".hidden-bob"})
                ::mkdir((std::string("/home/") + name).c_str(), 0755);
        },
        [] { return names(TXZonSystemUser::listOfUsers().get()) == std::vector<std::string> {"alice"}; });
    if (outcome == kNoNamespace)
        GTEST_SKIP() << "cannot mount a private /home (needs root)";
    EXPECT_EQ(outcome, 0) << "listOfUsers did not give just alice";
}

TEST(TXZonSystemUser, AnUnreadableFolderIsLoggedAndGivesNoUsers)
{
    // Root reads any folder, so the child gives its privileges up after the mount.
    const int outcome = withPrivateHome(
        [] {
            ::mkdir("/home/alice", 0755);
            ::chmod("/home", 0700);
            (void)::setgid(65534);
            (void)::setuid(65534);
        },
        [] {
            LogCapture capture;
            const bool empty = TXZonSystemUser::listOfUsers()->count() == 0;
            return empty
                && testing::Matches(ContainsLine(1, testing::StartsWith("Unable to find users due to Error Domain=NSCocoaErrorDomain Code=257")))(
                    capture.records());
        });
    if (outcome == kNoNamespace)
        GTEST_SKIP() << "cannot mount a private /home (needs root)";
    EXPECT_EQ(outcome, 0) << "no empty list with the log line";
}
