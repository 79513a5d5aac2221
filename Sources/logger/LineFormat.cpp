#include "LineFormat.h"

#include <charconv>
#include <cstdio>
#include <ctime>
#include <errno.h>
#include <unistd.h>

namespace zon::logger {
namespace {

void appendPadded(std::string& out, long value, int width)
{
    char digits[24];
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, value);
    for (int pad = width - int(end - digits); pad > 0; --pad)
        out.push_back('0');
    out.append(digits, end);
}

void appendNumber(std::string& out, long value) { appendPadded(out, value, 0); }

// "YYYY-MM-DD HH:MM:SS" for a second, cached per thread: consecutive records mostly share it.
// The cache is plain storage, so that it still serves lines written while the process exits,
// after the thread's objects have been destroyed.
std::string_view secondsText(std::time_t seconds)
{
    thread_local std::time_t cachedSecond = -1;
    thread_local char cachedText[32];
    if (seconds != cachedSecond) {
        std::tm parts {};
        localtime_r(&seconds, &parts);
        std::snprintf(cachedText, sizeof cachedText, "%04d-%02d-%02d %02d:%02d:%02d", parts.tm_year + 1900,
            parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
        cachedSecond = seconds;
    }
    return cachedText;
}

void appendLevelTag(std::string& out, int level)
{
    out.push_back('<');
    switch (level) {
    case kLevelError: out.push_back('E'); break;
    case kLevelWarning: out.push_back('W'); break;
    case kLevelInfo: out.push_back('I'); break;
    case kLevelDetail: out.push_back('D'); break;
    default: appendNumber(out, level);
    }
    out.push_back('>');
}

} // namespace

std::string_view shortenedSourcePath(std::string_view file) noexcept
{
    constexpr std::string_view root = "Sources/";
    for (size_t end = file.size(); end > 0;) {
        size_t at = file.rfind(root, end - 1);
        if (at == std::string_view::npos)
            break;
        if (at == 0 || file[at - 1] == '/')
            return file.substr(at);
        end = at;
    }
    return file;
}

void appendLine(std::string& out, const Record& record)
{
    using namespace std::chrono;
    auto sinceEpoch = record.time.time_since_epoch();
    auto seconds = floor<std::chrono::seconds>(sinceEpoch);
    out.append(secondsText(std::time_t(seconds.count())));
    out.push_back('.');
    appendPadded(out, long(duration_cast<microseconds>(sinceEpoch - seconds).count()), 6);
    out.push_back(' ');
    out.append(program_invocation_short_name);
    out.push_back('[');
    appendNumber(out, long(getpid()));
    out.push_back(':');
    appendNumber(out, record.thread);
    out.append("] ");
    appendLevelTag(out, record.level);
    out.push_back(' ');
    out.append(record.category);
    out.push_back('/');
    out.append(record.identifier);
    out.push_back(' ');
    out.append(shortenedSourcePath(record.file));
    out.push_back(':');
    appendNumber(out, record.line);
    out.append(": ");
    out.append(record.message);
    out.push_back('\n');
}

} // namespace zon::logger
