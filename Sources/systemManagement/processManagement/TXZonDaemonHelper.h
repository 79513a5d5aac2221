#pragma once

#include "platform/runtime/Object.h"

namespace zon {

class Pipe;
class String;

// The original platform's service-manager tool and its arguments, and the search tool; the suite's
// programs share these names. On Linux only TXGrepPath is run.
ZON_EXPORT extern String* const TXLaunchCtlPath;      // "/bin/launchctl"
ZON_EXPORT extern String* const TXLaunchCtlArgLoad;   // "load"
ZON_EXPORT extern String* const TXLaunchCtlArgUnload; // "unload"
ZON_EXPORT extern String* const TXLaunchCtlArgList;   // "list"
ZON_EXPORT extern String* const TXGrepPath;           // "/usr/bin/grep"

// The user's service manager on Linux: systemd's systemctl, always with --user.
ZON_EXPORT extern String* const TXSystemCtlPath;        // "/usr/bin/systemctl"
ZON_EXPORT extern String* const TXSystemCtlArgUser;     // "--user"
ZON_EXPORT extern String* const TXSystemCtlArgLoad;     // "enable": links a unit file from any folder
ZON_EXPORT extern String* const TXSystemCtlArgUnload;   // "disable": removes the link
ZON_EXPORT extern String* const TXSystemCtlArgNow;      // "--now": and starts or stops the unit
ZON_EXPORT extern String* const TXSystemCtlArgList;     // "list-units"
ZON_EXPORT extern String* const TXSystemCtlArgAll;      // "--all": inactive units too
ZON_EXPORT extern String* const TXSystemCtlArgFull;     // "--full": names never shortened
ZON_EXPORT extern String* const TXSystemCtlArgPlain;    // "--plain"
ZON_EXPORT extern String* const TXSystemCtlArgNoLegend; // "--no-legend"
ZON_EXPORT extern String* const TXSystemCtlArgNoPager;  // "--no-pager"

// Asks the user's service manager whether a background program is loaded and restarts one. Launch
// agents are systemd user units: the listing is `systemctl --user list-units --all --full --plain
// --no-legend --no-pager`, searched with grep, so a label matches any line that holds it as a basic
// regular expression (a prefix of another unit's name matches, and "." matches any character).
// A unit is reloaded by its unit file: `systemctl --user disable --now PATH`, then `enable --now
// PATH`. Without a user manager the listing is empty, so nothing is loaded.
//
// Nothing is reported: exit statuses are ignored, and a tool that cannot be started raises the
// platform's launch exception (NSInvalidArgumentException "launch path not accessible"). Each call
// waits for its tools, so it blocks the calling thread for tens of milliseconds.
class ZON_EXPORT TXZonDaemonHelper final : public Object {
    ZON_OBJECT(TXZonDaemonHelper, Object)
public:
    // Runs TXSystemCtlPath and TXGrepPath.
    static Ref<TXZonDaemonHelper> init();
    // Runs other programs in their place (a test's stand-ins, a machine with the tools elsewhere).
    static Ref<TXZonDaemonHelper> initWithSystemCtlPath_grepPath(const String* systemCtlPath, const String* grepPath);

    bool isDaemonLoaded(const String* label) const;
    // Disables then enables the unit file at path (each stops or starts it too); always true.
    bool restartDaemon(const String* path) const;
    // The lines of the listing in pipe that match search, as grep prints them; empty when none
    // does, nil when they are not UTF-8. The listing is read by grep, so pipe's writer must be done.
    Ref<String> findDaemonInOuput_withInputPipe(const String* search, Pipe* pipe) const;

private:
    TXZonDaemonHelper(Ref<String> systemCtlPath, Ref<String> grepPath);

    Ref<String> systemCtlPath_;
    Ref<String> grepPath_;
};

} // namespace zon
