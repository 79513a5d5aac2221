#pragma once

// Base64 (the standard alphabet, '=' padding) of bytes.

#include "platform/Export.h"
#include "platform/values/ByteVector.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace zon::base64 {

// The number of characters that count bytes encode to, padding included.
constexpr size_t encodedLength(size_t count) { return (count + 2) / 3 * 4; }

// Writes the base64 form of bytes at out, which has room for encodedLength(bytes.size())
// characters; answers the end of the output.
ZON_EXPORT char* encode(std::span<const uint8_t> bytes, char* out);

// Decodes text into out (replacing its contents). White space (space, tab, CR, LF) may stand
// anywhere and padding may be left out, but nothing except padding and white space may follow
// padding. Answers false when the text is not base64 (out then holds a partial result).
ZON_EXPORT bool decode(std::string_view text, ByteVector& out);

} // namespace zon::base64
