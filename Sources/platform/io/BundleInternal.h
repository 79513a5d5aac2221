#pragma once

// Where bundles are found, for the library's own units and tests.

#include "platform/Export.h"

#include <string>

namespace zon {

// The folder of the main bundle for the program at executable: the program's folder when it
// holds an Info.plist, else its parent (the folder above a parent named "Contents"), else
// <prefix>/share/<program> for a program in <prefix>/bin; with none, the program's folder.
ZON_EXPORT std::string mainBundleFolder(const std::string& executable);

} // namespace zon
