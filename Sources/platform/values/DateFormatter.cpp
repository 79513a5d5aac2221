#include "platform/values/DateFormatter.h"

#include "platform/runtime/Class.h"
#include "platform/values/Date.h"
#include "platform/values/Locale.h"
#include "platform/values/SharedFormatterCacheInternal.h"
#include "platform/values/String.h"

#include <unicode/datefmt.h>
#include <unicode/locid.h>

#include <functional>
#include <mutex>

namespace zon {

ZON_DEFINE_CLASS(DateFormatter, "NSDateFormatter")

namespace {

struct DateFormatKey {
    DateFormatterStyle dateStyle;
    DateFormatterStyle timeStyle;
    std::string localeName;
    bool operator==(const DateFormatKey&) const = default;
};

struct DateFormatKeyHash {
    size_t operator()(const DateFormatKey& key) const
    {
        return std::hash<std::string>()(key.localeName) * 31 + key.dateStyle * 8 + key.timeStyle;
    }
};

// ICU's DateFormat keeps a calendar that formatting changes, so each shared one has a lock.
struct SharedDateFormat {
    std::mutex lock;
    std::unique_ptr<icu::DateFormat> format;
};

icu::DateFormat::EStyle icuStyle(DateFormatterStyle style)
{
    switch (style) {
    case NSDateFormatterShortStyle: return icu::DateFormat::kShort;
    case NSDateFormatterMediumStyle: return icu::DateFormat::kMedium;
    case NSDateFormatterLongStyle: return icu::DateFormat::kLong;
    case NSDateFormatterFullStyle: return icu::DateFormat::kFull;
    case NSDateFormatterNoStyle: break;
    }
    return icu::DateFormat::kNone;
}

std::unique_ptr<SharedDateFormat> makeSharedDateFormat(const DateFormatKey& key)
{
    auto shared = std::make_unique<SharedDateFormat>();
    shared->format.reset(icu::DateFormat::createDateTimeInstance(
        icuStyle(key.dateStyle), icuStyle(key.timeStyle), icu::Locale(key.localeName.c_str())));
    return shared->format ? std::move(shared) : nullptr;
}

SharedFormatterCache<DateFormatKey, SharedDateFormat, DateFormatKeyHash>& sharedFormats()
{
    static auto* cache = new SharedFormatterCache<DateFormatKey, SharedDateFormat, DateFormatKeyHash>();
    return *cache;
}

} // namespace

Ref<DateFormatter> DateFormatter::init()
{
    return makeObject<DateFormatter>();
}

DateFormatter::DateFormatter() = default;

void DateFormatter::exportMethods(Class& cls)
{
    cls.exportMethod("stringFromDate:", &DateFormatter::stringFromDate);
}

Ref<String> DateFormatter::stringFromDate(const Date* date) const
{
    if (!date)
        return nullptr;
    if (dateStyle_ == NSDateFormatterNoStyle && timeStyle_ == NSDateFormatterNoStyle)
        return String::string();
    const DateFormatKey key {dateStyle_, timeStyle_, locale_.get()->icuLocaleName()};
    auto* shared = sharedFormats().get(key, [&] { return makeSharedDateFormat(key); });
    if (!shared)
        return nullptr;
    const UDate milliseconds = date->timeIntervalSince1970() * 1000.0;
    icu::UnicodeString text;
    {
        std::lock_guard lock(shared->lock);
        shared->format->format(milliseconds, text);
    }
    return String::stringWithCharacters(text.getBuffer(), static_cast<size_t>(text.length()));
}

Ref<String> DateFormatter::stringForObjectValue(const Object* value) const
{
    auto* date = dynamicCast<Date>(value);
    return date ? stringFromDate(date) : nullptr;
}

} // namespace zon
