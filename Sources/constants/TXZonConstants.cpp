#include "constants/TXZonConstants.h"

#include "platform/io/Bundle.h"
#include "platform/io/StandardFolders.h"
#include "platform/runtime/Class.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"

#include <atomic>

namespace zon {

ZON_DEFINE_CLASS(TXZonConstants, "TXZonConstants")

ZON_STRING_CONSTANT(kTXBundleVersionKey, "CFBundleVersion");
ZON_STRING_CONSTANT(kTXBundleShortVersionKey, "CFBundleShortVersionString");
ZON_STRING_CONSTANT(kCFBundleShortVersionKey, "CFBundleShortVersionString");

namespace {

struct KnownApplication {
    int32_t code;
    String* executableName;
};

// In the order they are tried.
const KnownApplication kKnownApplications[] = {
    {TXZonRunningApplicationStationSoftware, ZSTR("Pallidor Station Software")},
    {TXZonRunningApplicationMediaServer, ZSTR("PallidorMobileMediaServer")},
    {TXZonRunningApplicationMediaServerStatus, ZSTR("Pallidor Media Server Status")},
};

std::atomic<int32_t> cachedApplicationCode {TXZonRunningApplicationUnknown};
// Once set, never released or replaced.
std::atomic<String*> cachedApplicationPath {nullptr};

Ref<String> mainBundleInfoString(String* key) { return dynamicCast<String>(Bundle::mainBundle()->objectForInfoDictionaryKey(key)); }

Ref<String> joinedPath(const Ref<String>& folder, String* component)
{
    return folder ? folder->stringByAppendingPathComponent(component) : nullptr;
}

} // namespace

TXZonConstants* TXZonConstants::sharedInstance()
{
    static TXZonConstants* const shared = makeObject<TXZonConstants>().leakRef();
    return shared;
}

Ref<String> TXZonConstants::userApplicationSupportPath()
{
    Ref<String> dataHome = xdgDataHomeDirectory();
    return dataHome ? dataHome : NSTemporaryDirectory();
}

Ref<String> TXZonConstants::userPreferencePath() { return xdgConfigHomeDirectory(); }

Ref<String> TXZonConstants::userLaunchAgentPath() { return joinedPath(xdgConfigHomeDirectory(), ZSTR("systemd/user")); }

int32_t TXZonConstants::runningApplication()
{
    if (int32_t cached = cachedApplicationCode.load(std::memory_order_relaxed))
        return cached;
    Ref<String> name = mainBundleInfoString(ZSTR("CFBundleExecutable"));
    if (!name) {
        Ref<String> path = mainBundleInfoString(ZSTR("CFBundleExecutablePath"));
        name = path ? path->lastPathComponent() : String::string();
    }
    for (const KnownApplication& application : kKnownApplications) {
        if (name->isEqualToString(application.executableName)) {
            cachedApplicationCode.store(application.code, std::memory_order_relaxed);
            return application.code;
        }
    }
    return TXZonRunningApplicationUnknown;
}

Ref<String> TXZonConstants::runningApplicationPath()
{
    if (String* cached = cachedApplicationPath.load(std::memory_order_acquire))
        return Ref<String>(cached);
    Ref<String> path = mainBundleInfoString(ZSTR("CFBundleExecutable"));
    if (!path)
        path = mainBundleInfoString(ZSTR("CFBundleExecutablePath"));
    if (!path)
        return nullptr;
    String* expected = nullptr;
    String* kept = Ref<String>(path).leakRef();
    if (!cachedApplicationPath.compare_exchange_strong(expected, kept, std::memory_order_acq_rel))
        kept->release(); // another thread cached the same value first
    return path;
}

Ref<String> TXZonConstants::runningApplicationDisplayName()
{
    switch (runningApplication()) {
    case TXZonRunningApplicationStationSoftware: return ZSTR("Pallidor® Station Software");
    case TXZonRunningApplicationMediaServer: return ZSTR("Pallidor® Media Server");
    case TXZonRunningApplicationMediaServerStatus: return ZSTR("Pallidor® Media Server Status");
    default: return ZSTR("Pallidor® Unknown Application");
    }
}

Ref<String> TXZonConstants::pallidorApplicationSupportPath()
{
    return joinedPath(userApplicationSupportPath(), ZSTR("Pallidor Bridge"));
}

Ref<String> TXZonConstants::wmsPrivateKeyName() { return ZSTR("Wi-Fi Music Server Key"); }

Ref<String> TXZonConstants::wmsCertificateName() { return ZSTR("Wi-Fi Music Server Certificate"); }

Ref<String> TXZonConstants::wmsPublicKeyFile() { return joinedPath(pallidorApplicationSupportPath(), ZSTR("public.pem")); }

int32_t TXZonConstants::wmsMaxDefaultMusicTleTracks() { return 10000; }

int32_t TXZonConstants::wmsMaxPL7MusicTleTracks() { return 15000; }

} // namespace zon
