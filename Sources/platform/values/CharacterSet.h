#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/Range.h"

#include <cstdint>
#include <memory>

namespace zon {

class String;

// An immutable set of Unicode code points, for searching, splitting and trimming strings.
// Run-time class NSCharacterSet. The shared standard sets are immortal and answered borrowed.
// Safe to read from any thread.
class ZON_EXPORT CharacterSet final : public Object {
    ZON_OBJECT(CharacterSet, Object)
public:
    // Space separators (general category Zs) and the tab.
    static CharacterSet* whitespaceCharacterSet();
    // U+000A-U+000D, U+0085, U+2028 and U+2029.
    static CharacterSet* newlineCharacterSet();
    static CharacterSet* whitespaceAndNewlineCharacterSet();
    // Decimal digits of every script (Nd).
    static CharacterSet* decimalDigitCharacterSet();
    // Letters and marks (L*, M*).
    static CharacterSet* letterCharacterSet();
    // Letters, marks and numbers (L*, M*, N*).
    static CharacterSet* alphanumericCharacterSet();
    // Punctuation (P*).
    static CharacterSet* punctuationCharacterSet();
    // Uppercase and titlecase letters (Lu, Lt); lowercase letters (Ll).
    static CharacterSet* uppercaseLetterCharacterSet();
    static CharacterSet* lowercaseLetterCharacterSet();

    // The code points of text (a surrogate pair adds its code point, a lone surrogate itself).
    static Ref<CharacterSet> characterSetWithCharactersInString(const String* text);
    // The code points location ..< location + length.
    static Ref<CharacterSet> characterSetWithRange(Range range);
    // Every code point (surrogates included) that is not in this set.
    Ref<CharacterSet> invertedSet() const;

    bool characterIsMember(char16_t character) const { return longCharacterIsMember(character); }
    bool longCharacterIsMember(char32_t character) const
    {
        if (character < 128)
            return (ascii_[character >> 6] >> (character & 63)) & 1;
        return containsNonASCII(character);
    }

    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<Object> copy() const override;

    ~CharacterSet() override;

private:
    struct Storage;
    explicit CharacterSet(std::unique_ptr<Storage> storage);
    static Ref<CharacterSet> withPattern(const char16_t* pattern);
    static CharacterSet* sharedWithPattern(const char16_t* pattern);
    bool containsNonASCII(char32_t character) const;

    std::unique_ptr<Storage> storage_;
    // Membership of U+0000-U+007F, the common case of every lookup.
    uint64_t ascii_[2] = {0, 0};
};

} // namespace zon
