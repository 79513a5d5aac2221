#include "platform/values/CharacterSet.h"

#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "platform/values/StringInternal.h"

#include <unicode/uniset.h>

#include <algorithm>

namespace zon {

ZON_DEFINE_CLASS(CharacterSet, "NSCharacterSet")

// Frozen, so lookups are fast and safe from any thread.
struct CharacterSet::Storage {
    icu::UnicodeSet set;
};

CharacterSet::CharacterSet(std::unique_ptr<Storage> storage) : storage_(std::move(storage))
{
    storage_->set.freeze();
    for (char32_t c = 0; c < 128; ++c) {
        if (storage_->set.contains(static_cast<UChar32>(c)))
            ascii_[c >> 6] |= uint64_t(1) << (c & 63);
    }
}

CharacterSet::~CharacterSet() = default;

bool CharacterSet::containsNonASCII(char32_t character) const
{
    return character <= 0x10FFFF && storage_->set.contains(static_cast<UChar32>(character));
}

Ref<CharacterSet> CharacterSet::withPattern(const char16_t* pattern)
{
    UErrorCode status = U_ZERO_ERROR;
    auto storage = std::make_unique<Storage>(Storage {icu::UnicodeSet(icu::UnicodeString(pattern), status)});
    if (U_FAILURE(status))
        raisePlatformException(NSInternalInconsistencyException, "Invalid character set pattern");
    return makeObject<CharacterSet>(std::move(storage));
}

CharacterSet* CharacterSet::sharedWithPattern(const char16_t* pattern)
{
    CharacterSet* set = withPattern(pattern).leakRef();
    set->makeImmortal();
    return set;
}

CharacterSet* CharacterSet::whitespaceCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\p{Zs}\\u0009]");
    return set;
}

CharacterSet* CharacterSet::newlineCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\u000A-\\u000D\\u0085\\u2028\\u2029]");
    return set;
}

CharacterSet* CharacterSet::whitespaceAndNewlineCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\p{Zs}\\u0009-\\u000D\\u0085\\u2028\\u2029]");
    return set;
}

CharacterSet* CharacterSet::decimalDigitCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\p{Nd}]");
    return set;
}

CharacterSet* CharacterSet::letterCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\p{L}\\p{M}]");
    return set;
}

CharacterSet* CharacterSet::alphanumericCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\p{L}\\p{M}\\p{N}]");
    return set;
}

CharacterSet* CharacterSet::punctuationCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\p{P}]");
    return set;
}

CharacterSet* CharacterSet::uppercaseLetterCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\p{Lu}\\p{Lt}]");
    return set;
}

CharacterSet* CharacterSet::lowercaseLetterCharacterSet()
{
    static CharacterSet* const set = sharedWithPattern(u"[\\p{Ll}]");
    return set;
}

Ref<CharacterSet> CharacterSet::characterSetWithCharactersInString(const String* text)
{
    auto storage = std::make_unique<Storage>();
    if (text) {
        const std::u16string_view units = text->view();
        for (size_t i = 0, length; i < units.size(); i += length)
            storage->set.add(static_cast<UChar32>(text::codePointAt(units, i, &length)));
    }
    return makeObject<CharacterSet>(std::move(storage));
}

Ref<CharacterSet> CharacterSet::characterSetWithRange(Range range)
{
    auto storage = std::make_unique<Storage>();
    if (range.length && range.location <= 0x10FFFF) {
        const size_t last = std::min<size_t>(0x10FFFF, range.location + range.length - 1);
        storage->set.add(static_cast<UChar32>(range.location), static_cast<UChar32>(last));
    }
    return makeObject<CharacterSet>(std::move(storage));
}

Ref<CharacterSet> CharacterSet::invertedSet() const
{
    auto storage = std::make_unique<Storage>();
    storage->set.addAll(storage_->set).complement();
    return makeObject<CharacterSet>(std::move(storage));
}

bool CharacterSet::isEqual(const Object* other) const
{
    auto* set = dynamicCast<CharacterSet>(other);
    return set && (set == this || set->storage_->set == storage_->set);
}

size_t CharacterSet::hash() const { return static_cast<size_t>(storage_->set.hashCode()); }

Ref<Object> CharacterSet::copy() const { return Ref<Object>(const_cast<CharacterSet*>(this)); }

} // namespace zon
