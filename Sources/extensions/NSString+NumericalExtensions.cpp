// NSString(NumericalExtensions): C-style unsigned numbers and numeric ordering.

#include "platform/values/String.h"

#include <cstdlib>

namespace zon {

unsigned long long String::unsignedLongLongValue() const
{
    const std::string utf8 = UTF8String();
    return std::strtoull(utf8.c_str(), nullptr, 0);
}

ComparisonResult String::numericalCompare(const String* other) const { return compare_options(other, NSNumericSearch); }

} // namespace zon
