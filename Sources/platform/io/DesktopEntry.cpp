#include "platform/io/DesktopEntryInternal.h"

#include "platform/system/FileCallsInternal.h"
#include "platform/values/UTF.h"

namespace zon {

namespace {

bool isKeyCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

// "Name" or "Name[de_DE@euro]": letters, digits and "-", then an optional locale in brackets.
bool isKey(std::string_view key)
{
    size_t i = 0;
    while (i < key.size() && isKeyCharacter(key[i]))
        ++i;
    if (i == 0)
        return false;
    if (i == key.size())
        return true;
    if (key[i] != '[' || !key.ends_with(']') || key.size() - i < 3)
        return false;
    const std::string_view locale = key.substr(i + 1, key.size() - i - 2);
    return locale.find_first_of("[] =") == std::string_view::npos;
}

// A group name is printable and holds no brackets.
bool isGroupName(std::string_view name)
{
    for (unsigned char c : name)
        if (c < 0x20 || c == 0x7f || c == '[' || c == ']')
            return false;
    return !name.empty();
}

std::string_view trimmedSpaces(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

std::optional<std::string> unescaped(std::string_view raw)
{
    std::string out;
    out.reserve(raw.size());
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != '\\') {
            out.push_back(raw[i]);
            continue;
        }
        if (++i == raw.size())
            return std::nullopt;
        switch (raw[i]) {
        case 's': out.push_back(' '); break;
        case 'n': out.push_back('\n'); break;
        case 't': out.push_back('\t'); break;
        case 'r': out.push_back('\r'); break;
        case '\\': out.push_back('\\'); break;
        default: return std::nullopt;
        }
    }
    return out;
}

} // namespace

std::optional<DesktopEntry> DesktopEntry::parse(std::string_view bytes)
{
    if (bytes.size() > kMaxDesktopEntryBytes || utf::offsetOfInvalidUTF8(bytes) != bytes.size())
        return std::nullopt;
    DesktopEntry entry;
    std::map<std::string, std::string, std::less<>>* group = nullptr;
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        std::string_view line = bytes.substr(0, end);
        bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t'))
            line.remove_prefix(1);
        if (line.empty() || line.front() == '#')
            continue;
        if (line.front() == '[') {
            line = trimmedSpaces(line);
            if (!line.ends_with(']') || !isGroupName(line.substr(1, line.size() - 2)))
                return std::nullopt;
            group = &entry.groups_[std::string(line.substr(1, line.size() - 2))];
            continue;
        }
        const size_t equals = line.find('=');
        if (!group || equals == std::string_view::npos)
            return std::nullopt;
        const std::string_view key = trimmedSpaces(line.substr(0, equals));
        if (!isKey(key))
            return std::nullopt;
        std::string_view value = line.substr(equals + 1);
        while (!value.empty() && (value.front() == ' ' || value.front() == '\t'))
            value.remove_prefix(1);
        (*group)[std::string(key)] = std::string(value);
    }
    return entry;
}

std::optional<DesktopEntry> DesktopEntry::readFile(const std::string& path)
{
    auto file = openForReading(path, ReadableKinds::regularFiles);
    if (!file)
        return std::nullopt;
    auto bytes = readToEnd(file.value().get(), kMaxDesktopEntryBytes);
    if (!bytes)
        return std::nullopt;
    return parse(bytes.value());
}

std::optional<std::string> DesktopEntry::value(std::string_view group, std::string_view key) const
{
    const auto found = groups_.find(group);
    if (found == groups_.end())
        return std::nullopt;
    const auto value = found->second.find(key);
    if (value == found->second.end())
        return std::nullopt;
    return unescaped(value->second);
}

std::optional<std::vector<std::string>> desktopEntryExecArguments(std::string_view exec, const FieldCodeValue& fieldCode)
{
    std::vector<std::string> arguments;
    std::string current;
    bool inArgument = false;
    bool hadFieldCode = false; // the argument so far held a field code and nothing else
    auto finish = [&] {
        if (inArgument && !(hadFieldCode && current.empty()))
            arguments.push_back(std::move(current));
        current.clear();
        inArgument = hadFieldCode = false;
    };
    for (size_t i = 0; i < exec.size(); ++i) {
        const char c = exec[i];
        if (c == ' ' || c == '\t') {
            finish();
        } else if (c == '"') {
            inArgument = true;
            for (++i;; ++i) {
                if (i == exec.size())
                    return std::nullopt;
                if (exec[i] == '"')
                    break;
                if (exec[i] == '\\' && i + 1 < exec.size() && std::string_view("\"`$\\").find(exec[i + 1]) != std::string_view::npos)
                    ++i;
                current.push_back(exec[i]);
            }
        } else if (c == '%' && i + 1 < exec.size()) {
            inArgument = true;
            std::optional<std::string> value;
            if (exec[++i] == '%')
                current.push_back('%');
            else if (fieldCode && (value = fieldCode(exec[i])))
                current += *value;
            else
                hadFieldCode = true;
        } else {
            inArgument = true;
            current.push_back(c);
        }
    }
    finish();
    return arguments;
}

} // namespace zon
