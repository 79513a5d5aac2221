#pragma once

// Helpers of the Finder metadata tests: raw attribute and sidecar bytes, AppleDouble records
// written by hand the way other writers make them.

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <sys/xattr.h>
#include <vector>

namespace zon::test {

using Bytes = std::vector<uint8_t>;

inline std::optional<Bytes> attribute(const std::string& path, const char* name)
{
    Bytes value(1 << 16);
    const ssize_t n = ::getxattr(path.c_str(), name, value.data(), value.size());
    if (n < 0)
        return std::nullopt;
    value.resize(size_t(n));
    return value;
}

inline bool setAttribute(const std::string& path, const char* name, const Bytes& value)
{
    return ::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

inline std::optional<Bytes> fileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

inline void writeBytes(const std::string& path, const Bytes& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

inline std::string sidecarOf(const std::string& path)
{
    const auto p = std::filesystem::path(path);
    return (p.parent_path() / ("._" + p.filename().string())).string();
}

inline void put32(Bytes& out, size_t at, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        out[at + i] = uint8_t(value >> (24 - 8 * i));
}

inline uint32_t get32(const Bytes& in, size_t at)
{
    return uint32_t(in[at]) << 24 | uint32_t(in[at + 1]) << 16 | uint32_t(in[at + 2]) << 8 | in[at + 3];
}

// 32 bytes of Finder information with a type, creator and flags.
inline Bytes finderInfo(std::string_view type, std::string_view creator, uint16_t flags)
{
    Bytes info(32, 0);
    std::memcpy(&info[0], type.data(), 4);
    std::memcpy(&info[4], creator.data(), 4);
    info[8] = uint8_t(flags >> 8);
    info[9] = uint8_t(flags);
    return info;
}

// An AppleDouble v2 record with the given filler and entries laid out one after the other.
struct Entry {
    uint32_t id;
    Bytes body;
};
inline Bytes appleDouble(std::string_view filler, const std::vector<Entry>& entries)
{
    Bytes out(26 + 12 * entries.size(), 0);
    put32(out, 0, 0x00051607);
    put32(out, 4, 0x00020000);
    std::memcpy(&out[8], filler.data(), std::min<size_t>(filler.size(), 16));
    out[24] = 0;
    out[25] = uint8_t(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        put32(out, 26 + 12 * i, entries[i].id);
        put32(out, 26 + 12 * i + 4, uint32_t(out.size()));
        put32(out, 26 + 12 * i + 8, uint32_t(entries[i].body.size()));
        out.insert(out.end(), entries[i].body.begin(), entries[i].body.end());
    }
    return out;
}

// The 286-byte fork the original writes for a file without resources.
inline Bytes blankResourceFork()
{
    Bytes fork(286, 0);
    put32(fork, 0, 256);
    put32(fork, 4, 256);
    put32(fork, 8, 0);
    put32(fork, 12, 30);
    const std::string_view text = "This resource fork intentionally left blank   ";
    std::memcpy(&fork[16], text.data(), text.size());
    put32(fork, 256 + 24, 0x001C001E);
    fork[256 + 28] = 0xFF;
    fork[256 + 29] = 0xFF;
    return fork;
}

} // namespace zon::test
