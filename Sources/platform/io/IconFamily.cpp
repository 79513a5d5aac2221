#include "platform/io/IconFamily.h"

#include "platform/io/BigEndianBytesInternal.h"

namespace zon {

using namespace bigEndian;

namespace {

constexpr uint32_t kIconFamilyType = 0x69636E73; // 'icns'
constexpr size_t kHeadSize = 8;

} // namespace

std::vector<uint8_t> encodeIconFamily(const std::vector<IconFamilyElement>& elements)
{
    std::vector<uint8_t> out;
    append32(out, kIconFamilyType);
    append32(out, 0);
    for (const auto& element : elements) {
        append32(out, element.type);
        append32(out, static_cast<uint32_t>(element.data.size() + kHeadSize));
        out.insert(out.end(), element.data.begin(), element.data.end());
    }
    store32(out, 4, static_cast<uint32_t>(out.size()));
    return out;
}

std::optional<std::vector<IconFamilyElement>> decodeIconFamily(std::span<const uint8_t> bytes)
{
    if (bytes.size() < kHeadSize || load32(bytes, 0) != kIconFamilyType)
        return std::nullopt;
    const uint32_t total = load32(bytes, 4);
    if (total < kHeadSize || total > bytes.size())
        return std::nullopt;
    std::vector<IconFamilyElement> elements;
    for (size_t at = kHeadSize; at < total;) {
        if (total - at < kHeadSize)
            return std::nullopt;
        const uint32_t length = load32(bytes, at + 4);
        if (length < kHeadSize || length > total - at)
            return std::nullopt;
        const auto body = bytes.subspan(at + kHeadSize, length - kHeadSize);
        elements.push_back({load32(bytes, at), {body.begin(), body.end()}});
        at += length;
    }
    return elements;
}

uint32_t pngIconElementType(int pixels)
{
    switch (pixels) {
    case 16: return 0x69637034;  // 'icp4'
    case 32: return 0x69637035;  // 'icp5'
    case 128: return 0x69633037; // 'ic07'
    case 256: return 0x69633038; // 'ic08'
    case 512: return 0x69633039; // 'ic09'
    default: return 0;
    }
}

} // namespace zon
