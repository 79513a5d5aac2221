// NSLocale(ZonLocaleDateExtensions): time stamps with a long date and a short time.

#include "platform/values/Date.h"
#include "platform/values/DateFormatter.h"
#include "platform/values/Locale.h"

namespace zon {

// ---- NSLocale(ZonLocaleDateExtensions) ----------------------------------------------------------

namespace {

Ref<String> timeStamp(const Date* date, const Locale* locale)
{
    Ref<DateFormatter> formatter = DateFormatter::init();
    formatter->setDateStyle(NSDateFormatterLongStyle);
    formatter->setTimeStyle(NSDateFormatterShortStyle);
    if (locale)
        formatter->setLocale(locale);
    Ref<Date> now = date ? nullptr : Date::date();
    return formatter->stringFromDate(date ? date : now.get());
}

} // namespace

Ref<String> Locale::systemLocalizedTimeStampFromDate(const Date* date)
{
    return timeStamp(date, nullptr);
}

Ref<String> Locale::localizedTimeStampFromDate(const Date* date) const
{
    return timeStamp(date, this);
}

} // namespace zon
