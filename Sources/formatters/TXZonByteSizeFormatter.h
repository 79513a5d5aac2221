#pragma once

#include "platform/values/NumberFormatter.h"

namespace zon {

// A user-interface coordinate: a 32-bit float in this build.
using CGFloat = float;

// Byte counts as a number and a unit ("1.5 KB", "3 GB"). The units are B, KB, MB, GB, TB and PB
// on base 1024 throughout, chosen by the magnitude of the count; the sign stays on the number
// ("-2 KB"). The most negative 64-bit count has no magnitude that fits and is shown in B. Unit
// names and the "%1$@ %2$@" layout of number and unit come from the library's string table, so a
// translation may rename the units or put the unit first.
//
// A byte-size formatter is a number formatter with the decimal style and at most one fraction
// digit (the current locale's grouping and decimal mark, rounding half to even unless changed).
// It formats numbers only: any other object is logged as an error and shown as its description,
// and text is never read back. Run-time class TXZonByteSizeFormatter.
class ZON_EXPORT TXZonByteSizeFormatter final : public NumberFormatter {
    ZON_OBJECT(TXZonByteSizeFormatter, NumberFormatter)
public:
    static Ref<TXZonByteSizeFormatter> init();

    // A number's signed 64-bit value (a fractional number is truncated first) as size and unit.
    Ref<String> stringForObjectValue(const Object* value) const override;
    // Always false, writing nothing.
    bool getObjectValue_forString_errorDescription(
        Ref<Object>* value, const String* text, Ref<String>* errorDescription) const override;

private:
    TXZonByteSizeFormatter();
    Ref<String> stringForByteCount(long long bytes) const;
    friend Ref<String> TXZonByteSizeString(long long bytes);
};

// The text of a new byte-size formatter for bytes: one fraction digit at most, grouped as the
// current locale groups ("1,023 B", "1.5 KB").
ZON_EXPORT Ref<String> TXZonByteSizeString(long long bytes);

// The whole-number form: the size in its unit truncated toward zero to a 32-bit integer (1,535
// bytes give "1 KB"), written with no grouping and no locale ("1023 B"). A size out of the 32-bit
// range gives -2147483648, as the processor's truncating conversion answers.
ZON_EXPORT Ref<String> TXZonByteSizeDecimalString(long long bytes);

} // namespace zon

extern "C" {
// The smallest whole value not less than value, in single precision (2.1 gives 3, -2.1 gives -2).
ZON_EXPORT zon::CGFloat TXZonCeilCGFloat(zon::CGFloat value);
}
