#include "platform/io/Task.h"

#include "platform/io/FileHandle.h"
#include "platform/io/Pipe.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessCallsInternal.h"
#include "platform/values/Array.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <string>
#include <sys/wait.h>
#include <vector>

namespace zon {

ZON_DEFINE_CLASS(Task, "NSTask")

namespace {

[[noreturn]] void raiseInvalidArgument(const char* reason) { raisePlatformException(NSInvalidArgumentException, reason); }

Ref<Object> checkedStream(Object* pipeOrFileHandle)
{
    if (pipeOrFileHandle && !dynamicCast<Pipe>(pipeOrFileHandle) && !dynamicCast<FileHandle>(pipeOrFileHandle))
        raiseInvalidArgument("standard stream must be a pipe or a file handle");
    return Ref<Object>(pipeOrFileHandle);
}

// Which end of a stream the child gets: a pipe's reading end for input, its writing end for output.
enum class StreamDirection { input, output };

FileHandle* childEnd(Object* stream, StreamDirection direction)
{
    if (Pipe* pipe = dynamicCast<Pipe>(stream))
        return direction == StreamDirection::input ? pipe->fileHandleForReading() : pipe->fileHandleForWriting();
    return dynamicCast<FileHandle>(stream);
}

int childDescriptor(Object* stream, StreamDirection direction)
{
    FileHandle* handle = childEnd(stream, direction);
    return handle ? handle->fileDescriptor() : -1;
}

// The child holds its copy of a pipe end now; the parent's would keep the pipe open for ever.
void closeParentCopy(Object* stream, StreamDirection direction)
{
    if (dynamicCast<Pipe>(stream))
        childEnd(stream, direction)->closeFile();
}

} // namespace

Ref<Task> Task::init() { return makeObject<Task>(); }

Task::~Task()
{
    if (pid_ > 0 && !ended_)
        reapWhenDone(pid_);
}

void Task::setLaunchPath(const String* path) { launchPath_ = path ? String::stringWithString(path) : nullptr; }

void Task::setArguments(const Array* arguments)
{
    if (arguments)
        for (Object* argument : *arguments)
            if (!dynamicCast<String>(argument))
                raiseInvalidArgument("arguments must be strings");
    arguments_ = arguments ? Array::arrayWithArray(arguments) : nullptr;
}

void Task::setStandardInput(Object* pipeOrFileHandle) { standardInput_ = checkedStream(pipeOrFileHandle); }
void Task::setStandardOutput(Object* pipeOrFileHandle) { standardOutput_ = checkedStream(pipeOrFileHandle); }

void Task::launch()
{
    if (pid_ > 0)
        raiseInvalidArgument("task already launched");
    const std::string path = launchPath_ ? launchPath_->UTF8String() : std::string();
    if (path.empty() || !isExecutableFile(path))
        raiseInvalidArgument("launch path not accessible");
    std::vector<std::string> command {path};
    if (arguments_)
        for (Object* argument : *arguments_)
            command.push_back(static_cast<String*>(argument)->UTF8String());

    StandardStreams streams;
    streams.input = childDescriptor(standardInput_.get(), StreamDirection::input);
    streams.output = childDescriptor(standardOutput_.get(), StreamDirection::output);
    auto child = spawnProcess(command, ProgramLookup::exactPath, streams);
    if (!child) {
        // The file can change between the check and the exec.
        const int code = child.code();
        if (code == ENOENT || code == EACCES || code == ENOEXEC || code == ENOTDIR)
            raiseInvalidArgument("launch path not accessible");
        raisePlatformException(NSInternalInconsistencyException, "Couldn't posix_spawn: " + child.error().text());
    }
    pid_ = child.value();
    closeParentCopy(standardInput_.get(), StreamDirection::input);
    closeParentCopy(standardOutput_.get(), StreamDirection::output);
}

void Task::requireLaunched() const
{
    if (pid_ <= 0)
        raiseInvalidArgument("task not launched");
}

void Task::recordEnd(int waitStatus)
{
    ended_ = true;
    waitStatus_ = waitStatus;
}

void Task::waitUntilExit()
{
    requireLaunched();
    if (ended_)
        return;
    auto status = waitForProcess(pid_);
    if (!status)
        raisePlatformException(NSInternalInconsistencyException, "Couldn't wait for the task: " + status.error().text());
    recordEnd(status.value());
}

bool Task::isRunning()
{
    if (pid_ <= 0 || ended_)
        return false;
    auto status = reapIfEnded(pid_);
    if (!status)
        recordEnd(0); // taken by someone else (SIGCHLD ignored, a wait for any child): it has ended
    else if (status.value())
        recordEnd(*status.value());
    return !ended_;
}

void Task::requireEnded()
{
    requireLaunched();
    if (isRunning())
        raiseInvalidArgument("task still running");
}

int Task::terminationStatus()
{
    requireEnded();
    return WIFSIGNALED(waitStatus_) ? WTERMSIG(waitStatus_) : WEXITSTATUS(waitStatus_);
}

TaskTerminationReason Task::terminationReason()
{
    requireEnded();
    return WIFSIGNALED(waitStatus_) ? NSTaskTerminationReasonUncaughtSignal : NSTaskTerminationReasonExit;
}

} // namespace zon
