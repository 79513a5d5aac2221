#pragma once

#include "platform/values/String.h"

#include <string>

namespace zon {

// A string that changes in place. Run-time class NSMutableString.
//
// Its units live in a growable buffer and the base class's view (characters(), length()) is
// pointed at it again after every change, so String's operations see the current text. A view
// or pointer taken before a change is invalid after it. Not safe for concurrent mutation.
// copy() answers an immutable snapshot; equality and hash are those of the contents.
class ZON_EXPORT MutableString final : public String {
    ZON_OBJECT(MutableString, String)
public:
    // The factories of String, answering mutable strings.
    static Ref<MutableString> string();
    static Ref<MutableString> stringWithCapacity(size_t capacity);
    // Nil stays nil, as for String.
    static Ref<MutableString> stringWithString(const String* text);
    static Ref<MutableString> stringWithCharacters(const char16_t* units, size_t length);
    static Ref<MutableString> stringWithCharacters(std::u16string_view units)
    {
        return stringWithCharacters(units.data(), units.size());
    }
    static Ref<MutableString> stringWithUTF8String(std::string_view utf8);
    static Ref<MutableString> initWithBytes_length_encoding(const void* bytes, size_t length, StringEncoding encoding);

    // A nil string argument counts as "". Indexes and ranges past the end raise NSRangeException
    // and leave the text unchanged.
    void appendString(const String* text);
    void appendCharacters(const char16_t* units, size_t length);
    void appendCharacters(std::u16string_view units) { appendCharacters(units.data(), units.size()); }
    void insertString_atIndex(const String* text, size_t index);
    void deleteCharactersInRange(Range range);
    void replaceCharactersInRange_withString(Range range, const String* text);
    void setString(const String* text);
    // Answers the number of replacements.
    size_t replaceOccurrencesOfString_withString_options_range(const String* target, const String* replacement,
        StringCompareOptions options, Range range);

    // ---- NSMutableString(ZonExtensions) ---------------------------------------------------------
    // Deletes every character of the set, surrogate pairs tested as their code point; a pair
    // that a deletion joins is tested too.
    void deleteCharactersInSet(const CharacterSet* set);

    ~MutableString() override;

private:
    explicit MutableString(std::u16string units);
    // The units of text, copied when text is this string (its view would move under the edit).
    std::u16string_view argumentUnits(const String* text, std::u16string& holder) const;
    void didChange()
    {
        units_.store(buffer_.data(), std::memory_order_relaxed);
        length_ = buffer_.size();
    }

    std::u16string buffer_;
};

} // namespace zon
