#pragma once

#include "platform/runtime/Object.h"

namespace zon {

class String;
class URL;

// The desktop's way of opening things: a URL opens in the user's chosen application through
// xdg-open. Safe to use from any thread; run-time class NSWorkspace.
class ZON_EXPORT Workspace final : public Object {
    ZON_OBJECT(Workspace, Object)
public:
    static Workspace* sharedWorkspace();

    // Starts xdg-open with the URL's text as its one argument: directly, with no shell, so the
    // text is never interpreted. Answers whether it started; it is not waited for (it may wait
    // for the application it opens), and is reaped when it ends. False for nil.
    bool openURL(const URL* url) const;

    // Whether path (a link followed) is a folder that counts as one document: its name ends in
    // ".app", ".bundle", ".framework" or ".plugin". False for nil and for anything else.
    bool isFilePackageAtPath(const String* path) const;

    // Where the application with this bundle identifier is installed: what the desktop entry
    // "<identifier>.desktop" of the XDG data folders starts (its X.app when the program is
    // X.app/Contents/MacOS/X), else an X.app in ~/Applications, /Applications or /opt whose
    // Contents/Info.plist names the identifier. Nil when none is found.
    Ref<String> absolutePathForAppBundleWithIdentifier(const String* identifier) const;
    // The application named appName ("X.app" or "X"): X.app in ~/Applications, /Applications or
    // /opt, else what the first desktop entry whose Name is X starts. Nil when none is found.
    Ref<String> fullPathForApplication(const String* appName) const;

private:
    Workspace() = default;
};

} // namespace zon
