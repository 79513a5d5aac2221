#include "platform/io/ApplicationSearchInternal.h"

#include "platform/io/Bundle.h"
#include "platform/io/DesktopEntryInternal.h"
#include "platform/io/StandardFolders.h"
#include "platform/io/PathTextInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string_view>

namespace zon {

namespace {

// What execvp searches when PATH is not set.
constexpr std::string_view kDefaultSearchPath = "/bin:/usr/bin";

std::string_view parentOf(std::string_view path)
{
    const size_t slash = path.find_last_of('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

// X.app for an executable at X.app/Contents/MacOS/X.
std::optional<std::string> enclosingApplication(std::string_view executable)
{
    const std::string_view macOS = parentOf(executable);
    const std::string_view contents = parentOf(macOS);
    const std::string_view bundle = parentOf(contents);
    const std::string_view bundleName = lastPathComponent(bundle);
    if (lastPathComponent(macOS) != "MacOS" || lastPathComponent(contents) != "Contents" || !bundleName.ends_with(".app"))
        return std::nullopt;
    if (bundleName.substr(0, bundleName.size() - 4) != lastPathComponent(executable))
        return std::nullopt;
    return std::string(bundle);
}

// The names in folder, sorted so that the answer does not depend on the file system's order.
std::vector<std::string> sortedEntries(const std::string& folder)
{
    auto entries = directoryEntries(folder);
    if (!entries)
        return {};
    std::vector<std::string> names = std::move(entries.value());
    std::ranges::sort(names);
    return names;
}

bool hasIdentifier(const std::string& application, const std::string& identifier)
{
    if (!pathStatus(joinedPath(application, "Contents/Info.plist")))
        return false;
    Ref<Bundle> bundle = Bundle::bundleWithPath(String::stringWithUTF8String(application).get());
    Ref<String> own = bundle ? bundle->bundleIdentifier() : nullptr;
    return own && own->UTF8String() == identifier;
}

// A single file or folder name: no "/", not "." or "..".
bool isPlainName(std::string_view name) { return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos; }

} // namespace

std::optional<std::string> programOnSearchPath(const std::string& program)
{
    if (program.empty())
        return std::nullopt;
    if (program.find('/') != std::string::npos) {
        if (program.front() == '/' && isExecutableFile(program))
            return program;
        return std::nullopt; // a relative path would depend on the caller's working folder
    }
    const char* path = std::getenv("PATH");
    for (const std::string& folder : absolutePathEntries(path ? path : kDefaultSearchPath)) {
        std::string candidate = joinedPath(folder, program);
        if (isExecutableFile(candidate))
            return candidate;
    }
    return std::nullopt;
}

std::vector<std::string> desktopEntryFolders()
{
    std::vector<std::string> folders = xdgDataFolders();
    for (std::string& folder : folders)
        folder = joinedPath(std::move(folder), "applications");
    return folders;
}

std::vector<std::string> applicationBundleFolders()
{
    std::vector<std::string> folders;
    if (Ref<String> home = NSHomeDirectory())
        folders.push_back(joinedPath(home->UTF8String(), "Applications"));
    folders.emplace_back("/Applications");
    folders.emplace_back("/opt");
    return folders;
}

std::optional<std::string> applicationPathOfDesktopEntry(const DesktopEntry& entry)
{
    if (entry.entryValue("Type") != "Application" || entry.isTrue("Hidden"))
        return std::nullopt;
    std::string program;
    if (std::optional<std::string> tryExec = entry.entryValue("TryExec")) {
        program = *tryExec;
    } else {
        const std::optional<std::string> exec = entry.entryValue("Exec");
        const auto arguments = exec ? desktopEntryExecArguments(*exec) : std::nullopt;
        if (!arguments || arguments->empty())
            return std::nullopt;
        program = arguments->front();
    }
    std::optional<std::string> executable = programOnSearchPath(program);
    if (!executable)
        return std::nullopt;
    auto resolved = resolvedPath(*executable);
    if (std::optional<std::string> application = enclosingApplication(resolved ? resolved.value() : *executable))
        return application;
    return executable;
}

std::optional<std::string> applicationPathForIdentifier(const std::string& identifier)
{
    if (!isPlainName(identifier))
        return std::nullopt;
    for (const std::string& folder : desktopEntryFolders()) {
        if (std::optional<DesktopEntry> entry = DesktopEntry::readFile(joinedPath(folder, identifier + ".desktop"))) {
            if (std::optional<std::string> application = applicationPathOfDesktopEntry(*entry))
                return application;
            break;
        }
    }
    for (const std::string& folder : applicationBundleFolders()) {
        for (const std::string& name : sortedEntries(folder)) {
            const std::string application = joinedPath(folder, name);
            if (name.ends_with(".app") && isFolder(application) && hasIdentifier(application, identifier))
                return application;
        }
    }
    return std::nullopt;
}

std::optional<std::string> applicationPathForName(const std::string& name)
{
    const std::string bundleName = name.ends_with(".app") ? name : name + ".app";
    if (!isPlainName(name) || bundleName == ".app")
        return std::nullopt;
    for (const std::string& folder : applicationBundleFolders()) {
        if (const std::string application = joinedPath(folder, bundleName); isFolder(application))
            return application;
    }
    // A desktop entry of a folder before hides one of the same file name in a folder after.
    const std::string displayName = bundleName.substr(0, bundleName.size() - 4);
    std::set<std::string> seen;
    for (const std::string& folder : desktopEntryFolders()) {
        for (const std::string& file : sortedEntries(folder)) {
            if (!file.ends_with(".desktop") || !seen.insert(file).second)
                continue;
            std::optional<DesktopEntry> entry = DesktopEntry::readFile(joinedPath(folder, file));
            if (!entry || entry->entryValue("Name") != displayName)
                continue;
            if (std::optional<std::string> application = applicationPathOfDesktopEntry(*entry))
                return application;
        }
    }
    return std::nullopt;
}

} // namespace zon
