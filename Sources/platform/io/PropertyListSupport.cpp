#include "platform/io/PropertyListSupport.h"

#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"

#include <cmath>
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

} // namespace

int daysInMonth(int64_t year, int month)
{
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month == 2) {
        const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        return leap ? 29 : 28;
    }
    return kDays[month - 1];
}

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

double referenceSecondsFromCivilTime(const CivilTime& time)
{
    const int64_t days = daysFromCivil(time.year, time.month, time.day) - kReferenceDayFrom1970;
    return static_cast<double>(days * kSecondsPerDay + time.hour * 3600 + time.minute * 60 + time.second);
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
