#pragma once

// The fixed table between Windows locale codes and the suite's locale identifiers.
//
// Each row holds a code and a key: the identifier's language letters and country letters packed
// big-endian into four bytes ('e','n','U','S'; 'e','n',0,0 without a country). The key
// 0xFFFFFFFF marks a code that has no identifier. Rows keep their order: a look-up by key takes
// the first row that matches, which is how "en" finds 0x0009 and not 0x2409.

#include "platform/Export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zon {
class String;
}

namespace zon::localecodes {

struct Row {
    uint32_t code;
    uint32_t key;
};

inline constexpr size_t kRowCount = 249;
inline constexpr uint32_t kNoIdentifierKey = 0xFFFFFFFF;

const std::array<Row, kRowCount>& rows();

// The index of the first row whose key is key.
std::optional<size_t> firstRowWithKey(uint32_t key);
// The index of the row that holds code (the first one for the code 0, which two rows share).
std::optional<size_t> rowWithCode(uint32_t code);

// The four characters of a key, first byte first.
inline std::array<uint8_t, 4> keyCharacters(uint32_t key)
{
    return {uint8_t(key >> 24), uint8_t(key >> 16), uint8_t(key >> 8), uint8_t(key)};
}

// The key of a language code and an optional country code: each character shifted in from the
// right, 32 bits kept; without a country the language's key moves up by two bytes.
inline uint32_t keyForCodes(std::string_view language, std::optional<std::string_view> country)
{
    uint32_t key = 0;
    for (char c : language)
        key = (key << 8) + uint8_t(c);
    if (!country)
        return key << 16;
    for (char c : *country)
        key = (key << 8) + uint8_t(c);
    return key;
}

// The key of an identifier's language and country as the locale parser splits it (NULs ignored);
// 0 when it has no language. keyForIdentifier reads plain "ll" and "ll_CC" identifiers without
// the parser; both answer the same for every identifier.
ZON_EXPORT uint32_t keyForIdentifier(const String* identifier);
ZON_EXPORT uint32_t keyForIdentifierThroughParser(const String* identifier);

} // namespace zon::localecodes
