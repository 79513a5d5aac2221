#include "systemManagement/processManagement/TXZonDaemonHelper.h"

#include "platform/io/FileHandle.h"
#include "platform/io/Pipe.h"
#include "platform/io/Task.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(TXZonDaemonHelper, "TXZonDaemonHelper")

ZON_STRING_CONSTANT(TXLaunchCtlPath, "/bin/launchctl");
ZON_STRING_CONSTANT(TXLaunchCtlArgLoad, "load");
ZON_STRING_CONSTANT(TXLaunchCtlArgUnload, "unload");
ZON_STRING_CONSTANT(TXLaunchCtlArgList, "list");
ZON_STRING_CONSTANT(TXGrepPath, "/usr/bin/grep");

ZON_STRING_CONSTANT(TXSystemCtlPath, "/usr/bin/systemctl");
ZON_STRING_CONSTANT(TXSystemCtlArgUser, "--user");
ZON_STRING_CONSTANT(TXSystemCtlArgLoad, "enable");
ZON_STRING_CONSTANT(TXSystemCtlArgUnload, "disable");
ZON_STRING_CONSTANT(TXSystemCtlArgNow, "--now");
ZON_STRING_CONSTANT(TXSystemCtlArgList, "list-units");
ZON_STRING_CONSTANT(TXSystemCtlArgAll, "--all");
ZON_STRING_CONSTANT(TXSystemCtlArgFull, "--full");
ZON_STRING_CONSTANT(TXSystemCtlArgPlain, "--plain");
ZON_STRING_CONSTANT(TXSystemCtlArgNoLegend, "--no-legend");
ZON_STRING_CONSTANT(TXSystemCtlArgNoPager, "--no-pager");

namespace {

// Both pipes of the helper are read only after their writer has exited, so a writer must be able
// to leave everything in the pipe: 1 MiB holds about 8,000 lines of the listing, far more units
// than a user manager has.
constexpr size_t kListingPipeCapacity = 1024 * 1024;

// Runs the tool and waits for it; its exit status does not matter.
void runToEnd(const String* path, Ref<Array> arguments, Pipe* input, Pipe* output)
{
    Ref<Task> task = Task::init();
    task->setLaunchPath(path);
    task->setArguments(arguments.get());
    task->setStandardInput(input);
    task->setStandardOutput(output);
    task->launch();
    task->waitUntilExit();
}

// `--user VERB --now PATH`; a nil path ends the list early, as a nil-terminated list does.
Ref<Array> unitFileCommand(String* verb, const String* path)
{
    Ref<MutableArray> arguments = MutableArray::arrayWithObjects({TXSystemCtlArgUser, verb, TXSystemCtlArgNow});
    if (path)
        arguments->addObject(const_cast<String*>(path));
    return arguments;
}

} // namespace

TXZonDaemonHelper::TXZonDaemonHelper(Ref<String> systemCtlPath, Ref<String> grepPath)
    : systemCtlPath_(std::move(systemCtlPath))
    , grepPath_(std::move(grepPath))
{
}

Ref<TXZonDaemonHelper> TXZonDaemonHelper::init()
{
    return makeObject<TXZonDaemonHelper>(Ref<String>(TXSystemCtlPath), Ref<String>(TXGrepPath));
}

Ref<TXZonDaemonHelper> TXZonDaemonHelper::initWithSystemCtlPath_grepPath(const String* systemCtlPath,
    const String* grepPath)
{
    return makeObject<TXZonDaemonHelper>(String::stringWithString(systemCtlPath), String::stringWithString(grepPath));
}

bool TXZonDaemonHelper::isDaemonLoaded(const String* label) const
{
    Ref<Pipe> listing = Pipe::pipeHoldingAtLeast(kListingPipeCapacity);
    runToEnd(systemCtlPath_.get(),
        Array::arrayWithObjects({TXSystemCtlArgUser, TXSystemCtlArgList, TXSystemCtlArgAll, TXSystemCtlArgFull,
            TXSystemCtlArgPlain, TXSystemCtlArgNoLegend, TXSystemCtlArgNoPager}),
        nullptr, listing.get());
    Ref<String> found = findDaemonInOuput_withInputPipe(label, listing.get());
    return found && found->length() > 0;
}

Ref<String> TXZonDaemonHelper::findDaemonInOuput_withInputPipe(const String* search, Pipe* pipe) const
{
    Ref<Pipe> matches = Pipe::pipeHoldingAtLeast(kListingPipeCapacity);
    // A nil search gives grep no pattern: it fails and prints nothing.
    runToEnd(grepPath_.get(), search ? Array::arrayWithObject(const_cast<String*>(search)) : Array::array(), pipe,
        matches.get());
    Ref<Data> output = matches->fileHandleForReading()->readDataToEndOfFile();
    return String::initWithBytes_length_encoding(output->bytes(), output->length(), NSUTF8StringEncoding);
}

bool TXZonDaemonHelper::restartDaemon(const String* path) const
{
    runToEnd(systemCtlPath_.get(), unitFileCommand(TXSystemCtlArgUnload, path), nullptr, nullptr);
    runToEnd(systemCtlPath_.get(), unitFileCommand(TXSystemCtlArgLoad, path), nullptr, nullptr);
    return true;
}

} // namespace zon
