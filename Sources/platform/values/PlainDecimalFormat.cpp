#include "platform/values/PlainDecimalFormatInternal.h"

#include <unicode/dcfmtsym.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

namespace zon {

namespace {

// Whether the digits kept (ending in lastKept) go up by one in their last place, given the
// digits dropped after them.
bool roundsAway(NumberFormatterRoundingMode mode, bool negative, char lastKept, std::string_view dropped)
{
    const bool anyDropped = dropped.find_first_not_of('0') != std::string_view::npos;
    if (!anyDropped)
        return false;
    const char first = dropped.front();
    const bool pastHalf = first > '5' || (first == '5' && dropped.substr(1).find_first_not_of('0') != std::string_view::npos);
    const bool half = first == '5' && !pastHalf;
    switch (mode) {
    case NSNumberFormatterRoundCeiling: return !negative;
    case NSNumberFormatterRoundFloor: return negative;
    case NSNumberFormatterRoundDown: return false;
    case NSNumberFormatterRoundUp: return true;
    case NSNumberFormatterRoundHalfDown: return pastHalf;
    case NSNumberFormatterRoundHalfUp: return pastHalf || half;
    case NSNumberFormatterRoundHalfEven: break;
    }
    return pastHalf || (half && (lastKept - '0') % 2 == 1);
}

std::string icuText(const icu::number::LocalizedNumberFormatter& formatter, double value)
{
    UErrorCode status = U_ZERO_ERROR;
    std::string text;
    formatter.formatDouble(value, status).toString(status).toUTF8String(text);
    return U_SUCCESS(status) ? text : std::string("(error)");
}

} // namespace

std::optional<PlainDecimalFormat> PlainDecimalFormat::learn(
    const icu::number::LocalizedNumberFormatter& icuFormatter, const icu::Locale& locale, const DecimalSettings& settings)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::DecimalFormatSymbols symbols(locale, status);
    if (U_FAILURE(status) || symbols.getConstSymbol(icu::DecimalFormatSymbols::kZeroDigitSymbol) != u"0")
        return std::nullopt;
    PlainDecimalFormat plain(settings);
    plain.decimalSeparator_ = symbols.getConstSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol);
    plain.groupingSeparator_ = symbols.getConstSymbol(icu::DecimalFormatSymbols::kGroupingSeparatorSymbol);
    plain.minusSign_ = symbols.getConstSymbol(icu::DecimalFormatSymbols::kMinusSignSymbol);
    // Some locales leave four-digit numbers ungrouped, some (POSIX) every number.
    if (settings.grouped && icuText(icuFormatter, 1000) == "1000") {
        plain.minimumGroupingDigits_ = 2;
        plain.settings_.grouped = icuText(icuFormatter, 10000) != "10000";
    }
    if (!plain.matchesICU(icuFormatter))
        return std::nullopt;
    return plain;
}

bool PlainDecimalFormat::matchesICU(const icu::number::LocalizedNumberFormatter& icuFormatter) const
{
    // Ties and carries at each place, signs, zeros, short and long integer parts, every width of
    // grouping, digits beyond the fraction, and the largest 64-bit integers.
    static constexpr double kProbes[] {0, -0.0, 0.04, -0.04, 0.5, 1, 1.25, 1.35, -2.5, 9.95, 99.95, 999.95, 999.9996,
        1023.9990234375, 1000, 1234, -1234.5678, 12345.05, 123456.75, 1234567.891, -98765432.125, 1e15, 0.000123,
        0.0001, 4.5e18, 123456789012345678.0};
    for (double probe : kProbes) {
        icu::UnicodeString ours;
        appendDouble(probe, ours);
        std::string text;
        if (ours.toUTF8String(text) != icuText(icuFormatter, probe))
            return false;
    }
    for (int64_t probe : {int64_t {0}, int64_t {-7}, int64_t {1000}, int64_t {-123456789}, INT64_MIN, INT64_MAX}) {
        icu::UnicodeString ours;
        appendInteger(probe, ours);
        UErrorCode status = U_ZERO_ERROR;
        if (ours != icuFormatter.formatInt(probe, status).toTempString(status) || U_FAILURE(status))
            return false;
    }
    return true;
}

