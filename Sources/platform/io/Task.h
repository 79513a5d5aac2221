#pragma once

#include "platform/runtime/Object.h"

#include <sys/types.h>

namespace zon {

class Array;
class String;

// Why a task ended.
enum TaskTerminationReason : long {
    NSTaskTerminationReasonExit = 1,
    NSTaskTerminationReasonUncaughtSignal = 2,
};

// A program run as a child process: set its launch path, arguments and standard streams, launch
// it, wait for it, read how it ended. Run-time class NSTask.
//
// The program is started with posix_spawn, no shell between, with the parent's environment; it
// gets the standard streams it is given (a Pipe or a FileHandle; the parent's otherwise) and no
// other descriptor. After the launch the task closes the parent's copy of each pipe end it handed
// to the child, so reading a standard-output pipe ends when the program (and whatever it started)
// stops writing. Waiting reaps this task's own child and no other process. A task that is
// released before it was waited for is reaped in the background, so it never stays a zombie. One
// thread at a time uses a task.
//
// Faults raise NSInvalidArgumentException, as the platform's task does: a launch path that is not
// an executable file "launch path not accessible", a second launch "task already launched",
// waiting for or asking the status of a task never launched "task not launched", the status of
// one still running "task still running", a stream that is neither a pipe nor a file handle "standard
// stream must be a pipe or a file handle", an argument that is not a string "arguments must be strings".
class ZON_EXPORT Task final : public Object {
    ZON_OBJECT(Task, Object)
public:
    static Ref<Task> init();

    String* launchPath() const { return launchPath_.get(); }
    void setLaunchPath(const String* path);
    Array* arguments() const { return arguments_.get(); }
    void setArguments(const Array* arguments);
    Object* standardInput() const { return standardInput_.get(); }
    void setStandardInput(Object* pipeOrFileHandle);
    Object* standardOutput() const { return standardOutput_.get(); }
    void setStandardOutput(Object* pipeOrFileHandle);

    void launch();
    // Blocks until the program has ended; at once when it already has.
    void waitUntilExit();
    // Launched and not yet ended (an ended child is reaped by asking).
    bool isRunning();
    // The child's pid once launched, 0 before.
    pid_t processIdentifier() const { return pid_; }
    // The exit status, or the number of the signal that ended the program.
    int terminationStatus();
    TaskTerminationReason terminationReason();

protected:
    ~Task() override;

private:
    Task() = default;
    void requireLaunched() const;
    void requireEnded();
    void recordEnd(int waitStatus);

    Ref<String> launchPath_;
    Ref<Array> arguments_;
    Ref<Object> standardInput_;
    Ref<Object> standardOutput_;
    pid_t pid_ = 0;
    bool ended_ = false;
    int waitStatus_ = 0;
};

} // namespace zon
