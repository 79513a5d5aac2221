#pragma once

#include "platform/Export.h"

#include <cstdint>

namespace zon {

class MutableData;
class String;

// The byte form of a string value in a TLE field: one byte per character when every character
// fits in 8 bits, otherwise UTF-8 or UTF-16 big-endian behind their byte-order marks, whichever
// is shorter (a tie goes to UTF-16). Every operation works on the UTF-16 units [start, end) of the
// string; an index outside the string raises NSRangeException before anything is appended, and a
// nil string reads as zero units.
//
// Two properties of the UTF-8 writer are part of the format the devices expect and are kept:
// after a high surrogate that is not followed by a low one it writes U+FFFD, moves on by one unit
// but counts two, so the last unit of the range is not written; and a surrogate pair h, l is
// written as the first four bytes of the UTF-8 of the two units (h << 10) & 0xFFFF and l & 0x3FF,
// not as the code point's own four bytes. GetUTF8BOMLength counts a broken pair as 3 bytes for
// both units, so after one the count and the bytes written differ.
class ZON_EXPORT TXZonTLEUnicodeServiceUtilities final {
public:
    TXZonTLEUnicodeServiceUtilities() = delete;

    // Appends the chosen form and answers its byte count: end - start for single bytes (negative,
    // with nothing appended, when end < start), GetUTF8BOMLength for UTF-8, 2 * (end - start) + 2
    // for UTF-16. *isUTF16 tells whether UTF-16 was chosen.
    static int32_t CodeBOM_start_end_toBuffer_isUTF16(const String* string, int32_t start, int32_t end,
        MutableData* buffer, bool* isUTF16);
    // The byte count of the UTF-8 form with its 3-byte mark.
    static int32_t GetUTF8BOMLength_start_end(const String* string, int32_t start, int32_t end);
    // Appends 0xEF 0xBB 0xBF and the UTF-8 form.
    static void WriteUTF8BOM_start_end_toBuffer(const String* string, int32_t start, int32_t end, MutableData* buffer);
};

} // namespace zon
