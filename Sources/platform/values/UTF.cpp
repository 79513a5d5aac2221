#include "platform/values/UTF.h"

#include <cstdint>
#include <cstring>

namespace zon::utf {

namespace {

bool isContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Length in bytes of the valid sequence at p, or 0.
size_t sequenceLength(const unsigned char* p, const unsigned char* end)
{
    const unsigned char c = p[0];
    const size_t left = static_cast<size_t>(end - p);
    if (c < 0x80)
        return 1;
    if (c >= 0xC2 && c <= 0xDF)
        return left >= 2 && isContinuation(p[1]) ? 2 : 0;
    if (c >= 0xE0 && c <= 0xEF) {
        if (left < 3 || !isContinuation(p[1]) || !isContinuation(p[2]))
            return 0;
        if (c == 0xE0 && p[1] < 0xA0)
            return 0; // overlong
        if (c == 0xED && p[1] >= 0xA0)
            return 0; // surrogate
        return 3;
    }
    if (c >= 0xF0 && c <= 0xF4) {
        if (left < 4 || !isContinuation(p[1]) || !isContinuation(p[2]) || !isContinuation(p[3]))
            return 0;
        if (c == 0xF0 && p[1] < 0x90)
            return 0; // overlong
        if (c == 0xF4 && p[1] >= 0x90)
            return 0; // past U+10FFFF
        return 4;
    }
    return 0;
}

bool allASCII8(const unsigned char* p)
{
    uint64_t word;
    std::memcpy(&word, p, 8);
    return (word & 0x8080808080808080ULL) == 0;
}

} // namespace

size_t utf16LengthOfUTF8(std::string_view utf8)
{
    auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
    auto* end = p + utf8.size();
    size_t units = 0;
    while (p < end) {
        if (end - p >= 8 && allASCII8(p)) {
            p += 8;
            units += 8;
            continue;
        }
        const size_t length = sequenceLength(p, end);
        if (!length)
            return kInvalid;
        units += length == 4 ? 2 : 1;
        p += length;
    }
    return units;
}

void convertValidUTF8ToUTF16(std::string_view utf8, char16_t* out)
{
    auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
    auto* end = p + utf8.size();
    while (p < end) {
        if (end - p >= 8 && allASCII8(p)) {
            for (int i = 0; i < 8; ++i)
                *out++ = p[i];
            p += 8;
            continue;
        }
        const unsigned char c = *p;
        if (c < 0x80) {
            *out++ = c;
            p += 1;
        } else if (c < 0xE0) {
            *out++ = static_cast<char16_t>(((c & 0x1F) << 6) | (p[1] & 0x3F));
            p += 2;
        } else if (c < 0xF0) {
            *out++ = static_cast<char16_t>(((c & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F));
            p += 3;
        } else {
            uint32_t cp = ((c & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F);
            cp -= 0x10000;
            *out++ = static_cast<char16_t>(0xD800 + (cp >> 10));
            *out++ = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
            p += 4;
        }
    }
}

std::string utf16ToUTF8(std::u16string_view utf16)
{
    std::string out;
    out.resize(utf16.size() * 3);
    char* o = out.data();
    const char16_t* p = utf16.data();
    const char16_t* end = p + utf16.size();
    while (p < end) {
        uint32_t c = *p++;
        if (c < 0x80) {
            *o++ = static_cast<char>(c);
            continue;
        }
        if (c < 0x800) {
            *o++ = static_cast<char>(0xC0 | (c >> 6));
            *o++ = static_cast<char>(0x80 | (c & 0x3F));
            continue;
        }
        if (c >= 0xD800 && c <= 0xDFFF) {
            if (c <= 0xDBFF && p < end && *p >= 0xDC00 && *p <= 0xDFFF) {
                uint32_t cp = 0x10000 + ((c - 0xD800) << 10) + (*p++ - 0xDC00);
                *o++ = static_cast<char>(0xF0 | (cp >> 18));
                *o++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
                *o++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
                *o++ = static_cast<char>(0x80 | (cp & 0x3F));
                continue;
            }
            c = 0xFFFD; // lone surrogate
        }
        *o++ = static_cast<char>(0xE0 | (c >> 12));
        *o++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *o++ = static_cast<char>(0x80 | (c & 0x3F));
    }
    out.resize(static_cast<size_t>(o - out.data()));
    return out;
}

} // namespace zon::utf
