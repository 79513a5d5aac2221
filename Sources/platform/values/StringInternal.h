#pragma once

// Helpers shared by the string units; not installed.

#include "platform/values/String.h"

#include <string_view>
#include <vector>

namespace zon {

// Makes strings whose units are written straight into their tail-allocated storage.
class StringBuilder {
public:
    template <class Fill>
    static Ref<String> build(size_t length, Fill&& fill)
    {
        char16_t* units;
        Ref<String> result = String::allocate(length, &units);
        fill(units);
        return result;
    }
    static Ref<String> fromView(std::u16string_view units)
    {
        return String::stringWithCharacters(units.data(), units.size());
    }
    // Long ASCII text that lies in owner (which keeps it alive and unchanged) is not copied:
    // the string refers to it. Nil when the text is short or not ASCII.
    static Ref<String> borrowingLongASCII(std::string_view bytes, const Object* owner)
    {
        if (bytes.size() < String::kASCIIFormMinLength)
            return nullptr;
        return String::stringBorrowingASCII(bytes, owner);
    }
};

namespace text {

constexpr bool isLeadSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool isTrailSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// The code point starting at index (a lone surrogate is its own value); *units gets 1 or 2.
inline char32_t codePointAt(std::u16string_view s, size_t index, size_t* units)
{
    const char16_t c = s[index];
    if (isLeadSurrogate(c) && index + 1 < s.size() && isTrailSurrogate(s[index + 1])) {
        *units = 2;
        return 0x10000 + ((char32_t(c) - 0xD800) << 10) + (char32_t(s[index + 1]) - 0xDC00);
    }
    *units = 1;
    return c;
}

// The code point ending just before end; *units gets 1 or 2.
inline char32_t codePointBefore(std::u16string_view s, size_t end, size_t* units)
{
    const char16_t c = s[end - 1];
    if (isTrailSurrogate(c) && end >= 2 && isLeadSurrogate(s[end - 2])) {
        *units = 2;
        return 0x10000 + ((char32_t(s[end - 2]) - 0xD800) << 10) + (char32_t(c) - 0xDC00);
    }
    *units = 1;
    return c;
}

// Raises NSRangeException naming the operation when range does not lie within length units.
void checkRange(Range range, size_t length, const char* operation);
void checkIndex(size_t index, size_t length, const char* operation);

// The non-overlapping matches of target in range of text, in order; one at most when anchored.
std::vector<Range> findOccurrences(const String* text, const String* target, StringCompareOptions options, Range range);

// Decoding bytes of an encoding: the number of units, or utf::kInvalid; then the units.
size_t decodedLength(std::string_view bytes, StringEncoding encoding);
void decodeInto(std::string_view bytes, StringEncoding encoding, char16_t* out);

} // namespace text
} // namespace zon
