#include "platform/io/HostSystemVersionInternal.h"

#include "platform/system/FileCallsInternal.h"
#include "platform/system/HostCallsInternal.h"

#include <array>
#include <cstdint>
#include <optional>

namespace zon {
namespace {

constexpr size_t kMaxReleaseFileBytes = 64 * 1024;

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\f\v";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool isKeyText(std::string_view key)
{
    if (key.empty())
        return false;
    for (const char c : key)
        if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'))
            return false;
    return true;
}

// A value as the shell reads it: inside double quotes a backslash keeps the next character when
// that is one of $ ` " \; single quotes keep everything. An unclosed quote runs to the line's end.
std::string unquoted(std::string_view value)
{
    if (value.empty() || (value.front() != '"' && value.front() != '\''))
        return std::string(value);
    const char quote = value.front();
    std::string out;
    for (size_t i = 1; i < value.size(); ++i) {
        const char c = value[i];
        if (c == quote)
            break;
        if (quote == '"' && c == '\\' && i + 1 < value.size()
            && std::string_view("$`\"\\").find(value[i + 1]) != std::string_view::npos)
            out += value[++i];
        else
            out += c;
    }
    return out;
}

// The last value of key in os-release text, or nothing.
std::optional<std::string> releaseValue(std::string_view text, std::string_view key)
{
    std::optional<std::string> found;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        const size_t equals = line.find('=');
        if (line.starts_with('#') || equals == std::string_view::npos)
            continue;
        const std::string_view name = trimmed(line.substr(0, equals));
        if (isKeyText(name) && name == key)
            found = unquoted(trimmed(line.substr(equals + 1)));
    }
    return found;
}

// The integer the text's leading digits make, without leading zeros; "0" when it has none.
std::string integerText(std::string_view text)
{
    size_t digits = 0;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
        ++digits;
    std::string_view number = text.substr(0, digits);
    while (number.size() > 1 && number.front() == '0')
        number.remove_prefix(1);
    return number.empty() ? "0" : std::string(number);
}

// Major, minor and bug-fix of a "."-separated release text.
std::array<std::string, 3> releaseParts(std::string_view text)
{
    std::array<std::string, 3> parts;
    for (std::string& part : parts) {
        const size_t dot = text.find('.');
        part = integerText(text.substr(0, dot));
        text = dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
    }
    return parts;
}

bool startsWithDigit(std::string_view text) { return !text.empty() && text.front() >= '0' && text.front() <= '9'; }

// Up to maxBytes of the file at path; nothing when it cannot be opened as a regular file.
std::optional<std::string> readHead(const std::string& path, size_t maxBytes)
{
    auto file = openForReading(path, ReadableKinds::regularFiles);
    if (!file)
        return std::nullopt;
    std::string bytes;
    // A longer file or a failed read keeps what was read, cut to maxBytes.
    (void)appendToEnd(file.value().get(), bytes, maxBytes);
    bytes.resize(std::min(bytes.size(), maxBytes));
    return bytes;
}

} // namespace

HostSystemVersion hostSystemVersionFromTexts(
    std::string_view osRelease, std::string_view debianVersion, std::string_view kernelRelease)
{
    std::string release = releaseValue(osRelease, "VERSION_ID").value_or("");
    const std::string_view debian = trimmed(debianVersion.substr(0, debianVersion.find('\n')));
    if (startsWithDigit(debian) && (!startsWithDigit(release) || releaseParts(release)[0] == releaseParts(debian)[0]))
        release = debian;
    auto [major, minor, bugFix] = releaseParts(release);
    std::string build = releaseValue(osRelease, "BUILD_ID").value_or("");
    if (build.empty())
        build = std::string(kernelRelease);
    return {std::move(major), std::move(minor), std::move(bugFix), std::move(build)};
}

HostSystemVersion currentHostSystemVersion()
{
    std::optional<std::string> osRelease = readHead("/etc/os-release", kMaxReleaseFileBytes);
    if (!osRelease)
        osRelease = readHead("/usr/lib/os-release", kMaxReleaseFileBytes);
    const std::string debian = readHead("/etc/debian_version", kMaxReleaseFileBytes).value_or("");
    auto kernel = kernelRelease();
    return hostSystemVersionFromTexts(osRelease.value_or(""), debian, kernel ? kernel.value() : "");
}

} // namespace zon
