#pragma once

#include "platform/Export.h"
#include "platform/system/SystemResult.h"

#include <string>
#include <string_view>

namespace zon {

// Makes dir (mode 0700) when missing, then checks without following a symbolic link that it is a
// directory of the effective user that nobody else can enter. A failure's text says which folder
// and what to do about it: for a folder of another user, ownerRemedy. Used for the folders other users must not be able to plant files in:
// the message-port folder and the per-user temporary folder.
ZON_EXPORT SystemResult<> ensurePrivateDirectory(const std::string& dir, std::string_view ownerRemedy);

} // namespace zon
