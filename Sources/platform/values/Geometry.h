#pragma once

#include "platform/Export.h"
#include "platform/runtime/Ref.h"
#include "platform/values/Range.h"

namespace zon {

class String;

// Plane geometry in points; the coordinates are doubles.
struct Point {
    double x = 0;
    double y = 0;
    constexpr bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;
    constexpr bool operator==(const Size&) const = default;
};

struct Rect {
    Point origin;
    Size size;
    constexpr bool operator==(const Rect&) const = default;
};

constexpr Point makePoint(double x, double y) { return Point {x, y}; }
constexpr Size makeSize(double width, double height) { return Size {width, height}; }
constexpr Rect makeRect(double x, double y, double width, double height) { return Rect {{x, y}, {width, height}}; }

// Text forms: "{1.5, 2}", "{w, h}", "{{x, y}, {w, h}}", "{location, length}". Numbers print in
// their shortest round-trip form ("1.5", "2", "1e+20").
ZON_EXPORT Ref<String> NSStringFromPoint(Point point);
ZON_EXPORT Ref<String> NSStringFromSize(Size size);
ZON_EXPORT Ref<String> NSStringFromRect(Rect rect);
ZON_EXPORT Ref<String> NSStringFromRange(Range range);

// The reverse, leniently: the numbers found in the text are taken in order and missing ones read
// as 0, so "{1, 2}", "1 2" and "{{1,2},{3" all parse. A nil string gives all zeros.
ZON_EXPORT Point NSPointFromString(const String* text);
ZON_EXPORT Size NSSizeFromString(const String* text);
ZON_EXPORT Rect NSRectFromString(const String* text);
ZON_EXPORT Range NSRangeFromString(const String* text);

} // namespace zon
