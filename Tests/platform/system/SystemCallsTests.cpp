#include "platform/system/EventCallsInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessCallsInternal.h"
#include "platform/system/SocketCallsInternal.h"

#include "support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

using namespace zon;
using testing::HasSubstr;

namespace {

bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

using test::ScratchFolder;

void writeFile(const std::string& path, const std::string& text)
{
    auto file = openFile(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_TRUE(file) << file.error().text();
    ASSERT_TRUE(writeAll(file.value().get(), {reinterpret_cast<const uint8_t*>(text.data()), text.size()}));
    ASSERT_TRUE(file.value().close());
}

} // namespace

TEST(SystemResult, FailureTextNamesTheCallAndTheReason)
{
    errno = EADDRINUSE;
    EXPECT_EQ(SystemError::last("bind").text(), "bind: Address already in use");
    EXPECT_EQ((SystemError {EPERM, "/tmp/x", "not a private directory of this user"}).text(),
        "/tmp/x: not a private directory of this user");
    SystemResult<int> value(7);
    ASSERT_TRUE(value);
    EXPECT_EQ(value.value(), 7);
    EXPECT_EQ(value.code(), 0);
    SystemResult<> failed(SystemError {ENOENT, "open", {}});
    EXPECT_FALSE(failed);
    EXPECT_EQ(failed.code(), ENOENT);
}

TEST(FileDescriptor, ClosesOnEveryPathAndMovesOwnership)
{
    int raw[2];
    ASSERT_EQ(::pipe2(raw, O_CLOEXEC), 0);
    {
        FileDescriptor reader(raw[0]);
        FileDescriptor moved = std::move(reader);
        EXPECT_FALSE(reader.isValid());
        EXPECT_EQ(moved.get(), raw[0]);
        FileDescriptor writer(raw[1]);
        writer = std::move(moved); // the old writer closes here
        EXPECT_FALSE(isOpen(raw[1]));
        EXPECT_TRUE(isOpen(raw[0]));
    }
    EXPECT_FALSE(isOpen(raw[0]));

    ASSERT_EQ(::pipe2(raw, O_CLOEXEC), 0);
    FileDescriptor kept(raw[0]);
    const int released = kept.release();
    EXPECT_FALSE(kept.isValid());
    EXPECT_TRUE(isOpen(released));
    FileDescriptor closing(raw[1]);
    auto copy = closing.duplicate();
    ASSERT_TRUE(copy);
    EXPECT_NE(copy.value().get(), raw[1]);
    EXPECT_TRUE(closing.close());
    EXPECT_FALSE(isOpen(raw[1]));
    EXPECT_TRUE(closing.close()); // closing nothing is no failure
    ::close(released);
}

TEST(FileCalls, ReadToEndStopsAtItsCap)
{
    ScratchFolder folder;
    writeFile(folder.file("ten"), "0123456789");
    for (size_t cap : {size_t(10), size_t(11), size_t(100000)}) {
        auto file = openFile(folder.file("ten"), O_RDONLY);
        ASSERT_TRUE(file);
        auto text = readToEnd(file.value().get(), cap);
        ASSERT_TRUE(text) << cap;
        EXPECT_EQ(text.value(), "0123456789");
    }
    auto file = openFile(folder.file("ten"), O_RDONLY);
    auto cut = readToEnd(file.value().get(), 9);
    ASSERT_FALSE(cut);
    EXPECT_EQ(cut.code(), EFBIG);

    // A source without end is refused once it passes the cap, not read forever.
    auto endless = openFile("/dev/zero", O_RDONLY);
    ASSERT_TRUE(endless);
    EXPECT_EQ(readToEnd(endless.value().get(), 1 << 20).code(), EFBIG);

    auto missing = openFile(folder.file("missing"), O_RDONLY);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().text(), "open: No such file or directory");
}

