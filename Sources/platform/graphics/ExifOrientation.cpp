#include "platform/graphics/ExifOrientationInternal.h"

#include <cstring>

namespace zon {

namespace {

constexpr uint16_t kOrientationTag = 0x0112;
constexpr uint16_t kXResolutionTag = 0x011a;
constexpr uint16_t kYResolutionTag = 0x011b;
constexpr uint16_t kResolutionUnitTag = 0x0128;
constexpr uint16_t kShortType = 3;
constexpr uint16_t kRationalType = 5;
constexpr size_t kEntrySize = 12;

// The TIFF structure inside the payload, in the byte order its header names.
class TIFFView {
public:
    TIFFView(std::span<const uint8_t> bytes, bool bigEndian) : bytes_(bytes), bigEndian_(bigEndian) {}

    bool has(size_t offset, size_t count) const { return offset <= bytes_.size() && count <= bytes_.size() - offset; }
    uint16_t u16(size_t offset) const
    {
        const uint8_t* p = bytes_.data() + offset;
        return bigEndian_ ? uint16_t(p[0] << 8 | p[1]) : uint16_t(p[1] << 8 | p[0]);
    }
    uint32_t u32(size_t offset) const
    {
        const uint8_t* p = bytes_.data() + offset;
        return bigEndian_ ? uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]
                          : uint32_t(p[3]) << 24 | uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | p[0];
    }
    // An unsigned RATIONAL at offset, as a positive number.
    std::optional<double> rational(size_t offset) const
    {
        if (!has(offset, 8) || u32(offset + 4) == 0 || u32(offset) == 0)
            return std::nullopt;
        return double(u32(offset)) / u32(offset + 4);
    }

private:
    std::span<const uint8_t> bytes_;
    bool bigEndian_;
};

} // namespace

ExifFacts readExifFacts(std::span<const uint8_t> app1)
{
    ExifFacts facts;
    if (app1.size() < 14 || std::memcmp(app1.data(), "Exif\0\0", 6) != 0)
        return facts;
    const std::span<const uint8_t> tiff = app1.subspan(6);
    bool bigEndian;
    if (std::memcmp(tiff.data(), "II*\0", 4) == 0)
        bigEndian = false;
    else if (std::memcmp(tiff.data(), "MM\0*", 4) == 0)
        bigEndian = true;
    else
        return facts;
    const TIFFView view(tiff, bigEndian);
    const uint32_t ifd = view.u32(4);
    if (!view.has(ifd, 2))
        return facts;
    const size_t count = view.u16(ifd);
    std::optional<double> x, y;
    uint16_t unit = 2; // inches unless the file says centimetres
    for (size_t i = 0; i < count && view.has(ifd + 2 + i * kEntrySize, kEntrySize); ++i) {
        const size_t entry = ifd + 2 + i * kEntrySize;
        const uint16_t tag = view.u16(entry);
        const uint16_t type = view.u16(entry + 2);
        if (tag == kOrientationTag && type == kShortType) {
            const uint16_t value = view.u16(entry + 8);
            if (value >= 1 && value <= 8)
                facts.orientation = value;
        } else if (tag == kResolutionUnitTag && type == kShortType) {
            unit = view.u16(entry + 8);
        } else if ((tag == kXResolutionTag || tag == kYResolutionTag) && type == kRationalType) {
            (tag == kXResolutionTag ? x : y) = view.rational(view.u32(entry + 8));
        }
    }
    if (x && y && (unit == 2 || unit == 3)) {
        const double perInch = unit == 3 ? 2.54 : 1;
        facts.horizontalDPI = *x * perInch;
        facts.verticalDPI = *y * perInch;
    }
    return facts;
}

std::vector<uint8_t> orientPixels(std::vector<uint8_t> pixels, uint32_t width, uint32_t height, int orientation)
{
    if (orientation < 2 || orientation > 8)
        return pixels;
    const bool swaps = orientationSwapsSides(orientation);
    const size_t outWidth = swaps ? height : width;
    std::vector<uint8_t> out(pixels.size());
    for (uint32_t sy = 0; sy < height; ++sy) {
        const uint8_t* row = pixels.data() + size_t(sy) * width * 4;
        for (uint32_t sx = 0; sx < width; ++sx) {
            size_t dx = sx, dy = sy;
            switch (orientation) {
            case 2: dx = width - 1 - sx; break; // mirrored
            case 3: dx = width - 1 - sx; dy = height - 1 - sy; break; // upside down
            case 4: dy = height - 1 - sy; break; // mirrored upside down
            case 5: dx = sy; dy = sx; break; // transposed
            case 6: dx = height - 1 - sy; dy = sx; break; // a quarter turn clockwise
            case 7: dx = height - 1 - sy; dy = width - 1 - sx; break; // transverse
            case 8: dx = sy; dy = width - 1 - sx; break; // a quarter turn anticlockwise
            }
            std::memcpy(out.data() + (dy * outWidth + dx) * 4, row + size_t(sx) * 4, 4);
        }
    }
    return out;
}

} // namespace zon
