#pragma once

// Installed applications for one test: X.app folders with their Contents/Info.plist, executable
// programs and desktop entries, all below a ScratchFolder.

#include "support/ScratchFolder.h"

#include <string>
#include <string_view>
#include <sys/stat.h>

namespace zon::test {

// An Info.plist that names only the bundle identifier.
inline std::string infoPlistWithIdentifier(std::string_view identifier)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
           "\t<key>CFBundleIdentifier</key>\n\t<string>"
        + std::string(identifier) + "</string>\n</dict>\n</plist>\n";
}

// folder/relative/Contents/Info.plist naming identifier; answers the bundle's path.
inline std::string makeApplicationBundle(const ScratchFolder& folder, std::string_view relative, std::string_view identifier)
{
    folder.write(std::string(relative) + "/Contents/Info.plist", infoPlistWithIdentifier(identifier));
    return folder.file(relative);
}

// A shell script that does nothing, executable; answers its path.
inline std::string makeProgram(const ScratchFolder& folder, std::string_view relative)
{
    const std::string path = folder.write(relative, "#!/bin/sh\n");
    ::chmod(path.c_str(), 0755);
    return path;
}

// A desktop entry of an application with these "Key=Value" lines below its group header.
inline std::string desktopEntryText(std::string_view lines)
{
    return "[Desktop Entry]\nType=Application\n" + std::string(lines);
}

} // namespace zon::test
