#include "platform/values/CharacterSet.h"
#include "platform/values/String.h"
#include "platform/values/StringInternal.h"

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>

#include <memory>

namespace zon {

namespace {

constexpr Range kNotFound {NSNotFound, 0};

char32_t fold(char32_t c)
{
    if (c < 0x80)
        return c >= 'A' && c <= 'Z' ? c + 32 : c;
    return static_cast<char32_t>(u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT));
}

// The number of units of text from start that match needle ignoring case, or npos.
size_t foldedMatchLength(std::u16string_view text, size_t start, std::u16string_view needle)
{
    size_t i = start, j = 0, textUnits, needleUnits;
    while (j < needle.size()) {
        if (i >= text.size())
            return std::u16string_view::npos;
        if (fold(text::codePointAt(text, i, &textUnits)) != fold(text::codePointAt(needle, j, &needleUnits)))
            return std::u16string_view::npos;
        i += textUnits;
        j += needleUnits;
    }
    return i - start;
}

Range foldedSearch(std::u16string_view text, std::u16string_view needle, StringCompareOptions options)
{
    const bool backwards = options & NSBackwardsSearch, anchored = options & NSAnchoredSearch;
    if (!backwards) {
        for (size_t start = 0; start < text.size(); ++start) {
            const size_t length = foldedMatchLength(text, start, needle);
            if (length != text.npos)
                return {start, length};
            if (anchored)
                break;
        }
        return kNotFound;
    }
    for (size_t start = text.size(); start-- > 0;) {
        // Folding keeps a code point's unit count, so an anchored match starts near the end.
        if (anchored && text.size() - start > 2 * needle.size())
            break;
        const size_t length = foldedMatchLength(text, start, needle);
        if (length != text.npos && (!anchored || start + length == text.size()))
            return {start, length};
    }
    return kNotFound;
}

Range exactSearch(std::u16string_view text, std::u16string_view needle, StringCompareOptions options)
{
    const bool backwards = options & NSBackwardsSearch, anchored = options & NSAnchoredSearch;
    size_t found;
    if (anchored) {
        const bool matches = backwards ? text.ends_with(needle) : text.starts_with(needle);
        found = !matches ? text.npos : backwards ? text.size() - needle.size() : 0;
    } else {
        found = backwards ? text.rfind(needle) : text.find(needle);
    }
    return found == text.npos ? kNotFound : Range {found, needle.size()};
}

ComparisonResult order(auto a, auto b)
{
    return a < b ? NSOrderedAscending : a > b ? NSOrderedDescending : NSOrderedSame;
}

bool isASCIIDigit(char16_t c) { return c >= '0' && c <= '9'; }

// Compares the digit runs at a[i] and b[j] by value and moves both indexes past them.
ComparisonResult compareDigitRuns(std::u16string_view a, size_t& i, std::u16string_view b, size_t& j)
{
    auto significant = [](std::u16string_view s, size_t& index) {
        while (index < s.size() && s[index] == '0')
            ++index;
        const size_t start = index;
        while (index < s.size() && isASCIIDigit(s[index]))
            ++index;
        return s.substr(start, index - start);
    };
    const std::u16string_view x = significant(a, i), y = significant(b, j);
    if (x.size() != y.size())
        return order(x.size(), y.size());
    return order(x.compare(y), 0);
}

// The collation locale: the process's default, except that the POSIX locale (LANG=C or unset)
// means "no preference" and collates by the root rules rather than in ASCII order.
icu::Locale collationLocale()
{
    const icu::Locale locale = icu::Locale::getDefault();
    return std::string_view(locale.getVariant()) == "POSIX" ? icu::Locale::getRoot() : locale;
}

std::unique_ptr<icu::Collator> makeCollator(icu::Collator::ECollationStrength strength)
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(collationLocale(), status));
    if (U_FAILURE(status))
        return nullptr;
    collator->setStrength(strength);
    return collator;
}

