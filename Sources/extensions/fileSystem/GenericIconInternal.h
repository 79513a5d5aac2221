#pragma once

#include "platform/io/IconFamily.h"

#include <string>
#include <vector>

namespace zon {

// The icon theme's generic icon for the content type of the item at path (GIO's guess from the
// name; folders are inode/directory): PNG elements at 16, 32, 128, 256 and 512 pixels, each
// taken from the first theme (Adwaita, then hicolor, under /usr/share/icons) that has the size.
// Empty when no theme has an image of any of those sizes.
std::vector<IconFamilyElement> genericIconElements(const std::string& path, bool isDirectory);

} // namespace zon
