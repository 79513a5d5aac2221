#include "platform/io/ProcessTableInternal.h"

#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessTableCallsInternal.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

namespace zon {

namespace {

// Field 22 of the stat line is the 20th after the state letter (field 3).
constexpr int kFieldsFromStateToStartTime = 19;
constexpr size_t kCountBytes = sizeof(int32_t);

std::string_view bytesOf(const ByteVector& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void append(ByteVector& area, std::string_view bytes) { area.insert(area.end(), bytes.begin(), bytes.end()); }

// Fills record from the stat line in line; ESRCH when it is not one (the process went away while
// the kernel wrote it, or the file is not what we expect).
SystemResult<> takeStatLine(pid_t pid, std::string_view line, ProcessRecord& record)
{
    const auto parsed = parseProcessStatLine(line);
    if (!parsed)
        return SystemError {ESRCH, "stat", "not a stat line"};
    record.pid = pid;
    record.name.assign(parsed->name);
    record.state = parsed->state;
    record.startTime = parsed->startTime;
    record.hasArgumentArea = false;
    record.argumentArea.clear();
    return {};
}

bool readArgumentArea(int folder, ByteVector& area)
{
    auto executable = readLinkAt(folder, "exe");
    if (!executable)
        return false;
    beginArgumentArea(area, executable.value());
    if (!appendFileAt(folder, "cmdline", area, kArgumentFileCap))
        return false;
    endArgumentsOfArea(area, executable.value().size());
    return appendFileAt(folder, "environ", area, kArgumentFileCap).ok();
}

// Reads pid into record through one descriptor of its folder; scratch holds the stat line.
SystemResult<> readProcessInto(pid_t pid, ProcessDetail detail, ProcessRecord& record, ByteVector& scratch)
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d", static_cast<int>(pid));
    auto folder = openFile(path, O_RDONLY | O_DIRECTORY);
    if (!folder)
        return folder.error();
    scratch.clear();
    if (auto read = appendFileAt(folder.value().get(), "stat", scratch, kStatLineCap); !read)
        return read;
    if (auto taken = takeStatLine(pid, bytesOf(scratch), record); !taken)
        return taken;
    if (detail == ProcessDetail::withArgumentArea)
        record.hasArgumentArea = readArgumentArea(folder.value().get(), record.argumentArea);
    return {};
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

void beginArgumentArea(ByteVector& area, std::string_view executablePath)
{
    area.clear();
    area.resize(kCountBytes);
    append(area, executablePath);
    area.push_back(0);
}

void endArgumentsOfArea(ByteVector& area, size_t executablePathLength)
{
    const std::string_view arguments = bytesOf(area).substr(kCountBytes + executablePathLength + 1);
    int32_t count = 0;
    for (char c : arguments)
        count += c == '\0';
    if (!arguments.empty() && arguments.back() != '\0') {
        area.push_back(0);
        ++count;
    }
    std::memcpy(area.data(), &count, sizeof count);
}

std::string buildArgumentArea(std::string_view executablePath, std::string_view commandLine,
    std::string_view environment)
{
    ByteVector area;
    beginArgumentArea(area, executablePath);
    append(area, commandLine);
    endArgumentsOfArea(area, executablePath.size());
    append(area, environment);
    return std::string(bytesOf(area));
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
    ProcessRecord record;
    ByteVector scratch;
    if (auto read = readProcessInto(pid, detail, record, scratch); !read)
        return read.error();
    return record;
}

bool ProcessTable::forEachProcess(ProcessDetail detail, const std::function<void(const ProcessRecord&)>& visit)
{
    auto ids = processIDs();
    if (!ids)
        return false;
    ProcessRecord record;
    ByteVector scratch;
    for (const pid_t pid : ids.value())
        if (readProcessInto(pid, detail, record, scratch))
            visit(record);
    return true;
}

SystemResult<ProcessRecord> ProcessTable::readStatLine(pid_t pid)
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    ByteVector line;
    if (auto read = appendFileAt(AT_FDCWD, path, line, kStatLineCap); !read)
        return read.error();
    ProcessRecord record;
    if (auto taken = takeStatLine(pid, bytesOf(line), record); !taken)
        return taken.error();
    return record;
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