TEST(FileCalls, OpenForReadingTakesOnlyTheKindsAsked)
{
    ScratchFolder folder;
    writeFile(folder.file("plain"), "abc");
    for (auto kinds : {ReadableKinds::regularFiles, ReadableKinds::regularFilesAndFifos}) {
        auto plain = openForReading(folder.file("plain"), kinds);
        ASSERT_TRUE(plain) << plain.error().text();
        EXPECT_EQ(readToEnd(plain.value().get(), 100).value(), "abc");
    }
    auto folderRead = openForReading(folder.path, ReadableKinds::regularFilesAndFifos);
    EXPECT_EQ(folderRead.code(), EISDIR);
    EXPECT_EQ(folderRead.error().text(), "open: a folder, not a regular file or a FIFO");
    EXPECT_EQ(openForReading("/dev/zero", ReadableKinds::regularFiles).error().text(),
        "open: a character device, not a regular file");
    EXPECT_EQ(openForReading(folder.file("missing"), ReadableKinds::regularFiles).code(), ENOENT);

    // A refused FIFO answers at once; an accepted one waits for its writer and reads what it wrote.
    const std::string fifo = folder.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(openForReading(fifo, ReadableKinds::regularFiles).error().text(), "open: a FIFO, not a regular file");
    std::thread writer([&] {
        auto end = openFile(fifo, O_WRONLY);
        ASSERT_TRUE(end);
        ::usleep(20000); // the reader is past its open and reading before anything arrives
        ASSERT_TRUE(writeAll(end.value().get(), {reinterpret_cast<const uint8_t*>("piped"), 5}));
    });
    auto piped = openForReading(fifo, ReadableKinds::regularFilesAndFifos);
    ASSERT_TRUE(piped) << piped.error().text();
    EXPECT_EQ(readToEnd(piped.value().get(), 100).value(), "piped");
    writer.join();
}

TEST(FileCalls, RenameReplacesTheTarget)
{
    ScratchFolder folder;
    writeFile(folder.file("new"), "new");
    writeFile(folder.file("old"), "old");
    ASSERT_TRUE(renameFile(folder.file("new"), folder.file("old")));
    auto file = openFile(folder.file("old"), O_RDONLY);
    EXPECT_EQ(readToEnd(file.value().get(), 100).value(), "new");
    EXPECT_EQ(pathStatus(folder.file("new")).code(), ENOENT);
    EXPECT_EQ(renameFile(folder.file("new"), folder.file("old")).error().text(), "rename: No such file or directory");
}

TEST(FileCalls, LockIsHeldByOneOwnerAndFreedWithIt)
{
    ScratchFolder folder;
    const std::string path = folder.file("name.lock");
    {
        auto first = lockFileExclusively(path, 0600);
        ASSERT_TRUE(first) << first.error().text();
        auto second = lockFileExclusively(path, 0600);
        ASSERT_FALSE(second);
        EXPECT_EQ(second.code(), EWOULDBLOCK);
        EXPECT_THAT(second.error().text(), HasSubstr("flock"));
    }
    EXPECT_TRUE(lockFileExclusively(path, 0600));
    // A link in the lock's place is never followed.
    ASSERT_TRUE(removeFile(path));
    ASSERT_EQ(::symlink(folder.file("elsewhere").c_str(), path.c_str()), 0);
    EXPECT_EQ(lockFileExclusively(path, 0600).code(), ELOOP);
}

TEST(FileCalls, DirectoryStatusRefusesLinksAndFiles)
{
    ScratchFolder folder;
    ASSERT_TRUE(makeDirectory(folder.file("dir"), 0700));
    ASSERT_TRUE(makeDirectory(folder.file("dir"), 0700)); // already there
    ASSERT_TRUE(directoryStatus(folder.file("dir")));
    ASSERT_EQ(::symlink(folder.file("dir").c_str(), folder.file("link").c_str()), 0);
    EXPECT_FALSE(directoryStatus(folder.file("link")));
    writeFile(folder.file("file"), "x");
    EXPECT_EQ(directoryStatus(folder.file("file")).code(), ENOTDIR);
}

