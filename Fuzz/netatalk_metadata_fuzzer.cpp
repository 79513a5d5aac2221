// The netatalk metadata attribute: whatever an attribute held before, writing Finder info gives
// a 402-byte record that reads back to that Finder info.

#include "FuzzSupport.h"

#include "platform/io/AppleDoubleInternal.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    (void)zon::appleDouble::parse({data, size});
    zon::FinderInfoBytes info {};
    std::copy_n(data, std::min(size, info.size()), info.begin());
    const auto record = zon::appleDouble::encodeNetatalkMetadata(info, {data, size});
    zon::fuzz::check(record.size() == zon::appleDouble::kNetatalkMetadataSize);
    auto entries = zon::appleDouble::parse(record);
    zon::fuzz::check(entries && entries->finderInfo == info);
    return 0;
}
