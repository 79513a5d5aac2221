#include "platform/values/UTF.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <emmintrin.h>

namespace zon::utf {

namespace {

using Byte = unsigned char;

// Bit i set when byte i of the 16 at p is not ASCII.
unsigned nonASCIIMask16(const Byte* p)
{
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
}

// Whether the 8 units at p are all below 0x80.
bool allASCII8(const char16_t* p)
{
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i high = _mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80)));
    return _mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())) == 0xFFFF;
}

void widen16(const Byte* p, char16_t* out)
{
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(bytes, zero));
}

void narrow8(const char16_t* p, char* out)
{
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(units, units));
}

bool isLeadSurrogate(uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isTrailSurrogate(uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

} // namespace

namespace {

// Validates UTF-8 (see Unicode table 3-7) and, when Write, decodes it into out; answers the
// number of UTF-16 units or kInvalid, and when invalidAt is given, stores there the offset of the
// lead byte of the first invalid character. Counting, decoding and locating faults share this one
// routine so that they can never disagree about what is valid.
template <bool Write>
size_t decodeUTF8(std::string_view utf8, char16_t* out, size_t* invalidAt = nullptr)
{
    auto* const begin = reinterpret_cast<const Byte*>(utf8.data());
    auto* p = begin;
    auto* const end = p + utf8.size();
    char16_t* const start = out;
    size_t units = 0; // counted when not writing
    const auto invalid = [&] {
        if (invalidAt)
            *invalidAt = static_cast<size_t>(p - begin);
        return kInvalid;
    };
    auto emit = [&](uint32_t unit) {
        if constexpr (Write)
            *out++ = static_cast<char16_t>(unit);
        else
            ++units;
    };
    while (p < end) {
        // Blocks of ASCII go 16 bytes at a time.
        if (end - p >= 16) {
            const unsigned mask = nonASCIIMask16(p);
            if (!mask) {
                if constexpr (Write)
                    widen16(p, out), out += 16;
                else
                    units += 16;
                p += 16;
                continue;
            }
            for (int ascii = __builtin_ctz(mask); ascii > 0; --ascii)
                emit(*p++);
        }
        // Then one character at a time until ASCII comes back in bulk.
        while (p < end) {
            const uint32_t c = *p;
            if (c < 0x80) {
                emit(c);
                ++p;
                if (end - p >= 16 && !nonASCIIMask16(p))
                    break;
                continue;
            }
            const size_t left = static_cast<size_t>(end - p);
            if (c < 0xE0) {
                if (c < 0xC2 || left < 2 || (p[1] & 0xC0) != 0x80)
                    return invalid();
                emit(((c & 0x1F) << 6) | (p[1] & 0x3F));
                p += 2;
            } else if (c < 0xF0) {
                if (left < 3 || (p[1] & 0xC0) != 0x80 || (p[2] & 0xC0) != 0x80)
                    return invalid();
                const uint32_t cp = ((c & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F);
                if (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))
                    return invalid(); // overlong or surrogate
                emit(cp);
                p += 3;
            } else {
                if (c > 0xF4 || left < 4 || (p[1] & 0xC0) != 0x80 || (p[2] & 0xC0) != 0x80 || (p[3] & 0xC0) != 0x80)
                    return invalid();
                const uint32_t cp = ((c & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F);
                if (cp < 0x10000 || cp > 0x10FFFF)
                    return invalid(); // overlong or past the last code point
                emit(0xD800 + ((cp - 0x10000) >> 10));
                emit(0xDC00 + ((cp - 0x10000) & 0x3FF));
                p += 4;
            }
        }
    }
    if constexpr (Write)
        return static_cast<size_t>(out - start);
    else
        return units;
}

} // namespace

size_t utf16LengthOfUTF8(std::string_view utf8) { return decodeUTF8<false>(utf8, nullptr); }

void convertValidUTF8ToUTF16(std::string_view utf8, char16_t* out) { decodeUTF8<true>(utf8, out); }

size_t convertUTF8ToUTF16(std::string_view utf8, char16_t* out) { return decodeUTF8<true>(utf8, out); }

size_t offsetOfInvalidUTF8(std::string_view utf8)
{
    size_t invalidAt = utf8.size();
    decodeUTF8<false>(utf8, nullptr, &invalidAt);
    return invalidAt;
}

namespace {

// Whether every byte is ASCII; when Copy, the bytes are copied to out as they are checked (up to
// the block where a non-ASCII byte turns up).
template <bool Copy>
bool scanASCII(std::string_view bytes, char* out)
{
    auto* p = reinterpret_cast<const Byte*>(bytes.data());
    auto* const end = p + bytes.size();
    // 64 bytes a step: one test of the four blocks' top bits together.
    for (; end - p >= 64; p += 64) {
        __m128i blocks[4];
        for (int i = 0; i < 4; ++i)
            blocks[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * i));
        if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(blocks[0], blocks[1]), _mm_or_si128(blocks[2], blocks[3]))))
            return false;
        if constexpr (Copy) {
            for (int i = 0; i < 4; ++i)
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * i), blocks[i]);
            out += 64;
        }
    }
    for (; p < end; ++p) {
        if (*p >= 0x80)
            return false;
        if constexpr (Copy)
            *out++ = static_cast<char>(*p);
    }
    return true;
}

} // namespace