TEST(FileCalls, FolderEntriesModificationTimesAndLinks)
{
    ScratchFolder folder;
    writeFile(folder.file("a"), "a");
    ASSERT_EQ(::mkdir(folder.file("b").c_str(), 0700), 0);
    ASSERT_EQ(::symlink("a", folder.file("link").c_str()), 0);
    auto entries = directoryEntries(folder.path);
    ASSERT_TRUE(entries) << entries.error().text();
    EXPECT_THAT(entries.value(), testing::UnorderedElementsAre("a", "b", "link"));
    EXPECT_EQ(directoryEntries(folder.file("a")).code(), ENOTDIR);

    const timespec times[2] = {{0, UTIME_OMIT}, {1700000000, 987654321}};
    ASSERT_EQ(::utimensat(AT_FDCWD, folder.file("a").c_str(), times, 0), 0);
    auto modified = modificationTime(folder.file("link")); // the link is followed
    ASSERT_TRUE(modified);
    EXPECT_EQ(modified.value().tv_sec, 1700000000);
    EXPECT_EQ(modified.value().tv_nsec, 987654321);
    EXPECT_EQ(modificationTime(folder.file("missing")).code(), ENOENT);

    auto target = symbolicLinkTarget(folder.file("link"));
    ASSERT_TRUE(target);
    EXPECT_EQ(target.value(), "a");
    EXPECT_EQ(symbolicLinkTarget(folder.file("a")).code(), EINVAL);
    const std::string longName(300, 'n');
    ASSERT_EQ(::symlink(longName.c_str(), folder.file("long").c_str()), 0);
    EXPECT_EQ(symbolicLinkTarget(folder.file("long")).value(), longName);
}

TEST(ProcessCalls, TheExecutableAndTheLibraryAreFound)
{
    auto executable = executablePath();
    ASSERT_TRUE(executable);
    EXPECT_TRUE(executable.value().ends_with("/SystemTests"));
    auto library = loadedObjectPath(reinterpret_cast<const void*>(&executablePath));
    ASSERT_TRUE(library);
    EXPECT_THAT(library.value(), HasSubstr("libZonCommon.so"));
}

TEST(ProcessCalls, SpawnPassesArgumentsAsTheyAreAndNoOtherDescriptors)
{
    ScratchFolder folder;
    int inherited[2];
    ASSERT_EQ(::pipe(inherited), 0); // left open across exec on purpose
    const std::string out = folder.file("out");
    const std::string script = "printf '%s|' \"$@\" > " + out + "; ls /proc/self/fd | wc -l >> " + out;
    auto child = spawnProcess({"sh", "-c", script, "sh", "a b", "$HOME", "*", ""});
    ::close(inherited[0]);
    ::close(inherited[1]);
    ASSERT_TRUE(child) << child.error().text();
    auto status = waitForProcess(child.value());
    ASSERT_TRUE(status);
    EXPECT_TRUE(WIFEXITED(status.value()) && WEXITSTATUS(status.value()) == 0);
    std::string text;
    std::getline(std::ifstream(out), text);
    EXPECT_EQ(text, "a b|$HOME|*||4"); // stdin, stdout, stderr and the one ls opens
    EXPECT_EQ(waitForProcess(child.value()).code(), ECHILD);

    auto missing = spawnProcess({"/nonexistent/program"});
    EXPECT_EQ(missing.code(), ENOENT);
    EXPECT_EQ(spawnProcess({}).code(), EINVAL);
}

TEST(ProcessCalls, ConfinedSpawnKeepsOnlyTheGivenDescriptorsAndReportsWhatFailedBeforeExec)
{
    ScratchFolder folder;
    int inherited[2];
    ASSERT_EQ(::pipe(inherited), 0); // left open across exec on purpose
    const std::string out = folder.file("out");
    // A blocked signal and an ignored SIGPIPE in the parent do not reach the child.
    const std::string script = "{ ls /proc/self/fd | wc -l; pwd; grep -E '^Sig(Blk|Ign)' /proc/self/status; } > " + out;
    sigset_t blocked, before;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGUSR2);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    auto* const previousPipeAction = ::signal(SIGPIPE, SIG_IGN);
    auto child = spawnConfinedProcess({"/bin/sh", "-c", script}, {}, {folder.path, 0, 0, false});
    ::signal(SIGPIPE, previousPipeAction);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::close(inherited[0]);
    ::close(inherited[1]);
    ASSERT_TRUE(child) << child.error().text();
    auto status = waitForProcess(child.value());
    ASSERT_TRUE(status && WIFEXITED(status.value()) && WEXITSTATUS(status.value()) == 0);
    std::ifstream written(out);
    std::string descriptors, workingFolder;
    std::getline(written, descriptors);
    std::getline(written, workingFolder);
    EXPECT_EQ(descriptors, "4"); // stdin, stdout, stderr and the one ls opens
    EXPECT_EQ(workingFolder, folder.path);
    std::string blockedLine, ignoredLine;
    std::getline(written, blockedLine);
    std::getline(written, ignoredLine);
    EXPECT_EQ(blockedLine, "SigBlk:\t0000000000000000");
    EXPECT_EQ(ignoredLine.find("SigIgn:"), 0u);
    EXPECT_EQ(std::stoull(ignoredLine.substr(8), nullptr, 16) & (1ull << (SIGPIPE - 1)), 0u);

    EXPECT_EQ(spawnConfinedProcess({"/nonexistent/program"}, {}, {}).code(), ENOENT);
    EXPECT_EQ(spawnConfinedProcess({"/bin/true"}, {}, {folder.file("missing"), 0, 0, false}).code(), ENOENT) << "chdir";
    EXPECT_EQ(spawnConfinedProcess({}, {}, {}).code(), EINVAL);
}

