#pragma once

#include "platform/Export.h"
#include "platform/runtime/Object.h"

#include <cstdint>

namespace zon {

class String;

// The suite's constants that depend on the running program and the user: the user's folders,
// which of the suite's programs is running, the suite's support folder and the wireless music
// server's names and limits.
//
// Folders follow the desktop's rules: application support is the XDG data home, preferences the
// XDG config home, launch agents the folder where the systemd user manager looks for units.
// The running-application code (when not 0) and path are cached on first success, in
// process-wide variables that racing threads write with the same value; all else is read afresh.
class ZON_EXPORT TXZonConstants final : public Object {
    ZON_OBJECT(TXZonConstants, Object)
public:
    // Carries no state.
    static TXZonConstants* sharedInstance();

    // The XDG data home; the temporary folder when there is no home folder.
    static Ref<String> userApplicationSupportPath();
    // The XDG config home; nil without a home folder.
    static Ref<String> userPreferencePath();
    // The XDG config home's "systemd/user"; nil without a home folder.
    static Ref<String> userLaunchAgentPath();

    // ---- TXZonConstants(RunningApplicationConstants) ---------------------------------------------
    // 1, 2 or 3 when the main bundle's executable name (CFBundleExecutable, else the last
    // component of CFBundleExecutablePath) is exactly that program's name, letter case included;
    // else 0, which is not cached, so the next call looks again.
    static int32_t runningApplication();
    // CFBundleExecutable (a name, despite the operation's name), else CFBundleExecutablePath.
    static Ref<String> runningApplicationPath();
    // "Pallidor® Station Software", ..., "Pallidor® Unknown Application" for code 0.
    static Ref<String> runningApplicationDisplayName();

    // ---- TXZonConstants(ZonGlobalPaths) ----------------------------------------------------------
    // userApplicationSupportPath's "Pallidor Bridge".
    static Ref<String> pallidorApplicationSupportPath();

    // ---- TXZonConstants(WMSConstants) ------------------------------------------------------------
    static Ref<String> wmsPrivateKeyName();
    static Ref<String> wmsCertificateName();
    // pallidorApplicationSupportPath's "public.pem".
    static Ref<String> wmsPublicKeyFile();
    static int32_t wmsMaxDefaultMusicTleTracks();
    static int32_t wmsMaxPL7MusicTleTracks();

private:
    TXZonConstants() = default;
};

// The running-application codes.
enum : int32_t {
    TXZonRunningApplicationUnknown = 0,
    TXZonRunningApplicationStationSoftware = 1,
    TXZonRunningApplicationMediaServer = 2,
    TXZonRunningApplicationMediaServerStatus = 3,
};

// Keys of a bundle's information: "CFBundleVersion", "CFBundleShortVersionString" (twice).
ZON_EXPORT extern String* const kTXBundleVersionKey;
ZON_EXPORT extern String* const kTXBundleShortVersionKey;
ZON_EXPORT extern String* const kCFBundleShortVersionKey;

} // namespace zon
