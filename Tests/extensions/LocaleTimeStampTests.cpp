#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Date.h"
#include "platform/values/DateFormatter.h"
#include "platform/values/Locale.h"

#include <gtest/gtest.h>

namespace zon {
namespace {

Ref<String> text(std::string_view utf8) { return String::stringWithUTF8String(utf8); }

TEST(LocaleTimeStamps, LongDateAndShortTimeInTheReceiversLocale)
{
    AutoreleasePool pool;
    Ref<Date> date = Date::dateWithTimeIntervalSince1970(1700000000);
    Ref<Locale> german = Locale::localeWithLocaleIdentifier(text("de_DE").get());
    Ref<DateFormatter> formatter = DateFormatter::init();
    formatter->setDateStyle(NSDateFormatterLongStyle);
    formatter->setTimeStyle(NSDateFormatterShortStyle);
    formatter->setLocale(german.get());
    EXPECT_TRUE(german->localizedTimeStampFromDate(date.get())->isEqual(formatter->stringFromDate(date.get()).get()));

    // Nil is now: the text equals now's, read before or after (a minute may turn between).
    Ref<String> before = formatter->stringFromDate(Date::date().get());
    Ref<String> stamped = german->localizedTimeStampFromDate(nullptr);
    Ref<String> after = formatter->stringFromDate(Date::date().get());
    EXPECT_TRUE(stamped->isEqual(before.get()) || stamped->isEqual(after.get())) << stamped->UTF8String();
}

} // namespace
} // namespace zon
