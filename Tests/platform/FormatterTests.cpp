#include "platform/values/Date.h"
#include "platform/values/DateFormatter.h"
#include "platform/values/Locale.h"
#include "platform/values/Number.h"
#include "platform/values/NumberFormatter.h"
#include "platform/values/PlainDecimalFormatInternal.h"
#include "platform/values/String.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <unicode/datefmt.h>
#include <unicode/numberformatter.h>
#include <unicode/numfmt.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace zon;
using namespace zon::test;

namespace {

Ref<Locale> localeNamed(const char* identifier) { return Locale::localeWithLocaleIdentifier(str(identifier)); }

Ref<NumberFormatter> decimalFormatter(const char* locale)
{
    auto formatter = NumberFormatter::init();
    formatter->setNumberStyle(NSNumberFormatterDecimalStyle);
    formatter->setLocale(localeNamed(locale));
    return formatter;
}

std::string format(const NumberFormatter* formatter, double value)
{
    return utf8(formatter->stringFromNumber(Number::numberWithDouble(value)));
}

std::string icuText(const icu::UnicodeString& text)
{
    std::string out;
    return text.toUTF8String(out);
}

// ICU's own classic API, as a peer: the decimal style of the locale with the given fraction digits.
std::string icuDecimal(const char* locale, double value, int maximumFractionDigits)
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::NumberFormat> peer(icu::NumberFormat::createInstance(icu::Locale(locale), UNUM_DECIMAL, status));
    EXPECT_TRUE(U_SUCCESS(status));
    peer->setMaximumFractionDigits(maximumFractionDigits);
    peer->setRoundingMode(icu::NumberFormat::kRoundHalfEven);
    icu::UnicodeString text;
    return icuText(peer->format(value, text));
}

// Noon UTC, so the calendar day is the same in every time zone the machine may have.
Ref<Date> secondOfJanuary2001() { return Date::dateWithTimeIntervalSinceReferenceDate(86400 + 43200); }

} // namespace

TEST(NumberFormatter, NewFormatterShowsWholeNumbersRoundedHalfToEven)
{
    auto formatter = NumberFormatter::init();
    formatter->setLocale(localeNamed("en_US"));
    EXPECT_EQ(formatter->numberStyle(), NSNumberFormatterNoStyle);
    EXPECT_EQ(formatter->roundingMode(), NSNumberFormatterRoundHalfEven);
    EXPECT_EQ(format(formatter, 2.5), "2");
    EXPECT_EQ(format(formatter, 3.5), "4");
    EXPECT_EQ(format(formatter, 1234567), "1234567");
}

TEST(NumberFormatter, StyleResetsFractionDigitsAndBoundsFollowEachOther)
{
    auto formatter = decimalFormatter("en_US");
    EXPECT_EQ(formatter->minimumFractionDigits(), 0u);
    EXPECT_EQ(formatter->maximumFractionDigits(), 3u);
    formatter->setMinimumFractionDigits(5);
    EXPECT_EQ(formatter->maximumFractionDigits(), 5u);
    EXPECT_EQ(format(formatter, 1.5), "1.50000");
    formatter->setMaximumFractionDigits(1);
    EXPECT_EQ(formatter->minimumFractionDigits(), 1u);
    EXPECT_EQ(format(formatter, 2), "2.0");
    formatter->setNumberStyle(NSNumberFormatterDecimalStyle);
    EXPECT_EQ(formatter->minimumFractionDigits(), 0u);
    EXPECT_EQ(format(formatter, 2), "2");
}

TEST(NumberFormatter, DecimalStyleAgreesWithICUInTwoLocales)
{
    for (const char* locale : {"en_US", "de_DE"}) {
        for (int digits : {0, 1, 3}) {
            auto formatter = decimalFormatter(locale);
            formatter->setMaximumFractionDigits(static_cast<unsigned long>(digits));
            for (double value : {0.0, -0.25, 1023.0, 1023.95, 1536.0 / 1024, 1048575.0 / 1024, 1234567.891, -98765.4321, 1e15})
                EXPECT_EQ(format(formatter, value), icuDecimal(locale, value, digits))
                    << locale << ", " << digits << " digits, " << value;
        }
    }
    EXPECT_EQ(format(decimalFormatter("en_US"), 1234567.891), "1,234,567.891");
    EXPECT_EQ(format(decimalFormatter("de_DE"), 1234567.891), "1.234.567,891");
}

