#pragma once

// Bytes of files for copy tests: what a file holds, and a recognisable pattern of any size.

#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>

namespace zon::test {

inline std::string fileContents(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// Bytes that differ from block to block, so that a block copied twice or left out shows.
inline std::string patternBytes(size_t size)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 131 + i / 4096) & 0xff);
    return bytes;
}

} // namespace zon::test
