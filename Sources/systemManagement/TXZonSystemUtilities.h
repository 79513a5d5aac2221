#pragma once

#include "platform/Export.h"

#include <cstdint>

// The resident memory of the calling process: resident pages (/proc/self/statm) times the page
// size in bytes, 0 when that cannot be read; and the same in whole mebibytes (bytes >> 20).
extern "C" {
ZON_EXPORT uint64_t ZonResidentMemoryUsageBytes(void);
ZON_EXPORT uint64_t ZonResidentMemoryUsage(void);
}
