// The icon family reader: an accepted family writes back to the bytes it was read from.

#include "FuzzSupport.h"

#include "platform/io/IconFamily.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    auto elements = zon::decodeIconFamily({data, size});
    if (!elements)
        return 0;
    const auto encoded = zon::encodeIconFamily(*elements);
    zon::fuzz::check(encoded.size() <= size && std::equal(encoded.begin(), encoded.end(), data));
    return 0;
}
