#pragma once

// The reader of desktop entry files, the desktop's description of an application: UTF-8 text of
// groups ("[Desktop Entry]") holding "Key=Value" lines, with "#" comments and blank lines.
// Desktop entries are written by whoever installs an application, so the reader takes any bytes:
// a file that breaks the format is refused whole, never half read.

#include "platform/Export.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zon {

// Entries are a few KiB; anything larger is not one.
constexpr size_t kMaxDesktopEntryBytes = 256 * 1024;

class ZON_EXPORT DesktopEntry {
public:
    // Nullopt when bytes are not a desktop entry file: not UTF-8, a line that is neither a group
    // header, a key, a comment nor blank, a key before the first group, or more than the cap. A
    // group named twice is one group, and a key given twice keeps its last value, as the desktop's
    // own reader has it.
    static std::optional<DesktopEntry> parse(std::string_view bytes);
    // The file at path parsed; nullopt when it cannot be read or is refused.
    static std::optional<DesktopEntry> readFile(const std::string& path);

    // The value of key (with its locale suffix, if any: "Name[de]") in group, its escapes
    // ("\s", "\n", "\t", "\r", "\\") resolved; nullopt when missing or when it holds another escape.
    std::optional<std::string> value(std::string_view group, std::string_view key) const;
    // value() in the "Desktop Entry" group.
    std::optional<std::string> entryValue(std::string_view key) const { return value("Desktop Entry", key); }
    // A boolean key: true only for "true".
    bool isTrue(std::string_view key) const { return entryValue(key) == "true"; }

private:
    // Group name to key to the value as written.
    std::map<std::string, std::map<std::string, std::string, std::less<>>, std::less<>> groups_;
};

// The arguments of an Exec value (escapes already resolved): split at spaces and tabs; a double
// quoted argument keeps its spaces, and inside it a backslash escapes '"', '`', '$' and '\'.
// Field codes outside quotes: "%%" is a "%"; a code fieldCode gives a value for is replaced by it
// (the value stays within its argument, whatever it holds); the others are dropped: an argument
// that is just "%f", "%U" and the like goes, as do the codes inside other arguments. Nullopt when
// a quote is not closed.
using FieldCodeValue = std::function<std::optional<std::string>(char code)>;
ZON_EXPORT std::optional<std::vector<std::string>> desktopEntryExecArguments(std::string_view exec,
    const FieldCodeValue& fieldCode = {});

} // namespace zon
