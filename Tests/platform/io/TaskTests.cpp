#include "platform/io/FileHandle.h"
#include "platform/io/Pipe.h"
#include "platform/io/Task.h"
#include "platform/system/ProcessCallsInternal.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "support/Raised.h"
#include "support/ScratchFolder.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <initializer_list>
#include <string>
#include <thread>

using namespace zon;
using namespace zon::test;

namespace {

Ref<Array> strings(std::initializer_list<const char*> texts)
{
    Ref<MutableArray> array = MutableArray::array();
    for (const char* text : texts)
        array->addObject(str(text).get());
    return array;
}

// A task of `sh -c script` with the extra arguments, its output to pipe when one is given.
Ref<Task> shellTask(const char* script, std::initializer_list<const char*> extra = {}, Pipe* output = nullptr)
{
    Ref<MutableArray> arguments = MutableArray::arrayWithObjects({str("-c").get(), str(script).get()});
    for (const char* argument : extra)
        arguments->addObject(str(argument).get());
    Ref<Task> task = Task::init();
    task->setLaunchPath(str("/bin/sh").get());
    task->setArguments(arguments.get());
    task->setStandardOutput(output);
    return task;
}

std::string readAll(Pipe* pipe) { return textOf(pipe->fileHandleForReading()->readDataToEndOfFile().get()); }

} // namespace

TEST(Task, ArgumentsReachTheProgramAsTheyAreAndItsOutputComesThroughAPipe)
{
    Ref<Pipe> output = Pipe::pipe();
    Ref<Task> task = shellTask("printf '[%s]' \"$0\" \"$@\"", {"name", "a b", "", "$(x)*"}, output.get());
    task->launch();
    EXPECT_GT(task->processIdentifier(), 0);
    task->waitUntilExit();
    // The writing end was closed in the parent at launch, so the read ends with the program.
    EXPECT_EQ(readAll(output.get()), "[name][a b][][$(x)*]");
    EXPECT_EQ(task->terminationStatus(), 0);
    EXPECT_EQ(task->terminationReason(), NSTaskTerminationReasonExit);
}

TEST(Task, StandardInputComesFromAPipeWrittenThroughItsHandle)
{
    Ref<Pipe> input = Pipe::pipe();
    Ref<Pipe> output = Pipe::pipe();
    input->fileHandleForWriting()->writeData(dataOf("one\ntwo\n").get());
    input->fileHandleForWriting()->closeFile();
    Ref<Task> task = Task::init();
    task->setLaunchPath(str("/usr/bin/grep").get());
    task->setArguments(strings({"t.o"}).get());
    task->setStandardInput(input.get());
    task->setStandardOutput(output.get());
    task->launch();
    task->waitUntilExit();
    EXPECT_EQ(readAll(output.get()), "two\n");
}

TEST(Task, AListingUpToTheRaisedPipeSizeIsReadAfterTheToolExits)
{
    constexpr size_t kListing = 1024 * 1024; // 16 times what a pipe holds by default
    Ref<Pipe> output = Pipe::pipeHoldingAtLeast(kListing);
    ASSERT_GE(::fcntl(output->fileHandleForReading()->fileDescriptor(), F_GETPIPE_SZ), int(kListing));
    Ref<Task> task = shellTask("head -c 1048576 /dev/zero", {}, output.get());
    task->launch();
    task->waitUntilExit(); // would never return if the writer blocked on a full pipe
    EXPECT_EQ(readAll(output.get()).size(), kListing);
}

TEST(Task, AListingOfSeveralMiBReadWhileTheToolRunsArrivesWhole)
{
    Ref<Pipe> output = Pipe::pipe();
    Ref<Task> task = shellTask("head -c 6000000 /dev/zero", {}, output.get());
    task->launch();
    const std::string listing = readAll(output.get());
    task->waitUntilExit();
    EXPECT_EQ(listing.size(), 6000000u);
    EXPECT_EQ(task->terminationStatus(), 0);
}

TEST(Task, TerminationStatusIsTheExitCodeOrTheSignal)
{
    Ref<Task> exits = shellTask("exit 7");
    exits->launch();
    exits->waitUntilExit();
    EXPECT_EQ(exits->terminationStatus(), 7);
    EXPECT_EQ(exits->terminationReason(), NSTaskTerminationReasonExit);
    exits->waitUntilExit(); // a second wait returns at once
    EXPECT_FALSE(exits->isRunning());

    Ref<Task> killed = shellTask("sleep 30");
    killed->launch();
    EXPECT_TRUE(killed->isRunning());
    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { killed->terminationStatus(); }), "task still running");
    ::kill(killed->processIdentifier(), SIGTERM);
    killed->waitUntilExit();
    EXPECT_EQ(killed->terminationStatus(), SIGTERM);
    EXPECT_EQ(killed->terminationReason(), NSTaskTerminationReasonUncaughtSignal);
}

TEST(Task, FaultsRaiseInvalidArgument)
{
    ScratchFolder folder;
    const std::string notExecutable = folder.write("script", "#!/bin/sh\n");
    for (const std::string& path : {std::string(), folder.file("missing"), notExecutable, folder.path}) {
        Ref<Task> task = Task::init();
        if (!path.empty())
            task->setLaunchPath(str(path).get());
        EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { task->launch(); }), "launch path not accessible") << path;
        EXPECT_EQ(task->processIdentifier(), 0);
    }

    Ref<Task> task = shellTask("exit 0");
    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { task->waitUntilExit(); }), "task not launched");
    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { task->terminationStatus(); }), "task not launched");
    task->launch();
    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { task->launch(); }), "task already launched");
    task->waitUntilExit();

    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { task->setStandardOutput(str("x").get()); }),
        "standard stream must be a pipe or a file handle");
    Ref<Array> mixed = Array::arrayWithObjects({str("a").get(), Data::data().get()});
    EXPECT_EQ(raisedReason(NSInvalidArgumentException, [&] { task->setArguments(mixed.get()); }),
        "arguments must be strings");
}

TEST(Task, TheProgramGetsNoDescriptorBeyondItsStandardStreams)
{
    const int leaked = ::open("/dev/null", O_RDONLY); // not closed on exec
    ASSERT_GE(leaked, 3);
    Ref<Pipe> output = Pipe::pipe();
    const std::string probe = "test -e /proc/$$/fd/" + std::to_string(leaked) + " && echo open || echo closed";
    Ref<Task> task = shellTask(probe.c_str(), {}, output.get());
    task->launch();
    task->waitUntilExit();
    ::close(leaked);
    EXPECT_EQ(readAll(output.get()), "closed\n");
}

TEST(Task, WaitingReapsTheTaskOnlyAndNotOtherChildren)
{
    auto other = spawnProcess({"/bin/true"});
    ASSERT_TRUE(other);
    // Let the other child end first, so that a wait for any child would take it.
    for (siginfo_t info {}; info.si_pid == 0; std::this_thread::sleep_for(std::chrono::milliseconds(1)))
        ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(other.value()), &info, WEXITED | WNOWAIT | WNOHANG), 0);
    Ref<Task> task = shellTask("exit 3");
    task->launch();
    task->waitUntilExit();
    EXPECT_EQ(task->terminationStatus(), 3);
    int status = -1;
    EXPECT_EQ(::waitpid(other.value(), &status, WNOHANG), other.value()) << "the other child was reaped by the task";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}
