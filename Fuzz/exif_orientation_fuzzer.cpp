// Reads arbitrary bytes as a JPEG APP1 payload (EXIF), then turns a small image by what it found.
// Checks that the orientation is 1 to 8, the resolution positive, and the turned image whole.

#include "FuzzSupport.h"

#include "platform/graphics/ExifOrientationInternal.h"

#include <cmath>

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const ExifFacts facts = readExifFacts({data, size});
    fuzz::check(facts.orientation >= 1 && facts.orientation <= 8);
    fuzz::check(facts.horizontalDPI.has_value() == facts.verticalDPI.has_value());
    if (facts.horizontalDPI)
        fuzz::check(*facts.horizontalDPI > 0 && std::isfinite(*facts.horizontalDPI) && *facts.verticalDPI > 0);
    std::vector<uint8_t> pixels(3 * 2 * 4);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = uint8_t(i);
    const std::vector<uint8_t> turned = orientPixels(pixels, 3, 2, facts.orientation);
    fuzz::check(turned.size() == pixels.size());
    uint32_t sum = 0, turnedSum = 0;
    for (size_t i = 0; i < pixels.size(); ++i)
        sum += pixels[i], turnedSum += turned[i];
    fuzz::check(sum == turnedSum); // every pixel moved, none lost
    return 0;
}
