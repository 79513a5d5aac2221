#pragma once

// Where the workspace looks for installed applications: desktop entries in the XDG data folders,
// then application bundles ("X.app" folders with Contents/Info.plist) in the usual folders.

#include <optional>
#include <string>
#include <vector>

namespace zon {

class DesktopEntry;

// The "applications" folder of the data home, then of each $XDG_DATA_DIRS folder (default
// /usr/local/share:/usr/share; relative entries are ignored), in that order of precedence.
std::vector<std::string> desktopEntryFolders();
// An executable given by absolute path as it stands, else the first executable of that name in
// a $PATH folder (relative entries ignored); nullopt otherwise.
std::optional<std::string> programOnSearchPath(const std::string& program);
// ~/Applications (when there is a home folder), /Applications and /opt.
std::vector<std::string> applicationBundleFolders();

// What a desktop entry starts: its TryExec, else the first word of its Exec, looked up on $PATH
// when it holds no "/". The enclosing X.app when the executable (links resolved) is
// X.app/Contents/MacOS/X, else the executable as found. Nullopt for an entry that is not a
// visible application or whose program is missing.
std::optional<std::string> applicationPathOfDesktopEntry(const DesktopEntry& entry);

// The application of "<identifier>.desktop" (the first readable one in desktopEntryFolders
// decides), else the first X.app in applicationBundleFolders whose CFBundleIdentifier is
// identifier.
std::optional<std::string> applicationPathForIdentifier(const std::string& identifier);
// "X.app" (".app" added to a name without it) in applicationBundleFolders, else the application
// of the first desktop entry whose Name is X.
std::optional<std::string> applicationPathForName(const std::string& name);

} // namespace zon
