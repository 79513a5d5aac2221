#include "platform/values/Geometry.h"

#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <cmath>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace zon {

namespace {

std::string pair(double a, double b) { return "{" + shortestDoubleText(a) + ", " + shortestDoubleText(b) + "}"; }

// The length of the decimal number that starts at text ([+-]digits[.digits][e[+-]digits]), or 0.
size_t numberLength(std::string_view text)
{
    auto digitsFrom = [&](size_t at) {
        while (at < text.size() && text[at] >= '0' && text[at] <= '9')
            ++at;
        return at;
    };
    size_t at = text[0] == '-' || text[0] == '+' ? 1 : 0;
    size_t end = digitsFrom(at);
    bool hasDigits = end > at;
    if (end < text.size() && text[end] == '.') {
        size_t fraction = digitsFrom(end + 1);
        hasDigits = hasDigits || fraction > end + 1;
        end = fraction;
    }
    if (!hasDigits)
        return 0;
    if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
        size_t sign = end + 1 < text.size() && (text[end + 1] == '-' || text[end + 1] == '+') ? end + 2 : end + 1;
        size_t exponent = digitsFrom(sign);
        if (exponent > sign)
            end = exponent;
    }
    return end;
}

// The numbers of text in order, at most count of them; missing ones are 0. Anything that is not
// part of a decimal number separates numbers.
std::vector<double> scanNumbers(const String* text, size_t count)
{
    std::vector<double> numbers(count, 0.0);
    if (!text)
        return numbers;
    const std::string utf8 = text->UTF8String();
    std::string_view rest = utf8;
    size_t found = 0;
    while (!rest.empty() && found < count) {
        if (size_t length = numberLength(rest)) {
            numbers[found++] = std::strtod(std::string(rest.substr(0, length)).c_str(), nullptr);
            rest.remove_prefix(length);
        } else {
            rest.remove_prefix(1);
        }
    }
    return numbers;
}

// A range part read as a double, kept in range of size_t (negative and NaN read as 0).
size_t toSize(double value)
{
    if (!(value > 0))
        return 0;
    if (value >= 18446744073709551616.0)
        return SIZE_MAX;
    return static_cast<size_t>(value);
}

} // namespace

Ref<String> NSStringFromPoint(Point point) { return String::stringWithUTF8String(pair(point.x, point.y)); }

Ref<String> NSStringFromSize(Size size) { return String::stringWithUTF8String(pair(size.width, size.height)); }

Ref<String> NSStringFromRect(Rect rect)
{
    return String::stringWithUTF8String(
        "{" + pair(rect.origin.x, rect.origin.y) + ", " + pair(rect.size.width, rect.size.height) + "}");
}

Ref<String> NSStringFromRange(Range range)
{
    return String::stringWithUTF8String("{" + std::to_string(range.location) + ", " + std::to_string(range.length) + "}");
}

Point NSPointFromString(const String* text)
{
    auto n = scanNumbers(text, 2);
    return {n[0], n[1]};
}

Size NSSizeFromString(const String* text)
{
    auto n = scanNumbers(text, 2);
    return {n[0], n[1]};
}

Rect NSRectFromString(const String* text)
{
    auto n = scanNumbers(text, 4);
    return {{n[0], n[1]}, {n[2], n[3]}};
}

Range NSRangeFromString(const String* text)
{
    auto n = scanNumbers(text, 2);
    return {toSize(n[0]), toSize(n[1])};
}

} // namespace zon
