#pragma once

// Number texts for the library's own formatters that put more around the number (the byte
// sizes), without a String of their own for the number.

#include "platform/values/NumberFormatter.h"

#include <unicode/unistr.h>

namespace zon {

// Appends the text of value under formatter's settings to out; false when ICU fails.
bool appendFormattedDouble(const NumberFormatter& formatter, double value, icu::UnicodeString& out);

} // namespace zon
