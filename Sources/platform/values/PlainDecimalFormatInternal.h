#pragma once

// ICU's decimal text made without ICU, for the locales whose numbers are plain: ASCII digits, a
// minus sign in front, groups of three, one decimal mark. Formatting through ICU costs more than
// everything else a byte-size text needs together (row BM_ByteSizeString_Zon of
// ByteSizeBenchmarks; ICU's own path stays the fallback and serves every other locale).
//
// The digits are the shortest text that reads back as the double (std::to_chars), rounded in
// decimal, which is what ICU does too. A plain form is learned from ICU's symbols for a locale and
// settings and used only when it gives ICU's own text for a set of probe values.

#include "platform/Export.h"
#include "platform/values/NumberFormatter.h"

#include <unicode/locid.h>
#include <unicode/numberformatter.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace zon {

struct DecimalSettings {
    bool grouped = false;
    int minimumFractionDigits = 0;
    int maximumFractionDigits = 0;
    NumberFormatterRoundingMode roundingMode = NSNumberFormatterRoundHalfEven;
};

class ZON_EXPORT PlainDecimalFormat {
public:
    // The plain form of what icuFormatter (made for locale with these settings) writes, or nothing
    // when the locale's numbers are not plain.
    static std::optional<PlainDecimalFormat> learn(
        const icu::number::LocalizedNumberFormatter& icuFormatter, const icu::Locale& locale, const DecimalSettings& settings);

    // Append the text of value; false, with nothing appended, when the value needs ICU (not finite).
    bool appendDouble(double value, icu::UnicodeString& out) const;
    void appendInteger(int64_t value, icu::UnicodeString& out) const;

private:
    explicit PlainDecimalFormat(const DecimalSettings& settings) : settings_(settings) {}
    // digits: the magnitude's integer digits then its fraction digits, already rounded.
    void append(bool negative, std::string_view integerDigits, std::string_view fractionDigits, icu::UnicodeString& out) const;
    bool matchesICU(const icu::number::LocalizedNumberFormatter& icuFormatter) const;

    DecimalSettings settings_;
    int minimumGroupingDigits_ = 1; // a number is grouped from 3 + this many integer digits on
    icu::UnicodeString decimalSeparator_;
    icu::UnicodeString groupingSeparator_;
    icu::UnicodeString minusSign_;
};

} // namespace zon
