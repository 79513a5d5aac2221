#pragma once

// Big-endian fields of the original platform's on-disk records (resource files, AppleDouble).

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zon::bigEndian {

inline uint16_t load16(std::span<const uint8_t> bytes, size_t at)
{
    return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

inline uint32_t load24(std::span<const uint8_t> bytes, size_t at)
{
    return uint32_t(bytes[at]) << 16 | uint32_t(bytes[at + 1]) << 8 | bytes[at + 2];
}

inline uint32_t load32(std::span<const uint8_t> bytes, size_t at)
{
    return uint32_t(load16(bytes, at)) << 16 | load16(bytes, at + 2);
}

inline void store16(std::span<uint8_t> bytes, size_t at, uint16_t value)
{
    bytes[at] = static_cast<uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<uint8_t>(value);
}

inline void store24(std::span<uint8_t> bytes, size_t at, uint32_t value)
{
    bytes[at] = static_cast<uint8_t>(value >> 16);
    store16(bytes, at + 1, static_cast<uint16_t>(value));
}

inline void store32(std::span<uint8_t> bytes, size_t at, uint32_t value)
{
    store16(bytes, at, static_cast<uint16_t>(value >> 16));
    store16(bytes, at + 2, static_cast<uint16_t>(value));
}

inline void append32(std::vector<uint8_t>& out, uint32_t value)
{
    out.resize(out.size() + 4);
    store32(out, out.size() - 4, value);
}

} // namespace zon::bigEndian