// Most locales' numbers are written without ICU (see PlainDecimalFormatInternal.h); whichever
// path a locale takes, the text must be ICU's own, for every setting.
TEST(NumberFormatter, TextIsICUsOwnInManyLocalesSettingsAndRoundings)
{
    std::mt19937_64 random(15);
    std::vector<double> values {0.0, -0.0, 0.05, -0.05, 0.15, 2.5, 3.5, 1.125, 999.95, 999.9996, 1e300, 5e-324, 1e-7, -1e21};
    for (int i = 0; i < 150; ++i) {
        const auto bytes = static_cast<long long>(random() >> (random() % 64));
        values.push_back(static_cast<double>(bytes) / static_cast<double>(1ull << (10 * (random() % 6))));
        values.push_back(static_cast<double>(static_cast<long long>(random() % 2000000) - 1000000) / 200); // ties at .x5
        values.push_back(std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 120) - 100));
    }
    for (const char* locale : {"en_US", "de_DE", "fr_FR", "de_CH", "es_ES", "sv_SE", "he_IL", "hi_IN", "ar_EG", "en_US_POSIX"}) {
        for (const auto style : {NSNumberFormatterNoStyle, NSNumberFormatterDecimalStyle}) {
            for (const auto& [minimum, maximum] : {std::pair {0, 1}, std::pair {2, 4}, std::pair {0, 0}}) {
                for (int mode = 0; mode <= int {NSNumberFormatterRoundHalfUp}; ++mode) {
                    auto formatter = NumberFormatter::init();
                    formatter->setNumberStyle(style);
                    formatter->setMaximumFractionDigits(static_cast<unsigned long>(maximum));
                    formatter->setMinimumFractionDigits(static_cast<unsigned long>(minimum));
                    formatter->setRoundingMode(static_cast<NumberFormatterRoundingMode>(mode));
                    formatter->setLocale(localeNamed(locale));
                    const auto peer = icu::number::NumberFormatter::withLocale(icu::Locale(locale))
                        .precision(icu::number::Precision::minMaxFraction(minimum, maximum))
                        .roundingMode(static_cast<UNumberFormatRoundingMode>(mode))
                        .grouping(style == NSNumberFormatterDecimalStyle ? UNUM_GROUPING_AUTO : UNUM_GROUPING_OFF);
                    for (double value : values) {
                        UErrorCode status = U_ZERO_ERROR;
                        ASSERT_EQ(format(formatter, value), icuText(peer.formatDouble(value, status).toTempString(status)))
                            << locale << " style " << style << " digits " << minimum << "-" << maximum << " rounding "
                            << mode << " value " << value;
                    }
                }
            }
        }
    }
}

TEST(NumberFormatter, PlainPathServesLocalesWithPlainNumbersOnly)
{
    const DecimalSettings settings {true, 0, 1, NSNumberFormatterRoundHalfEven};
    const auto learned = [&](const char* locale) {
        const auto icuFormatter = icu::number::NumberFormatter::withLocale(icu::Locale(locale))
            .precision(icu::number::Precision::minMaxFraction(0, 1))
            .grouping(UNUM_GROUPING_AUTO);
        return PlainDecimalFormat::learn(icuFormatter, icu::Locale(locale), settings).has_value();
    };
    for (const char* plain : {"en_US", "de_DE", "fr_FR", "de_CH", "es_ES", "sv_SE", "he_IL", "en_US_POSIX"})
        EXPECT_TRUE(learned(plain)) << plain;
    // Indian grouping (12,34,567) and Arabic-Indic digits stay with ICU.
    for (const char* other : {"hi_IN", "ar_EG"})
        EXPECT_FALSE(learned(other)) << other;
}

TEST(NumberFormatter, EveryRoundingMode)
{
    auto formatter = decimalFormatter("en_US");
    formatter->setMaximumFractionDigits(1);
    struct Case {
        NumberFormatterRoundingMode mode;
        const char* positive; // 1.25
        const char* negative; // -1.25
        const char* half;     // 1.35
    };
    for (const Case& c : {Case {NSNumberFormatterRoundCeiling, "1.3", "-1.2", "1.4"},
             Case {NSNumberFormatterRoundFloor, "1.2", "-1.3", "1.3"}, Case {NSNumberFormatterRoundDown, "1.2", "-1.2", "1.3"},
             Case {NSNumberFormatterRoundUp, "1.3", "-1.3", "1.4"}, Case {NSNumberFormatterRoundHalfEven, "1.2", "-1.2", "1.4"},
             Case {NSNumberFormatterRoundHalfDown, "1.2", "-1.2", "1.3"}, Case {NSNumberFormatterRoundHalfUp, "1.3", "-1.3", "1.4"}}) {
        formatter->setRoundingMode(c.mode);
        EXPECT_EQ(format(formatter, 1.25), c.positive) << c.mode;
        EXPECT_EQ(format(formatter, -1.25), c.negative) << c.mode;
        EXPECT_EQ(format(formatter, 1.35), c.half) << c.mode;
    }
}

