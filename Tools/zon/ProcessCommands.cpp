#include "CommandSupport.h"
#include "Commands.h"

#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "systemManagement/processManagement/TXZonProcess.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <map>

namespace zon::tool {
namespace {

const char* stateName(int32_t state)
{
    switch (state) {
    case TXZonProcessStateNotFound: return "not-found";
    case TXZonProcessStateZombie: return "zombie";
    case TXZonProcessStateRunning: return "running";
    case TXZonProcessStateSleeping: return "sleeping";
    case TXZonProcessStateStopped: return "stopped";
    default: return "unknown";
    }
}

std::string text(const String* value) { return value ? printable(*value) : std::string("-"); }

// One line per process: pid, state, kernel name, full name, path and arguments; the environment
// follows on indented lines when asked for.
void printProcess(const TXZonProcess& process, bool withEnvironment)
{
    const int32_t state = process.state();
    std::string arguments;
    if (Array* all = process.arguments())
        for (Object* argument : *all)
            arguments += ' ' + text(static_cast<String*>(argument));
    std::printf("%7d %d %-9s %-16s %-24s %s%s\n", process.pid(), state, stateName(state), text(process.name()).c_str(),
        text(process.fullname().get()).c_str(), text(process.path()).c_str(), arguments.c_str());
    if (!withEnvironment)
        return;
    if (Dictionary* environment = process.environment()) {
        Ref<Array> keys = environment->allKeys();
        for (Object* key : *keys)
            std::printf("        %s=%s\n", text(static_cast<String*>(key)).c_str(),
                text(environment->objectForKey<String>(key)).c_str());
    }
}

struct ListOptions {
    std::string name;
    int32_t pid = 0;
    std::string bundleID;
    bool environment = false;
    bool duplicates = false;
};

void listProcesses(const ListOptions& options)
{
    Ref<Array> processes;
    if (!options.name.empty())
        processes = TXZonProcess::processesForName(String::stringWithUTF8String(options.name).get());
    else if (options.pid > 0) {
        Ref<TXZonProcess> process = TXZonProcess::processForPid(options.pid);
        if (!process)
            fail("no process with pid " + std::to_string(options.pid));
        processes = Array::arrayWithObject(process.get());
    } else if (!options.bundleID.empty()) {
        Ref<TXZonProcess> process = TXZonProcess::processForBundleID(String::stringWithUTF8String(options.bundleID).get());
        if (!process)
            fail("no process with bundle identifier " + options.bundleID);
        processes = Array::arrayWithObject(process.get());
    } else if (options.duplicates)
        processes = TXZonProcess::duplicateProcesses();
    else
        processes = TXZonProcess::allRunningProcesses();
    std::printf("%7s %s %-9s %-16s %-24s %s\n", "PID", "S", "STATE", "NAME", "FULLNAME", "PATH ARGUMENTS");
    for (Object* process : *processes)
        printProcess(*static_cast<TXZonProcess*>(process), options.environment);
}

const std::map<std::string, bool (TXZonProcess::*)() const> kSignalActions {
    {"suspend", &TXZonProcess::suspend},
    {"resume", &TXZonProcess::resume},
    {"interrupt", &TXZonProcess::interrupt},
    {"terminate", &TXZonProcess::terminate},
    {"kill", &TXZonProcess::kill},
};

void signalProcess(int32_t pid, const std::string& action)
{
    Ref<TXZonProcess> process = TXZonProcess::processForPid(pid);
    if (!process)
        fail("no process with pid " + std::to_string(pid));
    if (!(process.get()->*kSignalActions.at(action))())
        fail(action + " of " + process->description()->UTF8String() + " was refused");
    std::printf("%s: %s\n", action.c_str(), process->description()->UTF8String().c_str());
}

} // namespace

void addProcessCommands(CLI::App& app)
{
    auto* ps = app.add_subcommand("ps", "the running processes as the library sees them");
    auto options = std::make_shared<ListOptions>();
    auto* name = ps->add_option("--name", options->name, "only processes with this full name or kernel name")
                     ->check(validUTF8());
    auto* pidOption = ps->add_option("--pid", options->pid, "only the process with this id")->check(wholeNumberFrom(1, INT32_MAX))->excludes(name);
    ps->add_option("--bundle-id", options->bundleID, "only the first process whose application bundle has this identifier")
        ->check(validUTF8())
        ->excludes(name)
        ->excludes(pidOption);
    ps->add_flag("--env", options->environment, "print each process's environment too");
    ps->add_flag("--duplicates", options->duplicates, "only other instances of this program");
    ps->callback([options] { listProcesses(*options); });

    auto* signal = app.add_subcommand("signal", "send a process a signal: suspend, resume, interrupt, terminate or kill");
    auto pid = std::make_shared<int32_t>();
    auto action = std::make_shared<std::string>();
    signal->add_option("PID", *pid, "the process id")->required()->check(wholeNumberFrom(1, INT32_MAX));
    signal->add_option("ACTION", *action, "what to send")->required()->check(CLI::IsMember({"suspend", "resume", "interrupt", "terminate", "kill"}));
    signal->callback([pid, action] { signalProcess(*pid, *action); });
}

} // namespace zon::tool
