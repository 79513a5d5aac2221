#include "platform/io/StandardFolders.h"

#include "logger/ZonLog.h"
#include "platform/io/PathTextInternal.h"
#include "platform/io/PrivateDirectoryInternal.h"
#include "platform/system/UserCallsInternal.h"
#include "platform/values/String.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>

namespace zon {

namespace {

constexpr std::string_view kDefaultDataFolders = "/usr/local/share:/usr/share";

std::optional<std::string> homePath()
{
    if (const char* home = std::getenv("HOME"); home && *home)
        return std::string(home);
    auto entry = userEntry(::geteuid());
    if (!entry || entry.value().home.empty())
        return std::nullopt;
    return entry.value().home;
}

Ref<String> xdgDirectory(const char* variable, const char* belowHome)
{
    if (const char* set = std::getenv(variable); set && *set == '/')
        return String::stringWithUTF8String(set);
    std::optional<std::string> home = homePath();
    if (!home)
        return nullptr;
    if (home->back() != '/')
        home->push_back('/');
    return String::stringWithUTF8String(*home + belowHome);
}

} // namespace

Ref<String> NSHomeDirectory()
{
    std::optional<std::string> home = homePath();
    return home ? String::stringWithUTF8String(*home) : nullptr;
}

Ref<String> xdgDataHomeDirectory()
{
    return xdgDirectory("XDG_DATA_HOME", ".local/share");
}

Ref<String> xdgConfigHomeDirectory()
{
    return xdgDirectory("XDG_CONFIG_HOME", ".config");
}

Ref<String> xdgCacheHomeDirectory()
{
    return xdgDirectory("XDG_CACHE_HOME", ".cache");
}

std::vector<std::string> xdgDataFolders()
{
    std::vector<std::string> folders;
    if (Ref<String> dataHome = xdgDataHomeDirectory())
        folders.push_back(dataHome->UTF8String());
    const char* shared = std::getenv("XDG_DATA_DIRS");
    std::vector<std::string> sharedFolders = absolutePathEntries(shared ? shared : "");
    if (sharedFolders.empty())
        sharedFolders = absolutePathEntries(kDefaultDataFolders);
    folders.insert(folders.end(), sharedFolders.begin(), sharedFolders.end());
    return folders;
}

Ref<String> NSTemporaryDirectory()
{
    if (const char* set = std::getenv("TMPDIR"); set && *set) {
        std::string folder(set);
        if (folder.back() != '/')
            folder.push_back('/');
        return String::stringWithUTF8String(folder);
    }
    const std::string folder = "/tmp/zon-" + std::to_string(::geteuid());
    if (auto usable = ensurePrivateDirectory(folder, "set TMPDIR to a folder of this user's, or remove the folder"); !usable) {
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
            "No temporary folder: %s", usable.error().text().c_str());
        return nullptr;
    }
    return String::stringWithUTF8String(folder + "/");
}

} // namespace zon
