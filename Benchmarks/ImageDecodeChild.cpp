// Decodes one image file into a box and exits, so that the image benchmarks measure our readers
// the way they measure the command-line tools beside them: a process of its own, its CPU time and
// peak resident size from wait4.
// Usage: ImageDecodeChild FILE BOX. Exit status 0 decoded, 2 refused as too large, 1 otherwise.

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"

#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 3)
        return 1;
    const auto box = uint32_t(std::atoi(argv[2]));
    const zon::DecodedImage decoded = zon::decodeImageFile(argv[1], box, box);
    if (decoded)
        return 0;
    return decoded.error == zon::ImageDecodeError::tooLarge ? 2 : 1;
}
