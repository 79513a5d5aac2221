// Reads arbitrary bytes as any image format gdk-pixbuf's loaders know: the size-prepared refusal, error exits, conversion.
// Checks that every answer is an error or an image within the (small) limits, premultiplied.

#include "ImageFuzzSupport.h"

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::decodeBothWays(data, size, readPixbuf);
    return 0;
}
