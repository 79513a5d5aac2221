// Parses arbitrary bytes as a /proc stat line and checks what a parsed line promises: the name
// lies between the first "(" and the last ")", the state letter follows the ") ".

#include "platform/io/ProcessTableInternal.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    const auto parsed = zon::parseProcessStatLine(line);
    if (!parsed)
        return 0;
    const size_t open = line.find('(');
    const size_t close = line.rfind(')');
    if (parsed->name.data() != line.data() + open + 1 || parsed->name.size() != close - open - 1
        || line[close + 2] != parsed->state)
        std::abort();
    return 0;
}
