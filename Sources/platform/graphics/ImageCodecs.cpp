// The dispatcher: picks a reader by the leading bytes. JPEG and PNG have readers of their own
// (DCT-domain shrinking, row-by-row decoding with limits we control); every other format goes to
// gdk-pixbuf's loaders behind the same limits.

#include "platform/graphics/ImageCodecsInternal.h"

#include "platform/graphics/ImageHeaderInternal.h"
#include "platform/graphics/ImageInputInternal.h"
#include "platform/graphics/ImageReadersInternal.h"
#include "platform/system/FileCallsInternal.h"

#include <cstring>

namespace zon {

namespace {

constexpr size_t kSniffBytes = 8;

ImageFormat sniffFormat(std::span<const uint8_t> prefix)
{
    static constexpr uint8_t kJPEG[] = {0xff, 0xd8, 0xff};
    if (prefix.size() >= sizeof kJPEG && std::memcmp(prefix.data(), kJPEG, sizeof kJPEG) == 0)
        return ImageFormat::jpeg;
    if (startsWithPNGSignature(prefix))
        return ImageFormat::png;
    if (prefix.size() >= 4 && std::memcmp(prefix.data(), "icns", 4) == 0)
        return ImageFormat::icns;
    return ImageFormat::other;
}

// An icon family's largest PNG element, which our PNG reader decodes within the limits; the
// element made for double-resolution screens has twice the standard resolution. Nullopt when no
// element holds a PNG.
std::optional<ImageInfo> probeIconFamily(std::span<const uint8_t> bytes)
{
    const std::optional<IconFamilyPNG> element = largestIconFamilyPNG(bytes);
    std::optional<ImageInfo> info = element ? probePNG(element->png) : std::nullopt;
    if (info) {
        info->format = ImageFormat::icns;
        info->horizontalDPI = info->verticalDPI = 72.0 * element->scale;
    }
    return info;
}

DecodedImage decodeIconFamily(std::span<const uint8_t> bytes, DecodeBox box, const ImageLimits& limits)
{
    const std::optional<IconFamilyPNG> element = largestIconFamilyPNG(bytes);
    ImageInput input = ImageInput::fromBytes(element ? element->png : bytes);
    if (!element)
        return readPixbuf(input, box, limits); // older elements (RLE, masks) only
    DecodedImage result = readPNG(input, box, limits);
    if (const std::optional<ImageInfo> info = probeIconFamily(bytes))
        result.info = *info;
    return result;
}

// Icon families are read whole (they hold a few small images); this bounds one that claims more.
constexpr size_t kMaxIconFamilyBytes = 64 * 1024 * 1024;

DecodedImage decode(ImageInput& input, DecodeBox box)
{
    const ImageLimits limits;
    switch (sniffFormat(input.peek(kSniffBytes))) {
    case ImageFormat::jpeg:
        return readJPEG(input, box, limits);
    case ImageFormat::png:
        return readPNG(input, box, limits);
    case ImageFormat::icns: {
        std::vector<uint8_t> bytes;
        for (std::span<const uint8_t> chunk; !(chunk = input.next()).empty() && bytes.size() <= kMaxIconFamilyBytes;)
            bytes.insert(bytes.end(), chunk.begin(), chunk.end());
        if (bytes.size() > kMaxIconFamilyBytes)
            return decodeFailure(ImageDecodeError::tooLarge);
        return decodeIconFamily(bytes, box, limits);
    }
    case ImageFormat::other:
        break;
    }
    return readPixbuf(input, box, limits);
}

} // namespace

std::optional<ImageInfo> probeImage(std::span<const uint8_t> bytes)
{
    switch (sniffFormat(bytes)) {
    case ImageFormat::jpeg:
        return probeJPEG(bytes);
    case ImageFormat::png:
        return probePNG(bytes);
    case ImageFormat::icns: {
        std::optional<ImageInfo> info = probeIconFamily(bytes);
        if (!info && (info = probePixbuf(bytes)))
            info->format = ImageFormat::icns;
        return info;
    }
    case ImageFormat::other:
        break;
    }
    return probePixbuf(bytes);
}

DecodedImage decodeImageData(std::span<const uint8_t> bytes, uint32_t boxWidth, uint32_t boxHeight)
{
    ImageInput input = ImageInput::fromBytes(bytes);
    return decode(input, {boxWidth, boxHeight});
}

DecodedImage decodeImageFile(const std::string& path, uint32_t boxWidth, uint32_t boxHeight)
{
    auto file = openFile(path, O_RDONLY);
    if (!file)
        return decodeFailure(ImageDecodeError::unreadable);
    ImageInput input = ImageInput::fromDescriptor(file.value().get());
    DecodedImage result = decode(input, {boxWidth, boxHeight});
    if (!result && input.failed())
        result.error = ImageDecodeError::unreadable;
    return result;
}

DecodedImage decodePNGData(std::span<const uint8_t> bytes, uint32_t boxWidth, uint32_t boxHeight)
{
    ImageInput input = ImageInput::fromBytes(bytes);
    return readPNG(input, {boxWidth, boxHeight}, ImageLimits {});
}

} // namespace zon