TEST(SocketCalls, ListenConnectAcceptAndSendThroughAFullSocket)
{
    ScratchFolder folder;
    const std::string path = folder.file("sock");
    auto listener = listenOnLocalSocket(path, 0600, 4);
    ASSERT_TRUE(listener) << listener.error().text();
    EXPECT_EQ(acceptConnection(listener.value().get()).code(), EAGAIN);
    EXPECT_EQ(listenOnLocalSocket(path, 0600, 4).error().call, "bind");
    EXPECT_EQ(listenOnLocalSocket(folder.file(std::string(200, 'x').c_str()), 0600, 4).code(), ENAMETOOLONG);

    auto client = connectToLocalSocket(path, std::chrono::seconds(1));
    ASSERT_TRUE(client) << client.error().text();
    auto server = acceptConnection(listener.value().get());
    ASSERT_TRUE(server);
    auto peer = peerCredentials(server.value().get());
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer.value().uid, ::geteuid());
    EXPECT_EQ(peer.value().pid, ::getpid());

    // Non-blocking sends fill the socket and then answer 0, never block.
    std::string chunk(64 * 1024, 'z');
    iovec part {chunk.data(), chunk.size()};
    size_t sent = 0;
    for (int i = 0; i < 1000; ++i) {
        auto n = sendParts(client.value().get(), {&part, 1});
        ASSERT_TRUE(n);
        if (n.value() == 0)
            break;
        sent += n.value();
    }
    EXPECT_GT(sent, 0u);
    EXPECT_EQ(sendParts(client.value().get(), {&part, 1}).value(), 0u);
    EXPECT_FALSE(waitUntilWritable(client.value().get(), std::chrono::milliseconds(1)).value());

    // A peer that went away is an error, not a signal.
    server.value().reset();
    auto broken = sendParts(client.value().get(), {&part, 1});
    for (int i = 0; i < 100 && broken && broken.value() > 0; ++i)
        broken = sendParts(client.value().get(), {&part, 1});
    ASSERT_FALSE(broken);
    EXPECT_EQ(broken.code(), EPIPE);
    EXPECT_EQ(connectToLocalSocket(folder.file("nobody"), std::chrono::seconds(1)).code(), ENOENT);
}

TEST(EventCalls, CounterWakesAnEpollSetUntilDrained)
{
    auto epoll = createEpoll();
    auto counter = createEventCounter();
    ASSERT_TRUE(epoll && counter);
    ASSERT_TRUE(epollAdd(epoll.value().get(), counter.value().get(), EPOLLIN, 42));
    epoll_event events[4];
    EXPECT_EQ(epollWait(epoll.value().get(), events, std::chrono::milliseconds(0)).value(), 0u);
    signalEventCounter(counter.value().get());
    signalEventCounter(counter.value().get());
    ASSERT_EQ(epollWait(epoll.value().get(), events, std::chrono::milliseconds(0)).value(), 1u);
    EXPECT_EQ(events[0].data.u64, 42u);
    drainEventCounter(counter.value().get());
    EXPECT_EQ(epollWait(epoll.value().get(), events, std::chrono::milliseconds(0)).value(), 0u);
    EXPECT_TRUE(epollRemove(epoll.value().get(), counter.value().get()));
    EXPECT_EQ(epollRemove(epoll.value().get(), counter.value().get()).code(), ENOENT);
}