const icu::Collator* defaultCollator(bool caseInsensitive)
{
    // Collators are safe to share for comparing; made once per strength.
    static const std::unique_ptr<icu::Collator> collators[2] = {
        makeCollator(icu::Collator::TERTIARY), makeCollator(icu::Collator::SECONDARY)};
    return collators[caseInsensitive].get();
}

ComparisonResult collate(const String* a, const String* b, bool caseInsensitive)
{
    if (!b)
        return NSOrderedDescending;
    const icu::Collator* collator = defaultCollator(caseInsensitive);
    if (!collator)
        return a->compare_options(b, caseInsensitive ? NSCaseInsensitiveSearch : 0);
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result = collator->compare(reinterpret_cast<const UChar*>(a->characters()),
        static_cast<int32_t>(a->length()), reinterpret_cast<const UChar*>(b->characters()),
        static_cast<int32_t>(b->length()), status);
    return static_cast<ComparisonResult>(result);
}

} // namespace

Range String::rangeOfString_options_range(const String* search, StringCompareOptions options, Range range) const
{
    text::checkRange(range, length_, "rangeOfString:options:range:");
    if (!search || !search->length_)
        return kNotFound;
    const std::u16string_view text = view().substr(range.location, range.length);
    const Range found = (options & NSCaseInsensitiveSearch) ? foldedSearch(text, search->view(), options)
                                                            : exactSearch(text, search->view(), options);
    return found.location == NSNotFound ? found : Range {found.location + range.location, found.length};
}

Range String::rangeOfCharacterFromSet_options(const CharacterSet* set, StringCompareOptions options) const
{
    if (!set)
        return kNotFound;
    const std::u16string_view text = view();
    const bool anchored = options & NSAnchoredSearch;
    size_t units;
    if (options & NSBackwardsSearch) {
        for (size_t end = text.size(); end > 0; end -= units) {
            if (set->longCharacterIsMember(text::codePointBefore(text, end, &units)))
                return {end - units, units};
            if (anchored)
                break;
        }
        return kNotFound;
    }
    for (size_t i = 0; i < text.size(); i += units) {
        if (set->longCharacterIsMember(text::codePointAt(text, i, &units)))
            return {i, units};
        if (anchored)
            break;
    }
    return kNotFound;
}

bool String::hasPrefix(const String* prefix) const
{
    return prefix && prefix->length_ && view().starts_with(prefix->view());
}

bool String::hasSuffix(const String* suffix) const
{
    return suffix && suffix->length_ && view().ends_with(suffix->view());
}

ComparisonResult String::compare_options_range(const String* other, StringCompareOptions options, Range range) const
{
    text::checkRange(range, length_, "compare:options:range:");
    if (!other)
        return NSOrderedDescending;
    const std::u16string_view a = view().substr(range.location, range.length), b = other->view();
    const bool numeric = options & NSNumericSearch, caseInsensitive = options & NSCaseInsensitiveSearch;
    if (!numeric && !caseInsensitive)
        return order(a.compare(b), 0);
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (numeric && isASCIIDigit(a[i]) && isASCIIDigit(b[j])) {
            if (const ComparisonResult result = compareDigitRuns(a, i, b, j))
                return result;
            continue;
        }
        if (!caseInsensitive) {
            if (a[i] != b[j])
                return order(a[i], b[j]);
            ++i, ++j;
            continue;
        }
        size_t unitsA, unitsB;
        const char32_t x = fold(text::codePointAt(a, i, &unitsA)), y = fold(text::codePointAt(b, j, &unitsB));
        if (x != y)
            return order(x, y);
        i += unitsA;
        j += unitsB;
    }
    return order(a.size() - i != 0, b.size() - j != 0);
}

ComparisonResult String::localizedCompare(const String* other) const { return collate(this, other, false); }

ComparisonResult String::localizedCaseInsensitiveCompare(const String* other) const
{
    return collate(this, other, true);
}

} // namespace zon
