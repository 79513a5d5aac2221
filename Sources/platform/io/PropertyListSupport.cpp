#include "platform/io/PropertyListSupportInternal.h"

#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <charconv>
#include <clocale>
#include <cmath>
#include <locale.h>
#include <vector>

namespace zon::plist {

namespace {

constexpr int64_t kSecondsPerDay = 86400;
// Days from 1970-01-01 to the reference date 2001-01-01.
constexpr int64_t kReferenceDayFrom1970 = 11323;

constexpr int64_t floorDiv(int64_t a, int64_t b)
{
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

// Days since 1970-01-01 of a proleptic Gregorian date, and the reverse (eras of 400 years).
int64_t daysFromCivil(int64_t year, int month, int day)
{
    year -= month <= 2;
    const int64_t era = floorDiv(year, 400);
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

void civilFromDays(int64_t days, CivilTime& time)
{
    days += 719468;
    const int64_t era = floorDiv(days, 146097);
    const int64_t dayOfEra = days - era * 146097;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t monthIndex = (5 * dayOfYear + 2) / 153;
    time.day = static_cast<int>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
    time.month = static_cast<int>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
    time.year = yearOfEra + era * 400 + (time.month <= 2);
}

int daysInMonth(int64_t year, int month)
{
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month == 2) {
        const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        return leap ? 29 : 28;
    }
    return kDays[month - 1];
}

double referenceSecondsFromCivilTime(const CivilTime& time)
{
    const int64_t days = daysFromCivil(time.year, time.month, time.day) - kReferenceDayFrom1970;
    return static_cast<double>(days * kSecondsPerDay + time.hour * 3600 + time.minute * 60 + time.second);
}

bool parseDigits(std::string_view& text, size_t count, int& value)
{
    if (text.size() < count)
        return false;
    value = 0;
    for (size_t i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        value = value * 10 + (text[i] - '0');
    }
    text.remove_prefix(count);
    return true;
}

bool expect(std::string_view& text, char c)
{
    if (text.empty() || text.front() != c)
        return false;
    text.remove_prefix(1);
    return true;
}

} // namespace

std::optional<CivilTime> civilTimeFromReferenceSeconds(double seconds)
{
    if (!std::isfinite(seconds) || std::fabs(seconds) >= kMaxDateSeconds)
        return std::nullopt;
    const auto whole = static_cast<int64_t>(std::floor(seconds));
    const int64_t days = floorDiv(whole, kSecondsPerDay);
    const int64_t secondOfDay = whole - days * kSecondsPerDay;
    CivilTime time;
    civilFromDays(days + kReferenceDayFrom1970, time);
    time.hour = static_cast<int>(secondOfDay / 3600);
    time.minute = static_cast<int>(secondOfDay / 60 % 60);
    time.second = static_cast<int>(secondOfDay % 60);
    return time;
}

std::optional<Ref<Object>> parseInteger(std::string_view text)
{
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    const std::optional<uint64_t> parsed = unsignedFromText<uint64_t>(text, base);
    if (!parsed)
        return std::nullopt;
    const uint64_t magnitude = *parsed;
    if (negative) {
        if (magnitude > static_cast<uint64_t>(INT64_MAX) + 1)
            return std::nullopt;
        return Number::numberWithLongLong(static_cast<long long>(0 - magnitude));
    }
    if (magnitude > static_cast<uint64_t>(INT64_MAX))
        return Number::numberWithUnsignedLongLong(magnitude);
    return Number::numberWithLongLong(static_cast<long long>(magnitude));
}

std::optional<double> parseReal(std::string_view text)
{
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    // Only digits or a dot may start the number itself (from_chars would take a second sign).
    if (text.empty() || text.front() == '-' || text.front() == '+')
        return std::nullopt;
    double value = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size())
        return std::nullopt;
    if (status == std::errc::result_out_of_range) {
        // Too large or too small for a double: what strtod answers (infinity, or the nearest
        // value toward zero), in the C locale.
        static const locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
        const std::string copy(text);
        value = strtod_l(copy.c_str(), nullptr, cLocale);
    } else if (status != std::errc()) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

// YYYY-MM-DDTHH:MM:SSZ in UTC; the year may be longer than four digits or negative.
std::optional<double> parseDate(std::string_view text)
{
    CivilTime time;
    const bool negative = expect(text, '-');
    size_t yearDigits = 0;
    while (yearDigits < text.size() && text[yearDigits] >= '0' && text[yearDigits] <= '9')
        ++yearDigits;
    if (yearDigits < 4 || yearDigits > 12)
        return std::nullopt;
    std::from_chars(text.data(), text.data() + yearDigits, time.year);
    text.remove_prefix(yearDigits);
    if (negative)
        time.year = -time.year;
    if (!expect(text, '-') || !parseDigits(text, 2, time.month) || !expect(text, '-')
        || !parseDigits(text, 2, time.day) || !expect(text, 'T') || !parseDigits(text, 2, time.hour)
        || !expect(text, ':') || !parseDigits(text, 2, time.minute) || !expect(text, ':')
        || !parseDigits(text, 2, time.second) || !expect(text, 'Z') || !text.empty())
        return std::nullopt;
    if (time.month < 1 || time.month > 12 || time.day < 1 || time.day > daysInMonth(time.year, time.month)
        || time.hour > 23 || time.minute > 59 || time.second > 59)
        return std::nullopt;
    const double seconds = referenceSecondsFromCivilTime(time);
    if (std::fabs(seconds) >= kMaxDateSeconds)
        return std::nullopt;
    return seconds;
}

Ref<Object> makeArray(std::span<Ref<Object>> items, Mutability mutability)
{
    if (mutability == Mutability::MutableContainers) {
        Ref<MutableArray> array = MutableArray::arrayWithCapacity(items.size());
        for (Ref<Object>& item : items)
            array->addObject(item);
        return array;
    }
    std::vector<Ref<Object>> objects;
    objects.reserve(items.size());
    for (Ref<Object>& item : items)
        objects.push_back(std::move(item));
    return Array::arrayWithVector(std::move(objects));
}

Ref<Object> makeDictionary(std::span<Ref<Object>> keysAndValues, Mutability mutability, std::span<const size_t> keyHashes)
{
    const size_t count = keysAndValues.size() / 2;
    if (mutability == Mutability::MutableContainers) {
        Ref<MutableDictionary> dictionary = MutableDictionary::dictionaryWithCapacity(count);
        for (size_t i = 0; i < count; ++i)
            dictionary->setObject_forKey(keysAndValues[2 * i + 1], keysAndValues[2 * i]);
        return dictionary;
    }
    // Every key a reader makes is immutable, so it can be moved in as it is.
    return Dictionary::dictionaryAdoptingKeysAndValues(keysAndValues.first(2 * count), keyHashes.first(keyHashes.empty() ? 0 : count));
}

std::optional<uint64_t> referenceIndexOfEntry(const Object* key, const Object* value)
{
    const auto* text = dynamicCast<String>(key);
    const auto* number = dynamicCast<Number>(value);
    if (!text || !number || number->isBoolean() || number->storage() == Number::Storage::Floating
        || (number->storage() == Number::Storage::Signed && number->longLongValue() < 0)
        || !text->isEqualToString(ZSTR("CF$UID")))
        return std::nullopt;
    return number->unsignedLongLongValue();
}

std::string quotedForMessage(std::string_view text)
{
    constexpr size_t kLimit = 40;
    std::string quoted;
    for (char c : text.substr(0, kLimit))
        quoted.push_back(c >= 0x20 && c < 0x7f ? c : '?');
    if (text.size() > kLimit)
        quoted += "...";
    return quoted;
}

} // namespace zon::plist
