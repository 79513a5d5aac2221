#pragma once

// Random bytes from the kernel's generator.

#include "platform/system/SystemResult.h"

#include <cstdint>
#include <span>

namespace zon {

// Fills bytes from getrandom(2), going on through interruptions and short reads.
ZON_EXPORT SystemResult<> fillRandomBytes(std::span<uint8_t> bytes);

} // namespace zon
