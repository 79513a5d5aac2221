#pragma once

// The classic Mac OS Roman 8-bit encoding, which the original platform's on-disk records (alias
// records, resource names) use for their short names.

#include "platform/Export.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zon {

// At most maxBytes bytes of text in Mac OS Roman; characters it lacks become '?'. A character is
// never cut in half: Mac OS Roman has one byte per character.
ZON_EXPORT std::string macRomanFromUTF16(std::u16string_view text, size_t maxBytes);
// All of text in Mac OS Roman; nullopt when a character has no Mac OS Roman form.
ZON_EXPORT std::optional<std::string> exactMacRomanFromUTF16(std::u16string_view text);
ZON_EXPORT std::u16string utf16FromMacRoman(std::string_view bytes);

} // namespace zon
