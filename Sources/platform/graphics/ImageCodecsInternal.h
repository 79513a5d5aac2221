#pragma once

// The image readers and writers. Image files come from anywhere: every reader takes any bytes,
// refuses what is larger than the limits below before allocating pixels, bounds the decoder's own
// memory, and never crashes on bad input. Decoded pixels are CGImage's layout (R, G, B, A,
// premultiplied), with EXIF orientation applied.

#include "platform/Export.h"
#include "platform/runtime/Ref.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zon {

class CGImage;

// One limit for every reader: images with more pixels or a longer side are refused unread.
inline constexpr uint64_t kMaxImagePixels = 256ull * 1024 * 1024;
inline constexpr uint32_t kMaxImageSide = 32768;
// What a decoder may allocate for itself besides the pixels it returns. libjpeg holds every
// coefficient of a progressive JPEG (width x height x components x 2 bytes) until the last scan,
// so progressive JPEGs of more than about 85 megapixels are refused.
inline constexpr size_t kMaxImageDecoderMemory = 512ull * 1024 * 1024;

enum class ImageFormat { jpeg, png, icns, other };

// What a file's headers say, read without decoding pixels.
struct ImageInfo {
    ImageFormat format = ImageFormat::other;
    // After EXIF orientation: a portrait photo stored sideways reports its upright size.
    uint32_t pixelWidth = 0;
    uint32_t pixelHeight = 0;
    // Dots per inch from the file (JFIF density, PNG pHYs, EXIF); 72 when it says nothing.
    double horizontalDPI = 72;
    double verticalDPI = 72;
};

enum class ImageDecodeError { none, unsupported, tooLarge, corrupt, outOfMemory, unreadable };

struct DecodedImage {
    Ref<CGImage> image;
    ImageInfo info;
    // The file ended early: the rows it had are decoded, the rest is transparent.
    bool truncated = false;
    ImageDecodeError error = ImageDecodeError::none;
    explicit operator bool() const { return image != nullptr; }
};

// The headers of any image the readers support; nullopt for other bytes.
ZON_EXPORT std::optional<ImageInfo> probeImage(std::span<const uint8_t> bytes);

// Decodes an image. With a box (both sides above 0) the caller means to scale the result to fit
// in it, so a reader may shrink while decoding (JPEG in the DCT domain, PNG rows box-averaged) as
// long as the result stays at least twice the fitted size; the caller scales the rest of the way.
// Without a box the image is decoded at its full size.
ZON_EXPORT DecodedImage decodeImageData(std::span<const uint8_t> bytes, uint32_t boxWidth = 0, uint32_t boxHeight = 0);
// The same, streaming from a file rather than holding it whole where the format allows.
ZON_EXPORT DecodedImage decodeImageFile(const std::string& path, uint32_t boxWidth = 0, uint32_t boxHeight = 0);
// PNG only, through the bounded PNG reader (a thumbnailer's output, a cache entry).
ZON_EXPORT DecodedImage decodePNGData(std::span<const uint8_t> bytes, uint32_t boxWidth = 0, uint32_t boxHeight = 0);

// JPEG at quality 100, no chroma subsampling, optimised Huffman tables. Alpha is dropped from the
// premultiplied colours, so transparent areas become black. Nullopt when encoding fails.
ZON_EXPORT std::optional<std::vector<uint8_t>> encodeJPEG(const CGImage& image);

struct PNGTextEntry {
    std::string key;
    std::string value;
};
// PNG, 8-bit RGBA (colours un-premultiplied), with these tEXt chunks.
ZON_EXPORT std::optional<std::vector<uint8_t>> encodePNG(const CGImage& image, std::span<const PNGTextEntry> text = {});

} // namespace zon