TEST(NumberFormatter, IntegersKeepAllSixtyFourBits)
{
    auto formatter = NumberFormatter::init();
    formatter->setLocale(localeNamed("en_US"));
    EXPECT_EQ(utf8(formatter->stringFromNumber(Number::numberWithLongLong(INT64_MIN))), "-9223372036854775808");
    EXPECT_EQ(utf8(formatter->stringFromNumber(Number::numberWithUnsignedLongLong(UINT64_MAX))), "18446744073709551615");
    EXPECT_EQ(utf8(decimalFormatter("de_DE")->stringFromNumber(Number::numberWithLongLong(INT64_MAX))),
        "9.223.372.036.854.775.807");
    EXPECT_EQ(utf8(formatter->stringFromNumber(Number::yes())), "1");
}

TEST(NumberFormatter, OnlyNumbersAreFormattedAndNothingIsParsed)
{
    auto formatter = decimalFormatter("en_US");
    EXPECT_EQ(formatter->stringFromNumber(nullptr), nullptr);
    EXPECT_EQ(formatter->stringForObjectValue(str("12")), nullptr);
    EXPECT_EQ(utf8(formatter->stringForObjectValue(Number::numberWithInt(1200))), "1,200");
    Ref<Object> value;
    Ref<String> reason;
    EXPECT_FALSE(formatter->getObjectValue_forString_errorDescription(&value, str("12"), &reason));
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(reason, nullptr);
}

TEST(NumberFormatter, FormattersSharedBetweenThreadsAgree)
{
    auto english = decimalFormatter("en_US");
    auto german = decimalFormatter("de_DE");
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (size_t t = 0; t < mismatches.size(); ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                const double value = 1000.5 + i;
                // Each thread also makes its own formatter with the same settings: it shares ICU's.
                auto own = decimalFormatter(t % 2 ? "de_DE" : "en_US");
                const NumberFormatter* shared = t % 2 ? german.get() : english.get();
                if (format(own, value) != format(shared, value))
                    ++mismatches[t];
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
    EXPECT_EQ(format(german, 1000.5), "1.000,5");
}

TEST(DateFormatter, LongDateInTwoLocales)
{
    auto formatter = DateFormatter::init();
    formatter->setDateStyle(NSDateFormatterLongStyle);
    formatter->setLocale(localeNamed("en_US"));
    EXPECT_EQ(utf8(formatter->stringFromDate(secondOfJanuary2001())), "January 2, 2001");
    formatter->setLocale(localeNamed("de_DE"));
    EXPECT_EQ(utf8(formatter->stringFromDate(secondOfJanuary2001())), "2. Januar 2001");
}

TEST(DateFormatter, LongDateWithShortTimeAgreesWithICU)
{
    const auto date = Date::dateWithTimeIntervalSince1970(1700000000.25);
    for (const char* locale : {"en_US", "de_DE"}) {
        auto formatter = DateFormatter::init();
        formatter->setDateStyle(NSDateFormatterLongStyle);
        formatter->setTimeStyle(NSDateFormatterShortStyle);
        formatter->setLocale(localeNamed(locale));
        std::unique_ptr<icu::DateFormat> peer(
            icu::DateFormat::createDateTimeInstance(icu::DateFormat::kLong, icu::DateFormat::kShort, icu::Locale(locale)));
        icu::UnicodeString text;
        EXPECT_EQ(utf8(formatter->stringFromDate(date)), icuText(peer->format(1700000000250.0, text))) << locale;
    }
}

TEST(DateFormatter, StylesAloneAndNone)
{
    auto formatter = DateFormatter::init();
    formatter->setLocale(localeNamed("en_US"));
    EXPECT_EQ(utf8(formatter->stringFromDate(secondOfJanuary2001())), "");
    formatter->setDateStyle(NSDateFormatterShortStyle);
    EXPECT_EQ(utf8(formatter->stringFromDate(secondOfJanuary2001())), "1/2/01");
    formatter->setDateStyle(NSDateFormatterNoStyle);
    formatter->setTimeStyle(NSDateFormatterShortStyle);
    EXPECT_NE(utf8(formatter->stringFromDate(secondOfJanuary2001())).find(':'), std::string::npos);
    EXPECT_EQ(formatter->stringFromDate(nullptr), nullptr);
    EXPECT_EQ(formatter->stringForObjectValue(Number::numberWithInt(1)), nullptr);
    EXPECT_NE(formatter->stringForObjectValue(secondOfJanuary2001()), nullptr);
}
