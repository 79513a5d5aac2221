#pragma once

#include "platform/values/Formatter.h"

namespace zon {

class Number;

// Number styles (the values are the original platform's). The styles this platform formats:
enum NumberFormatterStyle : unsigned long {
    NSNumberFormatterNoStyle = 0,      // whole numbers, no grouping
    NSNumberFormatterDecimalStyle = 1, // the locale's grouping, up to three fraction digits
};

enum NumberFormatterRoundingMode : unsigned long {
    NSNumberFormatterRoundCeiling = 0,
    NSNumberFormatterRoundFloor = 1,
    NSNumberFormatterRoundDown = 2,
    NSNumberFormatterRoundUp = 3,
    NSNumberFormatterRoundHalfEven = 4,
    NSNumberFormatterRoundHalfDown = 5,
    NSNumberFormatterRoundHalfUp = 6,
};

// Numbers as text in a locale, through ICU. A new formatter has no style (whole numbers), rounds
// half to even and uses the current locale. Setting the style resets the fraction digits to the
// style's own (0 to 0, or 0 to 3 for the decimal style); fraction digits set afterwards keep
// minimum <= maximum by moving the other bound.
//
// ICU's formatter for a combination of settings and locale is built once (building one costs
// about 30 times a formatting call) and shared between formatter objects and threads: it is
// immutable. Changing settings while another thread formats with the same object is a race, as
// with any value being written; formatting from several threads is safe. Formats only: reading
// text back answers false. Run-time class NSNumberFormatter.
class ZON_EXPORT NumberFormatter : public Formatter {
    ZON_OBJECT(NumberFormatter, Formatter)
public:
    static Ref<NumberFormatter> init();

    NumberFormatterStyle numberStyle() const { return style_; }
    void setNumberStyle(NumberFormatterStyle style);
    unsigned long minimumFractionDigits() const { return minimumFractionDigits_; }
    void setMinimumFractionDigits(unsigned long digits);
    unsigned long maximumFractionDigits() const { return maximumFractionDigits_; }
    void setMaximumFractionDigits(unsigned long digits);
    NumberFormatterRoundingMode roundingMode() const { return roundingMode_; }
    void setRoundingMode(NumberFormatterRoundingMode mode);

    // The current locale unless set; nil goes back to the current locale.
    Locale* locale() const { return locale_.get(); }
    void setLocale(const Locale* locale) { locale_.set(locale); }

    // Integers are formatted exactly (all 64 bits), floating values as doubles. Nil for nil.
    Ref<String> stringFromNumber(const Number* number) const;
    // stringFromNumber for a number; nil for any other object.
    Ref<String> stringForObjectValue(const Object* value) const override;

    static void exportMethods(Class& cls);

protected:
    NumberFormatter();

private:
    NumberFormatterStyle style_ = NSNumberFormatterNoStyle;
    unsigned long minimumFractionDigits_ = 0;
    unsigned long maximumFractionDigits_ = 0;
    NumberFormatterRoundingMode roundingMode_ = NSNumberFormatterRoundHalfEven;
    FormatterLocale locale_;
};

} // namespace zon
