#pragma once

// Images for the reader and writer tests: bitmaps with known pixels, files written with them or
// with outside tools, and the pixel comparisons the tests make.

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "support/ScratchFolder.h"
#include "utilities/CodecTestSupport.h"

#include <cmath>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace zon::test {

struct RGBA {
    uint8_t r = 0, g = 0, b = 0, a = 0;
    bool operator==(const RGBA&) const = default;
};

inline constexpr RGBA kRed {255, 0, 0, 255};
inline constexpr RGBA kGreen {0, 255, 0, 255};
inline constexpr RGBA kBlue {0, 0, 255, 255};
inline constexpr RGBA kWhite {255, 255, 255, 255};

inline std::ostream& operator<<(std::ostream& out, const RGBA& p)
{
    return out << "(" << int(p.r) << ", " << int(p.g) << ", " << int(p.b) << ", " << int(p.a) << ")";
}

// An opaque bitmap whose pixel at (x, y) is colour(x, y).
inline Ref<CGImage> bitmap(size_t width, size_t height, const std::function<RGBA(size_t, size_t)>& colour)
{
    std::vector<uint8_t> pixels(width * height * 4);
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x) {
            const RGBA p = colour(x, y);
            uint8_t* out = pixels.data() + (y * width + x) * 4;
            out[0] = p.r, out[1] = p.g, out[2] = p.b, out[3] = p.a;
        }
    return CGImage::imageWithPixels(width, height, std::move(pixels));
}

// A smooth, photo-like gradient, which JPEG keeps well.
inline Ref<CGImage> gradient(size_t width, size_t height)
{
    return bitmap(width, height, [&](size_t x, size_t y) {
        return RGBA {uint8_t(x * 255 / width), uint8_t(y * 255 / height), uint8_t(128 + 64 * std::sin(double(x + y) / 40)), 255};
    });
}

inline RGBA pixelAt(const CGImage& image, size_t x, size_t y)
{
    const uint8_t* p = image.bytes() + y * image.bytesPerRow() + x * 4;
    return {p[0], p[1], p[2], p[3]};
}

inline bool near(RGBA a, RGBA b, int tolerance)
{
    return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance && std::abs(a.b - b.b) <= tolerance
        && std::abs(a.a - b.a) <= tolerance;
}

// Peak signal-to-noise ratio of the colour channels, in dB.
inline double psnr(const CGImage& a, const CGImage& b)
{
    double squares = 0;
    size_t count = 0;
    for (size_t i = 0; i < a.byteCount(); ++i) {
        if (i % 4 == 3)
            continue;
        const double d = double(a.bytes()[i]) - b.bytes()[i];
        squares += d * d;
        ++count;
    }
    return squares == 0 ? INFINITY : 10 * std::log10(255.0 * 255.0 / (squares / double(count)));
}

inline std::vector<uint8_t> fileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::string writeBytes(const ScratchFolder& folder, const std::string& name, const std::vector<uint8_t>& bytes)
{
    return folder.write(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

} // namespace zon::test