bool copyIfASCII(std::string_view ascii, char* out) { return scanASCII<true>(ascii, out); }

bool isASCII(std::string_view bytes) { return scanASCII<false>(bytes, nullptr); }

void widenASCII(std::string_view ascii, char16_t* out)
{
    auto* p = reinterpret_cast<const Byte*>(ascii.data());
    auto* const end = p + ascii.size();
    for (; end - p >= 16; p += 16, out += 16)
        widen16(p, out);
    while (p < end)
        *out++ = *p++;
}

bool equalsASCII(std::u16string_view units, const char* ascii)
{
    auto* p = reinterpret_cast<const Byte*>(ascii);
    size_t i = 0;
    for (; i + 16 <= units.size(); i += 16) {
        char16_t wide[16];
        widen16(p + i, wide);
        if (std::memcmp(wide, units.data() + i, sizeof wide) != 0)
            return false;
    }
    for (; i < units.size(); ++i) {
        if (units[i] != p[i])
            return false;
    }
    return true;
}

size_t utf8LengthOfUTF16(std::u16string_view utf16)
{
    const char16_t* p = utf16.data();
    const char16_t* end = p + utf16.size();
    size_t bytes = 0;
    // Without surrogates a unit takes 1 byte, 1 more from U+0080 and 1 more from U+0800; the
    // extras are summed per lane and added up before a lane can overflow.
    const __m128i zero = _mm_setzero_si128();
    __m128i extras = zero;
    size_t blocks = 0;
    auto flush = [&] {
        const __m128i sums = _mm_madd_epi16(extras, _mm_set1_epi16(1));
        alignas(16) int32_t lanes[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(lanes), sums);
        bytes += static_cast<size_t>(lanes[0]) + lanes[1] + lanes[2] + lanes[3];
        extras = zero;
        blocks = 0;
    };
    while (p < end) {
        if (end - p >= 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            const __m128i from800 = _mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xF800)));
            const __m128i surrogate = _mm_cmpeq_epi16(from800, _mm_set1_epi16(static_cast<short>(0xD800)));
            if (!_mm_movemask_epi8(surrogate)) {
                const __m128i from80 = _mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80)));
                // A comparison lane is -1 where the unit is below the limit, so 1 + lane is 1
                // exactly where it takes the extra byte.
                const __m128i one = _mm_set1_epi16(1);
                extras = _mm_add_epi16(extras, _mm_add_epi16(one, _mm_cmpeq_epi16(from80, zero)));
                extras = _mm_add_epi16(extras, _mm_add_epi16(one, _mm_cmpeq_epi16(from800, zero)));
                bytes += 8;
                p += 8;
                if (++blocks == 8192)
                    flush();
                continue;
            }
        }
        const uint32_t c = *p++;
        if (c < 0x80)
            bytes += 1;
        else if (c < 0x800)
            bytes += 2;
        else if (isLeadSurrogate(c) && p < end && isTrailSurrogate(*p)) {
            ++p;
            bytes += 4;
        } else
            bytes += 3;
    }
    flush();
    return bytes;
}

