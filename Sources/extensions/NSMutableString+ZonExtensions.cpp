// NSMutableString(ZonExtensions): deleting every character of a set.

#include "platform/values/CharacterSet.h"
#include "platform/values/MutableString.h"
#include "platform/values/StringInternal.h"

namespace zon {

// Gives what deleting the first member again and again until none is left gives, in one pass.
// Everything kept before the current position holds no member, except that a kept lone lead
// surrogate can pair with a trail surrogate that a deletion brings next to it: the pair is then
// tested as its code point, as a new search from the start would.
void MutableString::deleteCharactersInSet(const CharacterSet* set)
{
    if (!set || !length_)
        return;
    const std::u16string_view units = view();
    std::u16string kept;
    kept.reserve(units.size());
    for (size_t i = 0; i < units.size();) {
        const char16_t c = units[i];
        if (text::isTrailSurrogate(c) && !kept.empty() && text::isLeadSurrogate(kept.back())) {
            const char32_t pair = 0x10000 + ((char32_t(kept.back()) - 0xD800) << 10) + (char32_t(c) - 0xDC00);
            if (set->longCharacterIsMember(pair))
                kept.pop_back();
            else
                kept.push_back(c);
            ++i;
            continue;
        }
        size_t count;
        const char32_t codePoint = text::codePointAt(units, i, &count);
        if (!set->longCharacterIsMember(codePoint))
            kept.append(units.substr(i, count));
        i += count;
    }
    if (kept.size() != units.size())
        setString(StringBuilder::fromView(kept).get());
}

} // namespace zon
