#include "platform/io/Workspace.h"

#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
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

} // namespace zon
