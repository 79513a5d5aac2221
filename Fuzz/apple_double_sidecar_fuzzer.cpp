// The AppleDouble reader behind "._name" sidecars (any filler, FinderInfo entries of any length
// with an "ATTR" block after them): entries it answers lie inside the input.

#include "FuzzSupport.h"

#include "platform/io/AppleDoubleInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    auto entries = zon::appleDouble::parse({data, size});
    if (!entries || !entries->resourceFork)
        return 0;
    const auto fork = *entries->resourceFork;
    zon::fuzz::check(fork.data() >= data && fork.data() + fork.size() <= data + size);
    (void)zon::appleDouble::isBlankResourceFork(fork);
    // Written again as a sidecar, the record reads back to the same Finder info and fork.
    const auto rewritten = zon::appleDouble::encodeSidecar(entries->finderInfo.value_or(zon::FinderInfoBytes {}), fork);
    auto again = zon::appleDouble::parse(rewritten);
    zon::fuzz::check(again && again->resourceFork && std::equal(fork.begin(), fork.end(), again->resourceFork->begin(), again->resourceFork->end()));
    return 0;
}
