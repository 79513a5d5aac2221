#pragma once

// What an image file's container says before anything is decoded: which container it is and the
// image's size. Image files come from anywhere, so the reader takes any bytes and answers nullopt
// for what it does not recognise; it reads headers only and allocates nothing.

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace zon {

enum class ImageContainer { png, icns };

struct ImageHeader {
    ImageContainer container;
    // In points (a point is one pixel at the standard resolution).
    double width = 0;
    double height = 0;
};

// PNG: the size in its IHDR chunk. Icon family ("icns"): its largest image, measured by the PNG
// header of an element that holds a PNG, else by the element type's known size; an element type
// made for double-resolution screens counts half its pixels in points. Nullopt for other bytes, a
// zero size, or an icon family without an image element.
ZON_EXPORT std::optional<ImageHeader> readImageHeader(std::span<const uint8_t> bytes);

// The 8-byte signature every PNG begins with; whether the bytes begin with it.
inline constexpr size_t kPNGSignatureSize = 8;
bool startsWithPNGSignature(std::span<const uint8_t> bytes);

// The PNG held by an icon family's largest element that holds one, and that element's scale (2
// for elements made for double-resolution screens); nullopt when no element holds a PNG.
struct IconFamilyPNG {
    std::span<const uint8_t> png;
    uint32_t scale = 1;
};
ZON_EXPORT std::optional<IconFamilyPNG> largestIconFamilyPNG(std::span<const uint8_t> bytes);

} // namespace zon
