#include "platform/values/CharacterSet.h"
#include "platform/values/String.h"
#include "platform/values/StringInternal.h"

#include <unicode/casemap.h>
#include <unicode/stringoptions.h>
#include <unicode/ustring.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <locale.h>

namespace zon {

namespace {

// Runs an ICU case mapping that writes into (dest, capacity) and answers the needed length.
template <class Map>
std::u16string mapCase(std::u16string_view source, Map&& map)
{
    std::u16string out(source.size(), u'\0');
    for (int attempt = 0; attempt < 2; ++attempt) {
        UErrorCode status = U_ZERO_ERROR;
        const int32_t length = map(out.data(), static_cast<int32_t>(out.size()), status);
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            out.resize(static_cast<size_t>(length));
            continue;
        }
        out.resize(U_SUCCESS(status) ? static_cast<size_t>(length) : 0);
        return out;
    }
    return out;
}

const UChar* icuUnits(std::u16string_view units) { return reinterpret_cast<const UChar*>(units.data()); }
int32_t icuLength(std::u16string_view units) { return static_cast<int32_t>(units.size()); }

// Index of the first code point of text at or after from that is not white space or a newline.
size_t skipWhitespace(std::u16string_view text, size_t from = 0)
{
    const CharacterSet* space = CharacterSet::whitespaceAndNewlineCharacterSet();
    size_t units;
    while (from < text.size() && space->longCharacterIsMember(text::codePointAt(text, from, &units)))
        from += units;
    return from;
}

bool isDigit(std::u16string_view text, size_t index) { return index < text.size() && text[index] >= '0' && text[index] <= '9'; }

struct LeadingInteger {
    bool negative = false;
    bool overflow = false;
    unsigned long long magnitude = 0;
};

LeadingInteger parseLeadingInteger(std::u16string_view text)
{
    LeadingInteger value;
    size_t i = skipWhitespace(text);
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        value.negative = text[i++] == '-';
    for (; isDigit(text, i); ++i) {
        const unsigned digit = text[i] - '0';
        if (value.magnitude > (ULLONG_MAX - digit) / 10)
            value.overflow = true;
        else
            value.magnitude = value.magnitude * 10 + digit;
    }
    return value;
}

template <class T>
T saturated(const LeadingInteger& value)
{
    using Limits = std::numeric_limits<T>;
    const auto maxMagnitude = static_cast<unsigned long long>(Limits::max());
    if (!value.negative)
        return value.overflow || value.magnitude > maxMagnitude ? Limits::max() : static_cast<T>(value.magnitude);
    if (value.overflow || value.magnitude > maxMagnitude + 1)
        return Limits::min();
    return static_cast<T>(-static_cast<long long>(value.magnitude - 1) - 1);
}

// The C locale, so that "." is the decimal point whatever the process's locale says.
locale_t cLocale()
{
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", locale_t(0));
    return locale;
}

} // namespace

Ref<String> String::uppercaseString() const
{
    return StringBuilder::fromView(mapCase(view(), [&](char16_t* dest, int32_t capacity, UErrorCode& status) {
        return u_strToUpper(reinterpret_cast<UChar*>(dest), capacity, icuUnits(view()), icuLength(view()), "", &status);
    }));
}

Ref<String> String::lowercaseString() const
{
    return StringBuilder::fromView(mapCase(view(), [&](char16_t* dest, int32_t capacity, UErrorCode& status) {
        return u_strToLower(reinterpret_cast<UChar*>(dest), capacity, icuUnits(view()), icuLength(view()), "", &status);
    }));
}

Ref<String> String::capitalizedString() const
{
    const CharacterSet* space = CharacterSet::whitespaceAndNewlineCharacterSet();
    const std::u16string_view text = view();
    std::u16string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const size_t wordStart = skipWhitespace(text, i);
        out.append(text.substr(i, wordStart - i));
        size_t wordEnd = wordStart, units;
        while (wordEnd < text.size() && !space->longCharacterIsMember(text::codePointAt(text, wordEnd, &units)))
            wordEnd += units;
        const std::u16string_view word = text.substr(wordStart, wordEnd - wordStart);
        // Each word is titlecased as a whole: its first letter or digit up, the rest down.
        out.append(mapCase(word, [&](char16_t* dest, int32_t capacity, UErrorCode& status) {
            return icu::CaseMap::toTitle("", U_TITLECASE_WHOLE_STRING, nullptr, word.data(), icuLength(word), dest,
                capacity, nullptr, status);
        }));
        i = wordEnd;
    }
    return StringBuilder::fromView(out);
}

int String::intValue() const { return saturated<int>(parseLeadingInteger(view())); }

long String::integerValue() const { return saturated<long>(parseLeadingInteger(view())); }

long long String::longLongValue() const { return saturated<long long>(parseLeadingInteger(view())); }

double String::doubleValue() const
{
    const std::u16string_view text = view();
    size_t i = skipWhitespace(text);
    std::string number;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        number.push_back(static_cast<char>(text[i++]));
    size_t digits = 0;
    for (; isDigit(text, i); ++i, ++digits)
        number.push_back(static_cast<char>(text[i]));
    if (i < text.size() && text[i] == '.') {
        number.push_back('.');
        for (++i; isDigit(text, i); ++i, ++digits)
            number.push_back(static_cast<char>(text[i]));
    }
    if (!digits)
        return 0;
    // An exponent counts only when digits follow it ("2e" reads as 2).
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        size_t j = i + 1;
        if (j < text.size() && (text[j] == '+' || text[j] == '-'))
            ++j;
        if (isDigit(text, j)) {
            number.append(text.begin() + i, text.begin() + j);
            for (; isDigit(text, j); ++j)
                number.push_back(static_cast<char>(text[j]));
        }
    }
    return strtod_l(number.c_str(), nullptr, cLocale());
}

float String::floatValue() const { return static_cast<float>(doubleValue()); }

bool String::boolValue() const
{
    const std::u16string_view text = view();
    size_t i = skipWhitespace(text);
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        ++i;
    while (i < text.size() && text[i] == '0')
        ++i;
    if (i >= text.size())
        return false;
    const char16_t c = text[i];
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

} // namespace zon
