#include "systemManagement/TXZonSystemUtilities.h"

#include "platform/system/FileCallsInternal.h"

#include <algorithm>
#include <charconv>

using namespace zon;

uint64_t ZonResidentMemoryUsageBytes(void)
{
    // "size resident shared text lib data dt", in pages.
    auto file = openFile("/proc/self/statm", O_RDONLY);
    if (!file)
        return 0;
    uint8_t bytes[128];
    auto read = readSome(file.value().get(), bytes);
    if (!read || read.value() == 0)
        return 0;
    const char* text = reinterpret_cast<const char*>(bytes);
    const char* end = text + read.value();
    const char* space = std::find(text, end, ' ');
    uint64_t pages = 0;
    if (space == end || std::from_chars(space + 1, end, pages).ec != std::errc())
        return 0;
    return pages * memoryPageSize();
}

uint64_t ZonResidentMemoryUsage(void) { return ZonResidentMemoryUsageBytes() >> 20; }