char* convertUTF16ToUTF8(std::u16string_view utf16, char* o)
{
    const char16_t* p = utf16.data();
    const char16_t* end = p + utf16.size();
    while (p < end) {
        if (end - p >= 8 && allASCII8(p)) {
            narrow8(p, o);
            p += 8;
            o += 8;
            continue;
        }
        // One unit at a time until ASCII comes back in bulk.
        while (p < end) {
            uint32_t c = *p++;
            if (c < 0x80) {
                *o++ = static_cast<char>(c);
                if (end - p >= 8 && allASCII8(p))
                    break;
                continue;
            }
            if (c < 0x800) {
                *o++ = static_cast<char>(0xC0 | (c >> 6));
                *o++ = static_cast<char>(0x80 | (c & 0x3F));
                continue;
            }
            if (c >= 0xD800 && c <= 0xDFFF) {
                if (isLeadSurrogate(c) && p < end && isTrailSurrogate(*p)) {
                    const uint32_t cp = 0x10000 + ((c - 0xD800) << 10) + (*p++ - 0xDC00);
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
    }
    return o;
}

void appendUTF16ToUTF8(std::u16string_view utf16, std::string& out)
{
    // Short text converts in one pass through the stack; long text is measured first so that
    // the string grows once.
    constexpr size_t kStackUnits = 512;
    if (utf16.size() <= kStackUnits) {
        char buffer[3 * kStackUnits];
        out.append(buffer, convertUTF16ToUTF8(utf16, buffer));
        return;
    }
    const size_t start = out.size();
    out.resize(start + utf8LengthOfUTF16(utf16));
    convertUTF16ToUTF8(utf16, out.data() + start);
}

void appendUTF16ToUTF8(std::u16string_view utf16, ByteVector& out)
{
    // A block at a time, so that what a block needs is done while it is in the cache. The
    // capacity is first one byte per unit and ASCII blocks are narrowed without being measured;
    // at the first other character the capacity becomes the exact length once, and from there
    // each block is measured, made room for and converted.
    constexpr size_t kBlockUnits = 16 * 1024;
    out.reserve(out.size() + utf16.size());
    bool sizedExactly = false;
    while (!utf16.empty()) {
        size_t take = std::min(utf16.size(), kBlockUnits);
        if (take < utf16.size() && isLeadSurrogate(utf16[take - 1]))
            --take; // a surrogate pair stays in one block
        std::u16string_view block = utf16.substr(0, take);
        utf16.remove_prefix(take);
        if (!sizedExactly) {
            const size_t at = out.size();
            out.resize(at + block.size());
            char* o = reinterpret_cast<char*>(out.data() + at);
            size_t ascii = 0;
            for (; ascii + 8 <= block.size() && allASCII8(block.data() + ascii); ascii += 8)
                narrow8(block.data() + ascii, o + ascii);
            for (; ascii < block.size() && block[ascii] < 0x80; ++ascii)
                o[ascii] = static_cast<char>(block[ascii]);
            out.resize(at + ascii);
            block.remove_prefix(ascii);
            if (block.empty())
                continue;
        }
        const size_t blockBytes = utf8LengthOfUTF16(block);
        if (!sizedExactly) {
            out.reserve(out.size() + blockBytes + utf8LengthOfUTF16(utf16));
            sizedExactly = true;
        }
        const size_t at = out.size();
        out.resize(at + blockBytes);
        convertUTF16ToUTF8(block, reinterpret_cast<char*>(out.data() + at));
    }
}

std::string utf16ToUTF8(std::u16string_view utf16)
{
    std::string out;
    appendUTF16ToUTF8(utf16, out);
    return out;
}

} // namespace zon::utf
