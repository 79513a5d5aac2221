#pragma once

// Image containers made byte by byte: PNG headers and icon families (".icns").

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace zon::test {

inline std::string bigEndian32(uint32_t value)
{
    return {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
}

// The PNG signature and an IHDR chunk (its CRC left zero: nothing here checks it).
inline std::string pngHeader(uint32_t width, uint32_t height)
{
    return std::string("\x89PNG\r\n\x1a\n", 8) + bigEndian32(13) + "IHDR" + bigEndian32(width) + bigEndian32(height)
        + std::string("\x08\x06\x00\x00\x00", 5) + bigEndian32(0);
}

// One element of an icon family: its type, its length with the 8 header bytes, its data.
inline std::string iconElement(std::string_view type, std::string_view data)
{
    return std::string(type) + bigEndian32(uint32_t(data.size() + 8)) + std::string(data);
}

inline std::string iconFamily(std::initializer_list<std::string> elements)
{
    std::string body;
    for (const std::string& element : elements)
        body += element;
    return "icns" + bigEndian32(uint32_t(body.size() + 8)) + body;
}

} // namespace zon::test
