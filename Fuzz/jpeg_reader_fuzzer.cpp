// Reads arbitrary bytes as a JPEG: libjpeg's error exits, the memory cap, DCT scaling, CMYK and EXIF orientation.
// Checks that every answer is an error or an image within the (small) limits, premultiplied.

#include "ImageFuzzSupport.h"

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::decodeBothWays(data, size, readJPEG);
    return 0;
}
