#pragma once

// The parts of the system utilities that tests drive directly: the ID layout, and the sysfs tree
// the machine facts are read from.

#include "platform/Export.h"

#include <cstdint>
#include <string>

namespace zon {

// The unique system ID of a MAC address (48-bit number), an effective user ID and a prefix.
ZON_EXPORT uint64_t composeUniqueSystemID(uint64_t macAddress, uint32_t effectiveUserID, uint8_t prefix);

// Points the MAC and power look-ups at another sysfs tree; "" restores the kernel's own.
ZON_EXPORT void setSysfsRootForTesting(const std::string& root);

} // namespace zon
