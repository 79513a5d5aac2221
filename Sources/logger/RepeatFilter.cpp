#include "RepeatFilter.h"

#include <algorithm>
#include <string_view>

namespace zon::logger {

namespace {

size_t hashOf(const Record& record)
{
    const std::hash<std::string_view> hash;
    size_t value = hash(record.message);
    for (size_t part : {hash(record.file), hash(record.category), hash(record.identifier),
             std::hash<int>()(record.line), std::hash<int>()(record.level)})
        value = value * 31 + part;
    return value;
}

bool windowIsOver(std::chrono::system_clock::time_point start, std::chrono::system_clock::time_point now)
{
    return now < start || now - start >= RepeatFilter::kWindow;
}

} // namespace

bool RepeatFilter::Line::matches(size_t recordHash, const Record& record) const
{
    return used && hash == recordHash && kept.line == record.line && kept.level == record.level
        && kept.message == record.message && kept.file == record.file && kept.category == record.category
        && kept.identifier == record.identifier;
}

void RepeatFilter::Line::assign(size_t recordHash, const Record& record)
{
    used = true;
    hash = recordHash;
    kept.file.assign(record.file);
    kept.line = record.line;
    kept.category.assign(record.category);
    kept.level = record.level;
    kept.identifier.assign(record.identifier);
    kept.message.assign(record.message);
    kept.thread = record.thread;
    start = record.time;
    repeats = 0;
}

void RepeatFilter::close(Line& line, std::chrono::system_clock::time_point now, const Emit& emit)
{
    line.used = false;
    if (line.repeats == 0)
        return;
    const KeptRecord& kept = line.kept;
    const std::string summary = kept.message + " (repeated " + std::to_string(line.repeats) + " times)";
    Record record {kept.file, kept.line, kept.category, kept.level, kept.identifier, summary};
    record.time = now;
    record.thread = kept.thread;
    emit(record);
}

bool RepeatFilter::admit(const Record& record, const Emit& emit)
{
    for (Line& line : lines_) {
        if (line.used && windowIsOver(line.start, record.time))
            close(line, record.time, emit);
    }
    const size_t hash = hashOf(record);
    for (Line& line : lines_) {
        if (line.matches(hash, record)) {
            ++line.repeats;
            return false;
        }
    }
    // A free slot, or else the one whose window started first.
    Line& slot = *std::min_element(lines_.begin(), lines_.end(), [](const Line& a, const Line& b) {
        return a.used != b.used ? !a.used : a.start < b.start;
    });
    if (slot.used)
        close(slot, record.time, emit);
    slot.assign(hash, record);
    return true;
}

void RepeatFilter::flush(std::chrono::system_clock::time_point now, const Emit& emit)
{
    for (Line& line : lines_) {
        if (line.used)
            close(line, now, emit);
    }
}

} // namespace zon::logger
