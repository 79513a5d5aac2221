#include "platform/values/NumberFormatter.h"

#include "platform/runtime/Class.h"
#include "platform/values/Locale.h"
#include "platform/values/Number.h"
#include "platform/values/NumberFormatterInternal.h"
#include "platform/values/PlainDecimalFormatInternal.h"
#include "platform/values/SharedFormatterCacheInternal.h"
#include "platform/values/String.h"

#include <unicode/locid.h>
#include <unicode/numberformatter.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <optional>

namespace zon {

ZON_DEFINE_CLASS(NumberFormatter, "NSNumberFormatter")

namespace {

// ICU takes at most this many fraction digits.
constexpr unsigned long kMaximumICUFractionDigits = 999;

struct NumberFormatKey {
    NumberFormatterStyle style;
    unsigned long minimumFractionDigits;
    unsigned long maximumFractionDigits;
    NumberFormatterRoundingMode roundingMode;
    std::string localeName;
    bool operator==(const NumberFormatKey&) const = default;
};

struct NumberFormatKeyHash {
    size_t operator()(const NumberFormatKey& key) const
    {
        size_t hash = std::hash<std::string>()(key.localeName);
        for (unsigned long part : {static_cast<unsigned long>(key.style), key.minimumFractionDigits,
                 key.maximumFractionDigits, static_cast<unsigned long>(key.roundingMode)})
            hash = hash * 31 + part;
        return hash;
    }
};

// ICU's formatter for one combination, and its plain form where the locale's numbers are plain.
struct SharedNumberFormat {
    icu::number::LocalizedNumberFormatter icu;
    std::optional<PlainDecimalFormat> plain;
};

UNumberFormatRoundingMode icuRoundingMode(NumberFormatterRoundingMode mode)
{
    switch (mode) {
    case NSNumberFormatterRoundCeiling: return UNUM_ROUND_CEILING;
    case NSNumberFormatterRoundFloor: return UNUM_ROUND_FLOOR;
    case NSNumberFormatterRoundDown: return UNUM_ROUND_DOWN;
    case NSNumberFormatterRoundUp: return UNUM_ROUND_UP;
    case NSNumberFormatterRoundHalfDown: return UNUM_ROUND_HALFDOWN;
    case NSNumberFormatterRoundHalfUp: return UNUM_ROUND_HALFUP;
    case NSNumberFormatterRoundHalfEven: break;
    }
    return UNUM_ROUND_HALFEVEN;
}

std::unique_ptr<SharedNumberFormat> makeSharedNumberFormat(const NumberFormatKey& key)
{
    const DecimalSettings settings {key.style == NSNumberFormatterDecimalStyle, static_cast<int>(key.minimumFractionDigits),
        static_cast<int>(key.maximumFractionDigits), key.roundingMode};
    const icu::Locale locale(key.localeName.c_str());
    // The decimal style groups as the locale does (some locales leave four-digit numbers alone).
    auto shared = std::make_unique<SharedNumberFormat>(SharedNumberFormat {
        icu::number::NumberFormatter::withLocale(locale)
            .precision(icu::number::Precision::minMaxFraction(settings.minimumFractionDigits, settings.maximumFractionDigits))
            .roundingMode(icuRoundingMode(key.roundingMode))
            .grouping(settings.grouped ? UNUM_GROUPING_AUTO : UNUM_GROUPING_OFF),
        std::nullopt});
    UErrorCode status = U_ZERO_ERROR;
    if (shared->icu.copyErrorTo(status); U_FAILURE(status))
        return nullptr;
    shared->plain = PlainDecimalFormat::learn(shared->icu, locale, settings);
    return shared;
}

const SharedNumberFormat* sharedNumberFormat(const NumberFormatter& formatter)
{
    static auto* cache = new SharedFormatterCache<NumberFormatKey, const SharedNumberFormat, NumberFormatKeyHash>();
    const NumberFormatKey key {formatter.numberStyle(), formatter.minimumFractionDigits(),
        formatter.maximumFractionDigits(), formatter.roundingMode(), formatter.locale()->icuLocaleName()};
    return cache->get(key, [&] { return makeSharedNumberFormat(key); });
}

bool appendFormatted(const icu::number::FormattedNumber& formatted, icu::UnicodeString& out)
{
    UErrorCode status = U_ZERO_ERROR;
    out.append(formatted.toTempString(status));
    return U_SUCCESS(status);
}

Ref<String> stringOf(const icu::UnicodeString& text)
{
    return String::stringWithCharacters(text.getBuffer(), static_cast<size_t>(text.length()));
}

} // namespace

Ref<NumberFormatter> NumberFormatter::init()
{
    return makeObject<NumberFormatter>();
}

NumberFormatter::NumberFormatter() = default;

void NumberFormatter::exportMethods(Class& cls)
{
    cls.exportMethod("stringFromNumber:", &NumberFormatter::stringFromNumber);
}

void NumberFormatter::setNumberStyle(NumberFormatterStyle style)
{
    style_ = style;
    minimumFractionDigits_ = 0;
    maximumFractionDigits_ = style == NSNumberFormatterDecimalStyle ? 3 : 0;
}

void NumberFormatter::setMinimumFractionDigits(unsigned long digits)
{
    minimumFractionDigits_ = std::min(digits, kMaximumICUFractionDigits);
    maximumFractionDigits_ = std::max(maximumFractionDigits_, minimumFractionDigits_);
}

void NumberFormatter::setMaximumFractionDigits(unsigned long digits)
{
    maximumFractionDigits_ = std::min(digits, kMaximumICUFractionDigits);
    minimumFractionDigits_ = std::min(minimumFractionDigits_, maximumFractionDigits_);
}

void NumberFormatter::setRoundingMode(NumberFormatterRoundingMode mode)
{
    roundingMode_ = mode;
}

bool appendFormattedDouble(const NumberFormatter& formatter, double value, icu::UnicodeString& out)
{
    const auto* shared = sharedNumberFormat(formatter);
    if (!shared)
        return false;
    if (shared->plain && shared->plain->appendDouble(value, out))
        return true;
    UErrorCode status = U_ZERO_ERROR;
    return appendFormatted(shared->icu.formatDouble(value, status), out);
}

Ref<String> NumberFormatter::stringFromNumber(const Number* number) const
{
    if (!number)
        return nullptr;
    icu::UnicodeString text;
    if (number->storage() == Number::Storage::Floating)
        return appendFormattedDouble(*this, number->doubleValue(), text) ? stringOf(text) : nullptr;
    const auto* shared = sharedNumberFormat(*this);
    if (!shared)
        return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    const unsigned long long value = number->unsignedLongLongValue();
    if (number->storage() == Number::Storage::Signed || value <= static_cast<unsigned long long>(INT64_MAX)) {
        if (shared->plain)
            shared->plain->appendInteger(number->longLongValue(), text);
        else if (!appendFormatted(shared->icu.formatInt(number->longLongValue(), status), text))
            return nullptr;
        return stringOf(text);
    }
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    const icu::StringPiece decimal(digits, static_cast<int32_t>(end - digits));
    return appendFormatted(shared->icu.formatDecimal(decimal, status), text) ? stringOf(text) : nullptr;
}

Ref<String> NumberFormatter::stringForObjectValue(const Object* value) const
{
    auto* number = dynamicCast<Number>(value);
    return number ? stringFromNumber(number) : nullptr;
}

} // namespace zon
