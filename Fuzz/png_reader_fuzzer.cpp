// Reads arbitrary bytes as a PNG: libpng's error exits, the user limits, row-by-row box shrinking, interlacing.
// Checks that every answer is an error or an image within the (small) limits, premultiplied.

#include "ImageFuzzSupport.h"

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::decodeBothWays(data, size, readPNG);
    return 0;
}
