#pragma once

// Conversions between UTF-8 and UTF-16, fast on ASCII. UTF-8 input is checked strictly
// (overlong forms, surrogates, values past U+10FFFF and truncated sequences are invalid);
// UTF-16 output to UTF-8 turns lone surrogates into U+FFFD.

#include "platform/Export.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace zon::utf {

inline constexpr size_t kInvalid = static_cast<size_t>(-1);

// The number of UTF-16 units the UTF-8 text decodes to, or kInvalid.
ZON_EXPORT size_t utf16LengthOfUTF8(std::string_view utf8);
// Decodes text already checked by utf16LengthOfUTF8 into out (room for that many units).
ZON_EXPORT void convertValidUTF8ToUTF16(std::string_view utf8, char16_t* out);
ZON_EXPORT std::string utf16ToUTF8(std::u16string_view utf16);

} // namespace zon::utf
