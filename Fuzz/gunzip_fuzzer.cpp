// Arbitrary bytes through gunzipWithZlib (nil or data, never a crash or a hang), and the same
// bytes compressed and inflated again must come back unchanged.

#include "extensions/NSData+ZonExtensions.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Corrupt input logs an error line per run; keep standard error for the fuzzer's reports.
    setenv("ZON_LOG_STDERR", "0", 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    zon::Ref<zon::Data> input = zon::Data::dataWithBytes(data, size);
    input->gunzipWithZlib();
    zon::Ref<zon::Data> compressed = input->gzipWithZlib();
    if (!compressed || !compressed->gunzipWithZlib()->isEqualToData(input))
        std::abort();
    return 0;
}
