#include "platform/values/Base64.h"

#include <array>
#include <bit>
#include <cstring>

#include <tmmintrin.h>

namespace zon::base64 {

namespace {

using namespace std::string_view_literals;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Every 12-bit value as its two base64 characters: two characters per lookup.
struct Pairs {
    char pairs[4096][2];
    constexpr Pairs() : pairs()
    {
        for (unsigned i = 0; i < 4096; ++i) {
            pairs[i][0] = kAlphabet[i >> 6];
            pairs[i][1] = kAlphabet[i & 0x3F];
        }
    }
};
constexpr Pairs kPairs;

// Encodes all of bytes: six bytes at a time through one 8-byte load while the load stays inside
// the bytes, then three at a time, then the padded last group.
char* encodePlain(std::span<const uint8_t> bytes, char* out)
{
    const auto put = [&out](uint32_t twelveBits) {
        std::memcpy(out, kPairs.pairs[twelveBits], 2);
        out += 2;
    };
    const uint8_t* in = bytes.data();
    const size_t size = bytes.size();
    size_t i = 0;
    for (; i + 8 <= size; i += 6) {
        uint64_t word;
        std::memcpy(&word, in + i, sizeof word);
        if constexpr (std::endian::native == std::endian::little)
            word = __builtin_bswap64(word); // the first byte in the top bits
        put(static_cast<uint32_t>(word >> 52));
        put(static_cast<uint32_t>(word >> 40) & 0xFFF);
        put(static_cast<uint32_t>(word >> 28) & 0xFFF);
        put(static_cast<uint32_t>(word >> 16) & 0xFFF);
    }
    for (; i + 3 <= size; i += 3) {
        const uint32_t triple = (in[i] << 16) | (in[i + 1] << 8) | in[i + 2];
        put(triple >> 12);
        put(triple & 0xFFF);
    }
    if (i < size) {
        const bool two = i + 1 < size;
        const uint32_t triple = (in[i] << 16) | (two ? in[i + 1] << 8 : 0);
        *out++ = kAlphabet[triple >> 18];
        *out++ = kAlphabet[(triple >> 12) & 0x3F];
        *out++ = two ? kAlphabet[(triple >> 6) & 0x3F] : '=';
        *out++ = '=';
    }
    return out;
}

// Encodes 12 bytes at a time while a 16-byte load stays inside the bytes: the bytes are spread so
// that each 32-bit lane holds one triple, the four 6-bit values of each lane are moved into bytes
// of their own by two multiplications, and a 16-entry shuffle table adds the offset of each
// value's range of the alphabet. Answers how many bytes it encoded. It pays for itself in the
// property-list write benchmark (BM_PropertyListWriteXML), whose records each carry data.
__attribute__((target("ssse3"))) size_t encodeBlocksSSSE3(std::span<const uint8_t> bytes, char*& out)
{
    const __m128i spread = _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    const __m128i rangeOffsets = _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    size_t i = 0;
    for (; i + 16 <= bytes.size(); i += 12, out += 16) {
        const __m128i loaded = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes.data() + i));
        const __m128i lanes = _mm_shuffle_epi8(loaded, spread);
        const __m128i high = _mm_mulhi_epu16(
            _mm_and_si128(lanes, _mm_set1_epi32(0x0fc0fc00)), _mm_set1_epi32(0x04000040));
        const __m128i low = _mm_mullo_epi16(
            _mm_and_si128(lanes, _mm_set1_epi32(0x003f03f0)), _mm_set1_epi32(0x01000010));
        const __m128i values = _mm_or_si128(high, low);
        // Range index: 13 for 0-25 (A-Z), 0 for 26-51 (a-z), 1-12 for 52-63 (digits, '+', '/').
        __m128i range = _mm_subs_epu8(values, _mm_set1_epi8(51));
        range = _mm_or_si128(range, _mm_and_si128(_mm_cmpgt_epi8(_mm_set1_epi8(26), values), _mm_set1_epi8(13)));
        const __m128i text = _mm_add_epi8(values, _mm_shuffle_epi8(rangeOffsets, range));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), text);
    }
    return i;
}

bool processorHasSSSE3()
{
    __builtin_cpu_init(); // static initialisers may run before the library's own
    return __builtin_cpu_supports("ssse3");
}
const bool kHasSSSE3 = processorHasSSSE3();

} // namespace

char* encode(std::span<const uint8_t> bytes, char* out)
{
    const size_t done = kHasSSSE3 ? encodeBlocksSSSE3(bytes, out) : 0;
    return encodePlain(bytes.subspan(done), out);
}

bool decode(std::string_view text, ByteVector& out)
{
    static constexpr int8_t kSpace = -2, kPad = -3;
    static constexpr auto kSextets = [] {
        std::array<int8_t, 256> t {};
        t.fill(-1);
        const std::string_view alphabet(kAlphabet, 64);
        for (size_t i = 0; i < alphabet.size(); ++i)
            t[static_cast<unsigned char>(alphabet[i])] = static_cast<int8_t>(i);
        for (char c : " \t\r\n"sv)
            t[static_cast<unsigned char>(c)] = kSpace;
        t['='] = kPad;
        return t;
    }();
    const auto sextet = [](const char* at) { return kSextets[static_cast<unsigned char>(*at)]; };
    out.resize(text.size() / 4 * 3 + 3);
    uint8_t* write = out.data();
    const char* at = text.data();
    const char* const end = at + text.size();
    uint32_t quad = 0;
    size_t sextets = 0;
    size_t padding = 0;
    while (at < end) {
        // Whole groups of four plain characters, the body of every line, go four at a time.
        if (sextets % 4 == 0 && !padding) {
            for (; end - at >= 4; at += 4) {
                const int8_t a = sextet(at), b = sextet(at + 1), c = sextet(at + 2), d = sextet(at + 3);
                if ((a | b | c | d) < 0)
                    break;
                const auto group = static_cast<uint32_t>(a << 18 | b << 12 | c << 6 | d);
                *write++ = static_cast<uint8_t>(group >> 16);
                *write++ = static_cast<uint8_t>(group >> 8);
                *write++ = static_cast<uint8_t>(group);
            }
            if (at == end)
                break;
        }
        const int8_t code = sextet(at++);
        if (code == kSpace)
            continue;
        if (code == kPad) {
            ++padding;
            continue;
        }
        if (code < 0 || padding)
            return false;
        quad = (quad << 6) | static_cast<uint32_t>(code);
        if (++sextets % 4 == 0) {
            *write++ = static_cast<uint8_t>(quad >> 16);
            *write++ = static_cast<uint8_t>(quad >> 8);
            *write++ = static_cast<uint8_t>(quad);
        }
    }
    const size_t tail = sextets % 4;
    if (tail == 1 || padding > 2 || (padding && (tail + padding) != 4))
        return false;
    if (tail == 2) {
        *write++ = static_cast<uint8_t>(quad >> 4);
    } else if (tail == 3) {
        *write++ = static_cast<uint8_t>(quad >> 10);
        *write++ = static_cast<uint8_t>(quad >> 2);
    }
    out.resize(static_cast<size_t>(write - out.data()));
    return true;
}

} // namespace zon::base64