bool PlainDecimalFormat::appendDouble(double value, icu::UnicodeString& out) const
{
    if (!std::isfinite(value))
        return false;
    // The shortest digits that read back as the value, and where the decimal point goes. (The
    // fixed form of to_chars would write a large value's exact digits, not its shortest ones.)
    char scientific[32];
    const char* end = std::to_chars(scientific, scientific + sizeof scientific, std::fabs(value), std::chars_format::scientific).ptr;
    const char* e = std::find(static_cast<const char*>(scientific), end, 'e');
    int exponent = 0;
    std::from_chars(e + (e[1] == '+' ? 2 : 1), end, exponent);
    char significant[20];
    size_t count = 0;
    for (const char* c = scientific; c < e; ++c) {
        if (*c != '.')
            significant[count++] = *c;
    }
    const std::string_view shortest(significant, count);

    // The digits laid out as integer and fraction digits, one slot in front for a carry: the
    // longest layouts are 1e308 (309 integer digits) and 5e-324 (324 fraction digits).
    char layout[1 + 340];
    char* const first = layout + 1;
    size_t integerCount = 0, length = 0;
    const int point = exponent + 1; // integer digits in the shortest digits
    if (point <= 0) {
        first[length++] = '0';
        integerCount = 1;
        length += static_cast<size_t>(std::fill_n(first + length, -point, '0') - (first + length));
        length += shortest.copy(first + length, shortest.size());
    } else {
        length += shortest.copy(first, shortest.size());
        if (static_cast<size_t>(point) > length)
            length = static_cast<size_t>(std::fill_n(first + length, static_cast<size_t>(point) - length, '0') - first);
        integerCount = static_cast<size_t>(point);
    }

    // Round in decimal to the maximum fraction digits, carrying to the front when rounding away.
    const bool negative = std::signbit(value);
    const size_t kept = integerCount + static_cast<size_t>(settings_.maximumFractionDigits);
    char* digits = first;
    if (length > kept) {
        const std::string_view dropped(first + kept, length - kept);
        length = kept;
        if (roundsAway(settings_.roundingMode, negative, first[kept - 1], dropped)) {
            size_t at = kept;
            while (at > 0 && first[at - 1] == '9')
                first[--at] = '0';
            if (at > 0) {
                ++first[at - 1];
            } else {
                *--digits = '1';
                ++integerCount;
                ++length;
            }
        }
    }
    append(negative, {digits, integerCount}, {digits + integerCount, length - integerCount}, out);
    return true;
}

void PlainDecimalFormat::appendInteger(int64_t value, icu::UnicodeString& out) const
{
    const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    char text[24];
    const auto end = std::to_chars(text, text + sizeof text, magnitude).ptr;
    append(value < 0, std::string_view(text, static_cast<size_t>(end - text)), {}, out);
}

void PlainDecimalFormat::append(
    bool negative, std::string_view integerDigits, std::string_view fractionDigits, icu::UnicodeString& out) const
{
    // Trailing zeros go, down to the minimum number of fraction digits; short fractions are padded.
    const auto minimum = static_cast<size_t>(settings_.minimumFractionDigits);
    while (fractionDigits.size() > minimum && fractionDigits.back() == '0')
        fractionDigits.remove_suffix(1);
    const size_t length = integerDigits.size();
    const bool grouped = settings_.grouped && length >= 3 + static_cast<size_t>(minimumGroupingDigits_);
    // Digits and separators are written straight into out's buffer.
    const size_t capacity = static_cast<size_t>(minusSign_.length()) + length
        + (grouped ? length / 3 * static_cast<size_t>(groupingSeparator_.length()) : 0)
        + static_cast<size_t>(decimalSeparator_.length()) + std::max(fractionDigits.size(), minimum);
    const int32_t start = out.length();
    char16_t* buffer = out.getBuffer(start + static_cast<int32_t>(capacity));
    if (!buffer)
        return;
    char16_t* units = buffer + start;
    size_t count = 0;
    const auto put = [&](const icu::UnicodeString& text) {
        text.extract(0, text.length(), units + count);
        count += static_cast<size_t>(text.length());
    };
    if (negative)
        put(minusSign_);
    for (size_t i = 0; i < length; ++i) {
        if (grouped && i > 0 && (length - i) % 3 == 0)
            put(groupingSeparator_);
        units[count++] = static_cast<char16_t>(integerDigits[i]);
    }
    if (!fractionDigits.empty() || minimum > 0) {
        put(decimalSeparator_);
        for (char digit : fractionDigits)
            units[count++] = static_cast<char16_t>(digit);
        for (size_t i = fractionDigits.size(); i < minimum; ++i)
            units[count++] = u'0';
    }
    out.releaseBuffer(start + static_cast<int32_t>(count));
}

} // namespace zon
