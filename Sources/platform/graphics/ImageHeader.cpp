#include "platform/graphics/ImageHeaderInternal.h"

#include "platform/io/BigEndianBytesInternal.h"

#include <array>
#include <cstring>
#include <string_view>

namespace zon {

namespace {

constexpr std::array<uint8_t, kPNGSignatureSize> kPNGSignature {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
// Largest dimension PNG allows.
constexpr uint32_t kMaxPNGDimension = 0x7fffffff;

struct PixelSize {
    uint32_t width = 0;
    uint32_t height = 0;
};

// The signature, then the first chunk, which must be IHDR: length 13, width, height.
std::optional<PixelSize> pngSize(std::span<const uint8_t> bytes)
{
    if (bytes.size() < 24 || !startsWithPNGSignature(bytes) || bigEndian::load32(bytes, 8) != 13
        || std::memcmp(bytes.data() + 12, "IHDR", 4) != 0)
        return std::nullopt;
    const PixelSize size {bigEndian::load32(bytes, 16), bigEndian::load32(bytes, 20)};
    if (size.width == 0 || size.height == 0 || size.width > kMaxPNGDimension || size.height > kMaxPNGDimension)
        return std::nullopt;
    return size;
}

struct IconType {
    std::string_view type;
    PixelSize pixels;
    uint32_t scale; // 2 for elements made for double-resolution screens
};

// The icon family's image element types (masks, the table of contents and the like are not images).
constexpr IconType kIconTypes[] = {
    {"icm#", {16, 12}, 1}, {"icm4", {16, 12}, 1}, {"icm8", {16, 12}, 1},
    {"ics#", {16, 16}, 1}, {"ics4", {16, 16}, 1}, {"ics8", {16, 16}, 1}, {"is32", {16, 16}, 1},
    {"icp4", {16, 16}, 1}, {"ic04", {16, 16}, 1}, {"icsb", {18, 18}, 1}, {"sb24", {24, 24}, 1},
    {"ICON", {32, 32}, 1}, {"ICN#", {32, 32}, 1}, {"icl4", {32, 32}, 1}, {"icl8", {32, 32}, 1},
    {"il32", {32, 32}, 1}, {"icp5", {32, 32}, 1}, {"ic05", {32, 32}, 1},
    {"ich#", {48, 48}, 1}, {"ich4", {48, 48}, 1}, {"ich8", {48, 48}, 1}, {"ih32", {48, 48}, 1},
    {"icp6", {64, 64}, 1}, {"it32", {128, 128}, 1}, {"ic07", {128, 128}, 1},
    {"ic08", {256, 256}, 1}, {"ic09", {512, 512}, 1},
    {"ic11", {32, 32}, 2}, {"icsB", {36, 36}, 2}, {"SB24", {48, 48}, 2}, {"ic12", {64, 64}, 2},
    {"ic13", {256, 256}, 2}, {"ic14", {512, 512}, 2}, {"ic10", {1024, 1024}, 2},
};

const IconType* iconType(std::span<const uint8_t> code)
{
    for (const IconType& known : kIconTypes)
        if (std::memcmp(known.type.data(), code.data(), 4) == 0)
            return &known;
    return nullptr;
}

// Elements: a 4-byte type and a 4-byte big-endian length that counts these 8 bytes, then the data.
// Calls visit(type, data) for each image element, in order, up to what cannot be walked.
template <class Visit>
void forEachImageElement(std::span<const uint8_t> bytes, Visit visit)
{
    const uint32_t total = bigEndian::load32(bytes, 4);
    if (total < 8 || total > bytes.size())
        return;
    bytes = bytes.first(total);
    for (size_t offset = 8; bytes.size() - offset >= 8;) {
        const uint32_t length = bigEndian::load32(bytes, offset + 4);
        if (length < 8 || length > bytes.size() - offset)
            break; // the rest cannot be walked; keep what was found before it
        if (const IconType* type = iconType(bytes.subspan(offset, 4)))
            visit(*type, bytes.subspan(offset + 8, length - 8));
        offset += length;
    }
}

std::optional<ImageHeader> iconFamilySize(std::span<const uint8_t> bytes)
{
    std::optional<ImageHeader> largest;
    uint64_t largestPixels = 0;
    forEachImageElement(bytes, [&](const IconType& type, std::span<const uint8_t> data) {
        const std::optional<PixelSize> png = pngSize(data);
        const PixelSize pixels = png ? *png : type.pixels;
        const uint64_t area = uint64_t(pixels.width) * pixels.height;
        if (area > largestPixels) {
            largestPixels = area;
            largest = ImageHeader {ImageContainer::icns, double(pixels.width) / type.scale, double(pixels.height) / type.scale};
        }
    });
    return largest;
}

} // namespace

bool startsWithPNGSignature(std::span<const uint8_t> bytes)
{
    return bytes.size() >= kPNGSignature.size() && std::memcmp(bytes.data(), kPNGSignature.data(), kPNGSignature.size()) == 0;
}

std::optional<ImageHeader> readImageHeader(std::span<const uint8_t> bytes)
{
    if (std::optional<PixelSize> png = pngSize(bytes))
        return ImageHeader {ImageContainer::png, double(png->width), double(png->height)};
    if (bytes.size() >= 8 && std::memcmp(bytes.data(), "icns", 4) == 0)
        return iconFamilySize(bytes);
    return std::nullopt;
}

std::optional<IconFamilyPNG> largestIconFamilyPNG(std::span<const uint8_t> bytes)
{
    if (bytes.size() < 8 || std::memcmp(bytes.data(), "icns", 4) != 0)
        return std::nullopt;
    std::optional<IconFamilyPNG> largest;
    uint64_t largestPixels = 0;
    forEachImageElement(bytes, [&](const IconType& type, std::span<const uint8_t> data) {
        const std::optional<PixelSize> png = pngSize(data);
        if (png && uint64_t(png->width) * png->height > largestPixels) {
            largestPixels = uint64_t(png->width) * png->height;
            largest = IconFamilyPNG {data, type.scale};
        }
    });
    return largest;
}

} // namespace zon
