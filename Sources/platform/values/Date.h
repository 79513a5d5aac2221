#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/ComparisonResult.h"

namespace zon {

// Seconds, as a double.
using TimeInterval = double;

// Seconds from 1970-01-01 to 2001-01-01, both UTC.
inline constexpr TimeInterval kTimeIntervalSince1970 = 978307200.0;

// A point in time: seconds since 2001-01-01 00:00:00 UTC (the reference date). Immutable, safe
// to share between threads; run-time class NSDate.
class ZON_EXPORT Date final : public Object {
    ZON_OBJECT(Date, Object)
public:
    // Exports the comparisons that sort descriptors call by selector ("compare:").
    static void exportMethods(Class& cls);
    // Now, from the system's real-time clock.
    static Ref<Date> date();
    static Ref<Date> dateWithTimeIntervalSinceReferenceDate(TimeInterval seconds);
    static Ref<Date> dateWithTimeIntervalSince1970(TimeInterval seconds);
    static Ref<Date> dateWithTimeIntervalSinceNow(TimeInterval seconds);
    // Year 4001 and year 1 BC, for "never" and "long ago".
    static Ref<Date> distantFuture();
    static Ref<Date> distantPast();
    static TimeInterval timeIntervalSinceReferenceDateNow();

    TimeInterval timeIntervalSinceReferenceDate() const { return seconds_; }
    TimeInterval timeIntervalSince1970() const { return seconds_ + kTimeIntervalSince1970; }
    // Positive when this date is later than other.
    TimeInterval timeIntervalSinceDate(const Date* other) const;
    TimeInterval timeIntervalSinceNow() const;
    Ref<Date> dateByAddingTimeInterval(TimeInterval seconds) const;
    const Date* earlierDate(const Date* other) const;
    const Date* laterDate(const Date* other) const;

    ComparisonResult compare(const Date* other) const;
    bool isEqualToDate(const Date* other) const;

    // UTC, whole seconds rounded down: "2001-01-01 00:00:00 +0000".
    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<Object> copy() const override;

private:
    explicit Date(TimeInterval seconds) : seconds_(seconds) {}

    TimeInterval seconds_;
};

} // namespace zon
