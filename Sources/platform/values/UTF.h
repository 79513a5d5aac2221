#pragma once

// Conversions between UTF-8 and UTF-16, fast on ASCII (16 bytes at a time). UTF-8 input is
// checked strictly (overlong forms, surrogates, values past U+10FFFF, stray continuation bytes
// and truncated sequences are invalid); UTF-16 output to UTF-8 turns lone surrogates into U+FFFD.

#include "platform/Export.h"
#include "platform/values/ByteVector.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zon::utf {

inline constexpr size_t kInvalid = static_cast<size_t>(-1);

// The number of UTF-16 units the UTF-8 text decodes to, or kInvalid.
ZON_EXPORT size_t utf16LengthOfUTF8(std::string_view utf8);
// Decodes text already checked by utf16LengthOfUTF8 into out (room for that many units).
ZON_EXPORT void convertValidUTF8ToUTF16(std::string_view utf8, char16_t* out);
// Checks and decodes in one pass into out, which has room for utf8.size() units; answers the
// number of units written, or kInvalid (out then holds a partial result).
ZON_EXPORT size_t convertUTF8ToUTF16(std::string_view utf8, char16_t* out);
// The offset of the lead byte of the first character that is not valid UTF-8, or utf8.size()
// when all of it is valid.
ZON_EXPORT size_t offsetOfInvalidUTF8(std::string_view utf8);

// Copies ascii to out (room for ascii.size() bytes) and answers true when every byte is ASCII;
// stops at the first block that is not and answers false.
ZON_EXPORT bool copyIfASCII(std::string_view ascii, char* out);
// Whether every byte is ASCII.
ZON_EXPORT bool isASCII(std::string_view bytes);
// Writes the units of ASCII text to out (room for ascii.size() units).
ZON_EXPORT void widenASCII(std::string_view ascii, char16_t* out);
// Whether the units equal the ASCII bytes at ascii (as many as there are units).
ZON_EXPORT bool equalsASCII(std::u16string_view units, const char* ascii);

// The number of UTF-8 bytes the UTF-16 text encodes to (a lone surrogate takes 3, as U+FFFD).
ZON_EXPORT size_t utf8LengthOfUTF16(std::u16string_view utf16);
// Encodes into out, which has room for utf8LengthOfUTF16 bytes; answers the end of the output.
ZON_EXPORT char* convertUTF16ToUTF8(std::u16string_view utf16, char* out);
ZON_EXPORT std::string utf16ToUTF8(std::u16string_view utf16);
// Appends the UTF-8 form to out, for callers that build text in one buffer.
ZON_EXPORT void appendUTF16ToUTF8(std::u16string_view utf16, std::string& out);
// The same for byte buffers (data, wire messages): long text is read from memory once and the
// buffer grows at most twice.
ZON_EXPORT void appendUTF16ToUTF8(std::u16string_view utf16, ByteVector& out);

// Writes the UTF-8 form of a Unicode scalar value (1 to 4 bytes) at out; answers the end.
inline char* encodeUTF8(char32_t code, char* out)
{
    if (code < 0x80) {
        *out++ = static_cast<char>(code);
        return out;
    }
    if (code < 0x800) {
        *out++ = static_cast<char>(0xC0 | (code >> 6));
    } else if (code < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (code >> 12));
        *out++ = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (code >> 18));
        *out++ = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    }
    *out++ = static_cast<char>(0x80 | (code & 0x3F));
    return out;
}

// Appends the UTF-8 form of a Unicode scalar value.
inline void appendUTF8(std::string& out, char32_t code)
{
    char bytes[4];
    out.append(bytes, encodeUTF8(code, bytes));
}

} // namespace zon::utf
