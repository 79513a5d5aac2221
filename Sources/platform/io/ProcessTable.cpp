#include "platform/io/ProcessTableInternal.h"

#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessCallsInternal.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

namespace zon {

namespace {

// Field 22 of the stat line is the 20th after the state letter (field 3).
constexpr int kFieldsFromStateToStartTime = 19;

SystemResult<std::string> readFileAt(int dirfd, const char* name, size_t cap)
{
    auto file = openFile(name, O_RDONLY, 0, dirfd);
    if (!file)
        return file.error();
    return readToEnd(file.value().get(), cap);
}

// Turns a read stat line into a record; ESRCH when it is not one (the process went away while
// the kernel wrote it, or the file is not what we expect).
SystemResult<ProcessRecord> recordFromStatLine(pid_t pid, SystemResult<std::string> line)
{
    if (!line)
        return line.error();
    const auto parsed = parseProcessStatLine(line.value());
    if (!parsed)
        return SystemError {ESRCH, "stat", "not a stat line"};
    return ProcessRecord {pid, std::string(parsed->name), parsed->state, parsed->startTime, std::nullopt};
}

std::optional<std::string> readArgumentArea(int folder)
{
    auto executable = readLinkAt(folder, "exe");
    if (!executable)
        return std::nullopt;
    auto commandLine = readFileAt(folder, "cmdline", kArgumentFileCap);
    if (!commandLine)
        return std::nullopt;
    auto environment = readFileAt(folder, "environ", kArgumentFileCap);
    if (!environment)
        return std::nullopt;
    return buildArgumentArea(executable.value(), commandLine.value(), environment.value());
}

} // namespace

std::optional<ProcessStatLine> parseProcessStatLine(std::string_view line)
{
    // The name may itself hold parentheses and spaces; nothing after it can hold a ")".
    const size_t open = line.find('(');
    const size_t close = line.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return std::nullopt;
    ProcessStatLine result;
    result.name = line.substr(open + 1, close - open - 1);
    std::string_view rest = line.substr(close + 1);
    if (rest.size() < 2 || rest[0] != ' ')
        return std::nullopt;
    result.state = rest[1];
    rest.remove_prefix(2);
    for (int field = 0; field < kFieldsFromStateToStartTime; ++field) {
        const size_t space = rest.find(' ');
        if (space == std::string_view::npos)
            return std::nullopt;
        rest.remove_prefix(space + 1);
    }
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), result.startTime);
    if (error != std::errc() || (end != rest.data() + rest.size() && *end != ' ' && *end != '\n'))
        return std::nullopt;
    return result;
}

std::string buildArgumentArea(std::string_view executablePath, std::string_view commandLine,
    std::string_view environment)
{
    int32_t count = 0;
    for (char c : commandLine)
        count += c == '\0';
    std::string area;
    area.reserve(sizeof count + executablePath.size() + commandLine.size() + environment.size() + 2);
    area.append(reinterpret_cast<const char*>(&count), sizeof count);
    area.append(executablePath);
    area.push_back('\0');
    area.append(commandLine);
    // A process that rewrote its arguments may leave the last one unterminated; it must not run
    // into the first environment entry.
    if (!commandLine.empty() && commandLine.back() != '\0')
        area.push_back('\0');
    area.append(environment);
    return area;
}

SystemResult<std::vector<pid_t>> ProcessTable::processIDs()
{
    auto proc = openFile("/proc", O_RDONLY | O_DIRECTORY);
    if (!proc)
        return proc.error();
    return numericDirectoryEntries(proc.value().get());
}

SystemResult<ProcessRecord> ProcessTable::readProcess(pid_t pid, ProcessDetail detail)
{
    auto folder = openFile("/proc/" + std::to_string(pid), O_RDONLY | O_DIRECTORY);
    if (!folder)
        return folder.error();
    auto record = recordFromStatLine(pid, readFileAt(folder.value().get(), "stat", kStatLineCap));
    if (record && detail == ProcessDetail::withArgumentArea)
        record.value().argumentArea = readArgumentArea(folder.value().get());
    return record;
}

std::vector<ProcessRecord> ProcessTable::snapshot(ProcessDetail detail)
{
    std::vector<ProcessRecord> records;
    auto ids = processIDs();
    if (!ids)
        return records;
    records.reserve(ids.value().size());
    for (const pid_t pid : ids.value())
        if (auto record = readProcess(pid, detail))
            records.push_back(std::move(record).value());
    return records;
}

SystemResult<ProcessRecord> ProcessTable::readStatLine(pid_t pid)
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    auto file = openFile(path, O_RDONLY);
    if (!file)
        return file.error();
    return recordFromStatLine(pid, readToEnd(file.value().get(), kStatLineCap));
}

SystemResult<bool> ProcessTable::signalProcess(pid_t pid, uint64_t startTime, int signal)
{
    auto descriptor = openProcessDescriptor(pid);
    if (!descriptor)
        return descriptor.error();
    auto now = readStatLine(pid);
    if (!now)
        return now.error();
    if (now.value().startTime != startTime)
        return false;
    auto sent = signalProcessDescriptor(descriptor.value().get(), signal);
    if (!sent)
        return sent.error();
    return true;
}

} // namespace zon
