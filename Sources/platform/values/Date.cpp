#include "platform/values/Date.h"

#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zon {

ZON_DEFINE_CLASS(Date, "NSDate")

void Date::exportMethods(Class& cls) { cls.exportMethod("compare:", &Date::compare); }

namespace {

struct CivilTime {
    int64_t year;
    unsigned month, day, hour, minute, second;
};

// Days since 1970-01-01 to a proleptic Gregorian date (H. Hinnant's civil_from_days).
CivilTime civilFromSeconds(int64_t seconds)
{
    int64_t days = seconds / 86400;
    int64_t rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const int64_t dayOfEra = days - era * 146097;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t monthIndex = (5 * dayOfYear + 2) / 153;
    CivilTime time;
    time.day = static_cast<unsigned>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
    time.month = static_cast<unsigned>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
    time.year = yearOfEra + era * 400 + (time.month <= 2);
    time.hour = static_cast<unsigned>(rest / 3600);
    time.minute = static_cast<unsigned>(rest / 60 % 60);
    time.second = static_cast<unsigned>(rest % 60);
    return time;
}

int order(double a, double b) { return a < b ? -1 : (b < a ? 1 : 0); }

} // namespace

TimeInterval Date::timeIntervalSinceReferenceDateNow()
{
    using namespace std::chrono;
    const auto sinceEpoch = duration_cast<duration<double>>(system_clock::now().time_since_epoch());
    return sinceEpoch.count() - kTimeIntervalSince1970;
}

Ref<Date> Date::date() { return makeObject<Date>(timeIntervalSinceReferenceDateNow()); }
Ref<Date> Date::dateWithTimeIntervalSinceReferenceDate(TimeInterval seconds) { return makeObject<Date>(seconds); }
Ref<Date> Date::dateWithTimeIntervalSince1970(TimeInterval seconds) { return makeObject<Date>(seconds - kTimeIntervalSince1970); }
Ref<Date> Date::dateWithTimeIntervalSinceNow(TimeInterval seconds)
{
    return makeObject<Date>(timeIntervalSinceReferenceDateNow() + seconds);
}
Ref<Date> Date::distantFuture() { return makeObject<Date>(63113904000.0); }
Ref<Date> Date::distantPast() { return makeObject<Date>(-63114076800.0); }

TimeInterval Date::timeIntervalSinceDate(const Date* other) const { return seconds_ - (other ? other->seconds_ : 0); }
TimeInterval Date::timeIntervalSinceNow() const { return seconds_ - timeIntervalSinceReferenceDateNow(); }
Ref<Date> Date::dateByAddingTimeInterval(TimeInterval seconds) const { return makeObject<Date>(seconds_ + seconds); }

const Date* Date::earlierDate(const Date* other) const { return other && other->seconds_ < seconds_ ? other : this; }
const Date* Date::laterDate(const Date* other) const { return other && other->seconds_ > seconds_ ? other : this; }

ComparisonResult Date::compare(const Date* other) const
{
    if (!other)
        raisePlatformException(NSInvalidArgumentException, "*** -[NSDate compare:]: nil argument");
    return static_cast<ComparisonResult>(order(seconds_, other->seconds_));
}

bool Date::isEqualToDate(const Date* other) const { return other && other->seconds_ == seconds_; }

bool Date::isEqual(const Object* other) const
{
    const Date* date = dynamicCast<Date>(other);
    return date && isEqualToDate(date);
}

size_t Date::hash() const
{
    const double seconds = seconds_ == 0 ? 0.0 : seconds_; // -0 and 0 are equal
    uint64_t bits;
    std::memcpy(&bits, &seconds, sizeof bits);
    return static_cast<size_t>(bits ^ (bits >> 29));
}

Ref<String> Date::description() const
{
    // Far-off and non-finite times are clamped so that any stored value prints.
    constexpr double kLimit = 1e17;
    double seconds = std::floor(seconds_ + kTimeIntervalSince1970);
    if (std::isnan(seconds))
        seconds = 0;
    seconds = std::fmax(-kLimit, std::fmin(kLimit, seconds));
    const CivilTime t = civilFromSeconds(static_cast<int64_t>(seconds));
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02u-%02u %02u:%02u:%02u +0000", static_cast<long long>(t.year), t.month,
        t.day, t.hour, t.minute, t.second);
    return String::stringWithUTF8String(text);
}

Ref<Object> Date::copy() const { return Ref<Object>(const_cast<Date*>(this)); }

} // namespace zon
