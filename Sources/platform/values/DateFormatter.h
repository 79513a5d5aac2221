#pragma once

#include "platform/values/Formatter.h"

namespace zon {

class Date;

// Date and time styles (the values are the original platform's).
enum DateFormatterStyle : unsigned long {
    NSDateFormatterNoStyle = 0,
    NSDateFormatterShortStyle = 1, // en_US: 1/2/01
    NSDateFormatterMediumStyle = 2,
    NSDateFormatterLongStyle = 3, // en_US: January 2, 2001
    NSDateFormatterFullStyle = 4,
};

// Dates as text in a locale and the process's time zone (as ICU read it when it first built a
// format for the styles and locale), through ICU's date-time patterns for the two styles. A new formatter has no date and no time style (and formats every date as "") and
// uses the current locale.
//
// ICU's formatter for a pair of styles and a locale is built once and shared between formatter
// objects and threads; ICU's date formats are not safe to use from two threads at once, so each
// shared one formats under its own lock. Formats only: reading text back answers false.
// Run-time class NSDateFormatter.
class ZON_EXPORT DateFormatter : public Formatter {
    ZON_OBJECT(DateFormatter, Formatter)
public:
    static Ref<DateFormatter> init();

    DateFormatterStyle dateStyle() const { return dateStyle_; }
    void setDateStyle(DateFormatterStyle style) { dateStyle_ = style; }
    DateFormatterStyle timeStyle() const { return timeStyle_; }
    void setTimeStyle(DateFormatterStyle style) { timeStyle_ = style; }

    // The current locale unless set; nil goes back to the current locale.
    Locale* locale() const { return locale_.get(); }
    void setLocale(const Locale* locale) { locale_.set(locale); }

    // Nil for nil.
    Ref<String> stringFromDate(const Date* date) const;
    // stringFromDate for a date; nil for any other object.
    Ref<String> stringForObjectValue(const Object* value) const override;

    static void exportMethods(Class& cls);

private:
    DateFormatter();

    DateFormatterStyle dateStyle_ = NSDateFormatterNoStyle;
    DateFormatterStyle timeStyle_ = NSDateFormatterNoStyle;
    FormatterLocale locale_;
};

} // namespace zon
