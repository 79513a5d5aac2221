#include "utilities/data/TXZonTLEUnicodeServiceUtilities.h"

#include "platform/values/Data.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace zon {

namespace {

constexpr bool isHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool isLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// The units of a string range. A non-empty range must lie inside the string (the first index
// outside raises NSRangeException, as characterAtIndex does); a nil string reads as zeros, as a
// message to nil answers 0.
class Units {
public:
    Units(const String* string, int32_t start, int32_t end)
    {
        if (!string || end <= start)
            return;
        if (start < 0)
            string->characterAtIndex(SIZE_MAX);
        if (static_cast<size_t>(end) > string->length())
            string->characterAtIndex(std::max(static_cast<size_t>(start), string->length()));
        units_ = string->characters();
    }
    char16_t operator[](int64_t index) const { return units_ ? units_[index] : 0; }

private:
    const char16_t* units_ = nullptr;
};

void appendUTF8(ByteVector& out, char16_t c)
{
    if (c < 0x80) {
        out.push_back(static_cast<uint8_t>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<uint8_t>(0xC0 | (c >> 6)));
        out.push_back(static_cast<uint8_t>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<uint8_t>(0xE0 | (c >> 12)));
        out.push_back(static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<uint8_t>(0x80 | (c & 0x3F)));
    }
}

// A surrogate pair's bytes: the UTF-8 of the two units (h << 10) & 0xFFFF and l & 0x3FF, cut to
// four bytes. When the first of them is itself a surrogate the text has no UTF-8 form and nothing
// is written.
void appendPairForm(ByteVector& out, char16_t high, char16_t low)
{
    const auto first = static_cast<char16_t>((high << 10) & 0xFFFF);
    const auto second = static_cast<char16_t>(low & 0x3FF);
    if (first >= 0xD800 && first <= 0xDFFF)
        return;
    ByteVector form;
    appendUTF8(form, first);
    appendUTF8(form, second);
    out.insert(out.end(), form.begin(), form.begin() + std::min<size_t>(form.size(), 4));
}

void appendTo(MutableData* buffer, const ByteVector& bytes)
{
    if (buffer)
        buffer->appendBytes_length(bytes.data(), bytes.size());
}

int32_t utf8Length(const Units& units, int32_t start, int32_t end)
{
    uint32_t count = 3;
    int64_t index = start;
    for (int64_t remaining = int64_t {end} - start; remaining > 0;) {
        const char16_t c = units[index];
        if (c < 0x80) {
            count += 1;
        } else if (c < 0x800) {
            count += 2;
        } else if (!isHighSurrogate(c) || remaining == 1) {
            count += 3;
        } else {
            count += isLowSurrogate(units[index + 1]) ? 4 : 3;
            index += 2;
            remaining -= 2;
            continue;
        }
        index += 1;
        remaining -= 1;
    }
    return static_cast<int32_t>(count);
}

void writeUTF8(const Units& units, int32_t start, int32_t end, ByteVector& out)
{
    out.insert(out.end(), {0xEF, 0xBB, 0xBF});
    int64_t index = start;
    for (int64_t remaining = int64_t {end} - start; remaining > 0;) {
        const char16_t c = units[index];
        if (!isHighSurrogate(c) || remaining == 1) {
            appendUTF8(out, c);
            index += 1;
            remaining -= 1;
        } else if (const char16_t next = units[index + 1]; isLowSurrogate(next)) {
            appendPairForm(out, c, next);
            index += 2;
            remaining -= 2;
        } else {
            // Moves on by one but counts two: the unit after the broken pair is written next and
            // the last unit of the range is not.
            out.insert(out.end(), {0xEF, 0xBF, 0xBD});
            index += 1;
            remaining -= 2;
        }
    }
}

} // namespace

int32_t TXZonTLEUnicodeServiceUtilities::CodeBOM_start_end_toBuffer_isUTF16(const String* string, int32_t start,
    int32_t end, MutableData* buffer, bool* isUTF16)
{
    if (isUTF16)
        *isUTF16 = false;
    const Units units(string, start, end);
    const int64_t count = int64_t {end} - start;

    bool narrow = true;
    for (int64_t i = start; i < end && narrow; ++i)
        narrow = units[i] <= 0xFF;
    const bool startsLikeUTF16Mark = count >= 2 && units[start] == 0xFE && units[start + 1] == 0xFF;

    ByteVector bytes;
    if (narrow && !startsLikeUTF16Mark) {
        bytes.reserve(static_cast<size_t>(std::max<int64_t>(count, 0)));
        for (int64_t i = start; i < end; ++i)
            bytes.push_back(static_cast<uint8_t>(units[i]));
        appendTo(buffer, bytes);
        return static_cast<int32_t>(count);
    }

    const int32_t utf8Count = utf8Length(units, start, end);
    const auto utf16Count = static_cast<int32_t>(static_cast<uint32_t>(2 * count + 2));
    if (utf8Count < utf16Count) {
        writeUTF8(units, start, end, bytes);
        appendTo(buffer, bytes);
        return utf8Count;
    }
    if (isUTF16)
        *isUTF16 = true;
    bytes.reserve(static_cast<size_t>(2 * count + 2));
    bytes.insert(bytes.end(), {0xFE, 0xFF});
    for (int64_t i = start; i < end; ++i) {
        bytes.push_back(static_cast<uint8_t>(units[i] >> 8));
        bytes.push_back(static_cast<uint8_t>(units[i] & 0xFF));
    }
    appendTo(buffer, bytes);
    return utf16Count;
}

int32_t TXZonTLEUnicodeServiceUtilities::GetUTF8BOMLength_start_end(const String* string, int32_t start, int32_t end)
{
    return utf8Length(Units(string, start, end), start, end);
}

void TXZonTLEUnicodeServiceUtilities::WriteUTF8BOM_start_end_toBuffer(const String* string, int32_t start, int32_t end,
    MutableData* buffer)
{
    ByteVector bytes;
    writeUTF8(Units(string, start, end), start, end, bytes);
    appendTo(buffer, bytes);
}

} // namespace zon
