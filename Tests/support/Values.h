#pragma once

// Short ways for tests to make values and to read them back as something gtest prints well.
// One meaning per name:
//   str(...)      a String, from UTF-8 or from UTF-16 units
//   utf8(string)  a String's UTF-8, "(nil)" for none
//   dataOf(...)   a Data holding the given bytes
//   textOf(...)   bytes as a std::string (a Data's, "(nil)" for none)
//   bytesOf(data) a Data's bytes as a vector, empty for none
//   spanOf(text)  a view of a text's bytes

#include "platform/values/Data.h"
#include "platform/values/String.h"

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zon::test {

using Bytes = std::vector<uint8_t>;

inline Ref<String> str(std::string_view utf8) { return String::stringWithUTF8String(utf8); }
inline Ref<String> str(std::u16string_view units) { return String::stringWithCharacters(units); }

inline std::string utf8(const String* string) { return string ? string->UTF8String() : "(nil)"; }

inline Ref<Data> dataOf(std::span<const uint8_t> bytes) { return Data::dataWithBytes(bytes.data(), bytes.size()); }
inline Ref<Data> dataOf(std::initializer_list<uint8_t> bytes) { return Data::dataWithBytes(bytes.begin(), bytes.size()); }
inline Ref<Data> dataOf(std::string_view text) { return Data::dataWithBytes(text.data(), text.size()); }

inline std::string textOf(std::span<const uint8_t> bytes) { return std::string(bytes.begin(), bytes.end()); }
inline std::string textOf(const Data* data) { return data ? textOf(data->span()) : "(nil)"; }

inline Bytes bytesOf(const Data* data) { return data ? Bytes(data->span().begin(), data->span().end()) : Bytes {}; }

inline std::span<const uint8_t> spanOf(std::string_view text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

} // namespace zon::test
