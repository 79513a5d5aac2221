#include "systemManagement/processManagement/TXZonProcess.h"

#include "platform/graphics/Image.h"
#include "platform/io/Bundle.h"
#include "platform/io/ProcessTableInternal.h"
#include "platform/io/Workspace.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessTableCallsInternal.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"
#include "systemManagement/processManagement/TXZonProcessArgumentAreaInternal.h"

#include <algorithm>
#include <csignal>
#include <string>

namespace zon {

ZON_DEFINE_CLASS(TXZonProcess, "TXZonProcess")

namespace {

String* const kNameKey = ZSTR("ProcessName");
String* const kPIDKey = ZSTR("ProcessPID");
String* const kPathKey = ZSTR("ProcessPath");
String* const kEnvironmentKey = ZSTR("ProcessEnvironment");
String* const kArgumentsKey = ZSTR("ProcessArguments");

// The kernel keeps 15 bytes of a name and may cut a UTF-8 sequence; each byte that does not
// decode becomes U+FFFD, so that no process goes missing for its name.
Ref<String> nameFromKernelBytes(std::string_view bytes)
{
    if (Ref<String> text = String::stringWithUTF8String(bytes))
        return text;
    std::u16string units;
    while (!bytes.empty()) {
        size_t valid = utf::offsetOfInvalidUTF8(bytes);
        units += String::stringWithUTF8String(bytes.substr(0, valid))->view();
        if (valid < bytes.size()) {
            units += u'\uFFFD';
            ++valid;
        }
        bytes.remove_prefix(valid);
    }
    return String::stringWithCharacters(units);
}

int32_t stateOfLetter(char letter)
{
    switch (letter) {
    case 'R': return TXZonProcessStateRunning;
    case 'S': case 'D': case 'I': return TXZonProcessStateSleeping;
    case 'T': case 't': return TXZonProcessStateStopped;
    case 'Z': return TXZonProcessStateZombie;
    default: return TXZonProcessStateUnknown;
    }
}

// Adds to entries (keys and values, alternating) what the record's argument area gives: the path
// when a file exists there, the environment and the arguments; nothing when it could not be read.
void appendAreaEntries(std::vector<Ref<Object>>& entries, const ProcessRecord* record, ProcessValueCache* cache = nullptr)
{
    if (!record || !record->hasArgumentArea)
        return;
    ProcessArgumentArea parsed = parseProcessArgumentArea(record->argumentAreaBytes(), cache);
    const bool exists = parsed.pathCandidate
        && (cache ? cache->fileExists(parsed.pathCandidate.get()) : fileExistsAtPath(parsed.pathCandidate.get()));
    if (exists) {
        entries.push_back(kPathKey);
        entries.push_back(std::move(parsed.pathCandidate));
    }
    entries.insert(entries.end(), {kEnvironmentKey, std::move(parsed.environment), kArgumentsKey, std::move(parsed.arguments)});
}

// The given information completed from the record; a key read replaces one the caller passed.
Ref<Dictionary> completedInformation(const Dictionary* information, const ProcessRecord* record)
{
    std::vector<Ref<Object>> entries;
    Ref<Array> keys = information->allKeys();
    for (Object* key : *keys) {
        entries.push_back(key);
        entries.push_back(information->objectForKey(key));
    }
    appendAreaEntries(entries, record);
    return Dictionary::dictionaryAdoptingKeysAndValues(entries);
}

int32_t pidIn(const Dictionary* information)
{
    const Number* pid = information ? information->objectForKey<Number>(kPIDKey) : nullptr;
    return pid ? pid->intValue() : 0;
}

// Reads the process the information names, when there is one.
std::optional<ProcessRecord> readProcessOf(const Dictionary* information)
{
    const int32_t pid = pidIn(information);
    if (pid <= 0)
        return std::nullopt;
    auto record = ProcessTable::readProcess(pid, ProcessDetail::withArgumentArea);
    if (!record)
        return std::nullopt;
    return std::move(record).value();
}

template <typename Test>
Ref<TXZonProcess> firstProcess(const Test& test)
{
    Ref<Array> all = TXZonProcess::allRunningProcesses();
    for (Object* object : *all)
        if (auto* process = static_cast<TXZonProcess*>(object); test(process))
            return process;
    return nullptr;
}

// Every process of a fresh listing that passes test, in listing order.
template <typename Test>
Ref<Array> processesWhere(const Test& test)
{
    std::vector<Ref<Object>> matches;
    Ref<Array> all = TXZonProcess::allRunningProcesses();
    for (Object* object : *all)
        if (test(static_cast<TXZonProcess*>(object)))
            matches.push_back(object);
    return Array::arrayWithVector(std::move(matches));
}

bool equal(const String* a, const String* b) { return a && b && a->isEqual(b); }

// The test of the name look-ups: the full name first, then the kernel name.
auto named(const String* name)
{
    return [name](TXZonProcess* process) { return equal(process->fullname().get(), name) || equal(process->name(), name); };
}

auto withFullname(const String* fullname)
{
    return [fullname](TXZonProcess* process) { return equal(process->fullname().get(), fullname); };
}

auto withBundleID(const String* bundleID)
{
    return [bundleID](TXZonProcess* process) { return bundleID && equal(process->bundleID().get(), bundleID); };
}

} // namespace

TXZonProcess::TXZonProcess(Ref<Dictionary> information, uint64_t startTime)
    : processInformation_(std::move(information))
    , startTime_(startTime)
{
}

Ref<Array> TXZonProcess::allRunningProcesses()
{
    std::vector<Ref<Object>> processes;
    ProcessValueCache values;
    ProcessTable::forEachProcess(ProcessDetail::withArgumentArea, [&](const ProcessRecord& record) {
        std::vector<Ref<Object>> entries {kNameKey, nameFromKernelBytes(record.name), kPIDKey,
            Number::numberWithUnsignedInt(static_cast<unsigned>(record.pid))};
        appendAreaEntries(entries, &record, &values);
        processes.push_back(makeObject<TXZonProcess>(Dictionary::dictionaryAdoptingKeysAndValues(entries), record.startTime));
    });
    return Array::arrayWithVector(std::move(processes));
}

Ref<TXZonProcess> TXZonProcess::currentProcess() { return processForPid(currentProcessID()); }

Ref<Array> TXZonProcess::processesForName(const String* name) { return processesWhere(named(name)); }

Ref<TXZonProcess> TXZonProcess::processForName(const String* name) { return firstProcess(named(name)); }

Ref<TXZonProcess> TXZonProcess::processForPid(int32_t pid)
{
    return firstProcess([&](TXZonProcess* process) { return process->pid() == pid; });
}

Ref<TXZonProcess> TXZonProcess::processForBundleID(const String* bundleID) { return firstProcess(withBundleID(bundleID)); }

bool TXZonProcess::processIsRunningWithBundleID(const String* bundleID)
{
    return firstProcess(withBundleID(bundleID)) != nullptr;
}

bool TXZonProcess::processIsRunningWithFullname(const String* fullname)
{
    return firstProcess(withFullname(fullname)) != nullptr;
}

bool TXZonProcess::multipleProcessesAreRunningWithFullname(const String* fullname)
{
    return processesWhere(withFullname(fullname))->count() > 1;
}

Ref<Array> TXZonProcess::duplicateProcesses()
{
    Ref<TXZonProcess> current = currentProcess();
    if (!current)
        return Array::array();
    Ref<String> fullname = current->fullname();
    String* path = current->path();
    Ref<String> bundleID = current->bundleID();
    return processesWhere([&](TXZonProcess* process) {
        return process->pid() != current->pid()
            && ((fullname && equal(process->fullname().get(), fullname.get())) || (path && equal(process->path(), path))
                || (bundleID && equal(process->bundleID().get(), bundleID.get())));
    });
}

Ref<TXZonProcess> TXZonProcess::initWithProcessInformation(const Dictionary* information)
{
    if (!information)
        return nullptr;
    const std::optional<ProcessRecord> record = readProcessOf(information);
    Ref<Dictionary> completed = completedInformation(information, record ? &*record : nullptr);
    return makeObject<TXZonProcess>(std::move(completed), record ? record->startTime : 0);
}

Ref<Dictionary> TXZonProcess::scanProcessDetails(const Dictionary* information) const
{
    if (!information)
        return Dictionary::dictionary();
    const std::optional<ProcessRecord> record = readProcessOf(information);
    return completedInformation(information, record ? &*record : nullptr);
}

String* TXZonProcess::name() const { return processInformation_->objectForKey<String>(kNameKey); }

int32_t TXZonProcess::pid() const { return pidIn(processInformation_.get()); }

String* TXZonProcess::path() const { return processInformation_->objectForKey<String>(kPathKey); }

Ref<String> TXZonProcess::fullname() const
{
    if (String* executable = path())
        return executable->lastPathComponent();
    return name();
}

Ref<String> TXZonProcess::bundlePath() const
{
    String* executable = path();
    if (!executable)
        return nullptr;
    Ref<String> folder = executable->stringByDeletingLastPathComponent();
    if (!folder->lastPathComponent()->isEqual(ZSTR("MacOS")))
        return nullptr;
    Ref<String> bundle = folder->stringByDeletingLastPathComponent()->stringByDeletingLastPathComponent();
    if (!bundle->length())
        return nullptr;
    if (!executable->lastPathComponent()->isEqual(bundle->lastPathComponent()->stringByDeletingPathExtension().get()))
        return nullptr;
    return bundle;
}

Ref<Bundle> TXZonProcess::bundle() const
{
    Ref<String> folder = bundlePath();
    return folder ? Bundle::bundleWithPath(folder.get()) : nullptr;
}

Ref<String> TXZonProcess::bundleID() const
{
    Ref<String> folder = bundlePath();
    if (!folder || !Workspace::sharedWorkspace()->isFilePackageAtPath(folder.get()))
        return nullptr;
    Ref<Bundle> found = Bundle::bundleWithPath(folder.get());
    return found ? found->bundleIdentifier() : nullptr;
}

Ref<Image> TXZonProcess::icon() const
{
    String* executable = path();
    if (!executable)
        return nullptr;
    const std::string resources = executable->stringByAppendingPathComponent(ZSTR("Contents/Resources/"))->UTF8String();
    if (!isFolder(resources))
        return nullptr;
    auto entries = directoryEntries(resources);
    if (!entries)
        return nullptr;
    std::vector<std::string> names = std::move(entries.value());
    std::ranges::sort(names);
    for (const std::string& name : names) {
        Ref<String> file = String::stringWithUTF8String(resources + "/" + name);
        if (file && file->pathExtension()->isEqual(ZSTR("icns")))
            return Image::initWithContentsOfFile(file.get());
    }
    return nullptr;
}

Dictionary* TXZonProcess::environment() const
{
    return processInformation_->objectForKey<Dictionary>(kEnvironmentKey);
}

Array* TXZonProcess::arguments() const { return processInformation_->objectForKey<Array>(kArgumentsKey); }

Ref<Array> TXZonProcess::userArguments() const
{
    Array* all = arguments();
    if (!all)
        return nullptr;
    Ref<MutableArray> kept = MutableArray::arrayWithCapacity(all->count());
    for (Object* argument : *all)
        if (!static_cast<String*>(argument)->hasPrefix(ZSTR("-psn")))
            kept->addObject(argument);
    return Array::arrayWithArray(kept.get());
}

int32_t TXZonProcess::state() const
{
    auto record = ProcessTable::readStatLine(pid());
    return record ? stateOfLetter(record.value().state) : TXZonProcessStateNotFound;
}

bool TXZonProcess::sendSignal(int signal) const
{
    if (startTime_ == 0)
        return false;
    auto sent = ProcessTable::signalProcess(pid(), startTime_, signal);
    return sent && sent.value();
}

bool TXZonProcess::suspend() const { return sendSignal(SIGSTOP); }
bool TXZonProcess::resume() const { return sendSignal(SIGCONT); }
bool TXZonProcess::interrupt() const { return sendSignal(SIGINT); }
bool TXZonProcess::terminate() const { return sendSignal(SIGTERM); }
bool TXZonProcess::kill() const { return sendSignal(SIGKILL); }

Ref<String> TXZonProcess::description() const
{
    return String::stringWithFormat("%@ (%d)", fullname(), pid());
}

} // namespace zon
