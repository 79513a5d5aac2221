#include "platform/io/Workspace.h"

#include "logger/ZonLog.h"
#include "platform/io/ApplicationSearchInternal.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessCallsInternal.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

namespace zon {

ZON_DEFINE_CLASS(Workspace, "NSWorkspace")

Workspace* Workspace::sharedWorkspace()
{
    static Workspace* const shared = [] {
        Workspace* workspace = makeObject<Workspace>().leakRef();
        workspace->makeImmortal();
        return workspace;
    }();
    return shared;
}

bool Workspace::openURL(const URL* url) const
{
    if (!url)
        return false;
    auto opener = spawnProcess({"xdg-open", url->absoluteString()->UTF8String()});
    if (!opener) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier, "Could not open %@: %s", url,
            opener.error().text().c_str());
        return false;
    }
    reapWhenDone(opener.value());
    return true;
}

bool Workspace::isFilePackageAtPath(const String* path) const
{
    if (!path)
        return false;
    const std::string file = path->UTF8String();
    std::string_view name(file);
    while (name.size() > 1 && name.ends_with('/'))
        name.remove_suffix(1);
    name.remove_prefix(name.find_last_of('/') + 1); // npos + 1 is 0
    // The extension is what follows the last "." of a name that has more before it (".app" alone
    // is a hidden name without an extension).
    const size_t dot = name.find_last_of('.');
    if (dot == std::string_view::npos || dot == 0)
        return false;
    const std::string_view extension = name.substr(dot + 1);
    if (extension != "app" && extension != "bundle" && extension != "framework" && extension != "plugin")
        return false;
    return isFolder(file);
}

Ref<String> Workspace::absolutePathForAppBundleWithIdentifier(const String* identifier) const
{
    std::optional<std::string> found = identifier ? applicationPathForIdentifier(identifier->UTF8String()) : std::nullopt;
    return found ? String::stringWithUTF8String(*found) : nullptr;
}

Ref<String> Workspace::fullPathForApplication(const String* appName) const
{
    std::optional<std::string> found = appName ? applicationPathForName(appName->UTF8String()) : std::nullopt;
    return found ? String::stringWithUTF8String(*found) : nullptr;
}

} // namespace zon
