#pragma once

#include "platform/runtime/Object.h"

#include <cstdint>

namespace zon {

class Array;
class Bundle;
class Dictionary;
class Image;

// The run state a process's state() answers.
enum TXZonProcessState : int32_t {
    TXZonProcessStateUnknown = 0,
    TXZonProcessStateNotFound = 1,
    TXZonProcessStateZombie = 2,
    TXZonProcessStateRunning = 3,
    TXZonProcessStateSleeping = 4,
    TXZonProcessStateStopped = 5,
};

// A snapshot of one running process of the machine: its kernel name, id, executable path,
// arguments and environment, taken from /proc when the object is made and never refreshed. Only
// the run state is asked of the kernel on each call.
//
// The information dictionary holds "ProcessName" (string), "ProcessPID" (unsigned number),
// "ProcessPath" (string, only when a file exists there), "ProcessEnvironment" (string to string)
// and "ProcessArguments" (array of strings). A process whose executable link or environment
// cannot be read (another user's process, a kernel thread, a zombie) keeps its name and id only.
//
// Class operations list afresh on every call; nothing is cached. Instances are immutable and may
// be used from any thread.
class ZON_EXPORT TXZonProcess final : public Object {
    ZON_OBJECT(TXZonProcess, Object)
public:
    // One process per entry of the process table, in ascending pid order.
    static Ref<Array> allRunningProcesses();
    static Ref<TXZonProcess> currentProcess();
    // Every process whose fullname, or else name, equals name.
    static Ref<Array> processesForName(const String* name);
    static Ref<TXZonProcess> processForName(const String* name);
    static Ref<TXZonProcess> processForPid(int32_t pid);
    // The first process whose bundleID is bundleID.
    static Ref<TXZonProcess> processForBundleID(const String* bundleID);
    static bool processIsRunningWithFullname(const String* fullname);
    static bool processIsRunningWithBundleID(const String* bundleID);
    // True when more than one process has that fullname.
    static bool multipleProcessesAreRunningWithFullname(const String* fullname);
    // Every other process with this program's fullname, or else its path, or else its bundle
    // identifier, in listing order.
    static Ref<Array> duplicateProcesses();

    // Nil without a dictionary; otherwise a process with scanProcessDetails of it.
    static Ref<TXZonProcess> initWithProcessInformation(const Dictionary* information);
    // The dictionary completed with path, environment and arguments read now for its
    // "ProcessPID"; without those keys when the process cannot be read.
    Ref<Dictionary> scanProcessDetails(const Dictionary* information) const;

    Dictionary* processInformation() const { return processInformation_.get(); }
    String* name() const;
    int32_t pid() const;
    String* path() const;
    // The last component of path; name when there is no path.
    Ref<String> fullname() const;
    // X.app for an executable at X.app/<any>/MacOS/X; nil otherwise.
    Ref<String> bundlePath() const;
    // The bundle at bundlePath; nil without one.
    Ref<Bundle> bundle() const;
    // The CFBundleIdentifier of the bundle at bundlePath when that is a file package (an X.app
    // folder); nil otherwise.
    Ref<String> bundleID() const;
    Dictionary* environment() const;
    Array* arguments() const;
    // arguments without those that begin with "-psn"; nil when arguments is.
    Ref<Array> userArguments() const;
    // The image of the first ".icns" file, in name order, of the folder path + "Contents/Resources"
    // (the executable's path, not the bundle's, as the suite has always looked: so an ordinary
    // executable has no icon); nil when there is none or it is not an image.
    Ref<Image> icon() const;

    // Asked of the kernel now: TXZonProcessStateNotFound when /proc has no stat line for pid.
    int32_t state() const;
    // Signals this process through a process descriptor. False when it has gone, when its id now
    // belongs to a process that started after the snapshot, or when the kernel refuses.
    bool sendSignal(int signal) const;
    bool suspend() const;
    bool resume() const;
    bool interrupt() const;
    bool terminate() const;
    bool kill() const;

    // "fullname (pid)".
    Ref<String> description() const override;

private:
    TXZonProcess(Ref<Dictionary> information, uint64_t startTime);

    Ref<Dictionary> processInformation_;
    // When the process started, in clock ticks after boot (0: it could not be read). A signal
    // goes only to the process that started then.
    uint64_t startTime_;
};

} // namespace zon
