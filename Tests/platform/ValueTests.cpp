#include "platform/runtime/Class.h"
#include "platform/values/Date.h"
#include "platform/values/Geometry.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/Value.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace zon;
using namespace zon::test;

TEST(Value, BoxesGeometryWithThePlatformEncodings)
{
    auto point = Value::valueWithPoint({1.5, 2});
    auto size = Value::valueWithSize({3, 4});
    auto range = Value::valueWithRange({5, 6});
    auto rect = Value::valueWithRect(makeRect(1, 2, 3, 4));
    EXPECT_STREQ(point->objCType(), "{_NSPoint=ff}");
    EXPECT_STREQ(size->objCType(), "{_NSSize=ff}");
    EXPECT_STREQ(range->objCType(), "{_NSRange=II}");
    EXPECT_STREQ(rect->objCType(), "{_NSRect={_NSPoint=ff}{_NSSize=ff}}");
    EXPECT_EQ(point->pointValue(), makePoint(1.5, 2));
    EXPECT_EQ(size->sizeValue(), makeSize(3, 4));
    EXPECT_EQ(range->rangeValue(), makeRange(5, 6));
    EXPECT_EQ(rect->rectValue(), makeRect(1, 2, 3, 4));
    EXPECT_EQ(point->objectClass()->name(), "NSValue");
    EXPECT_FALSE(point->isKindOfClass(Number::staticClass()));
    EXPECT_EQ(utf8(point->description()), "NSPoint: {1.5, 2}");
    EXPECT_EQ(utf8(rect->description()), "NSRect: {{1, 2}, {3, 4}}");
}

TEST(Value, EqualityNeedsTheSameEncodingAndBytes)
{
    EXPECT_TRUE(Value::valueWithPoint({1, 2})->isEqual(Value::valueWithPoint({1, 2})));
    EXPECT_EQ(Value::valueWithPoint({1, 2})->hash(), Value::valueWithPoint({1, 2})->hash());
    EXPECT_FALSE(Value::valueWithPoint({1, 2})->isEqual(Value::valueWithSize({1, 2})));
    EXPECT_FALSE(Value::valueWithPoint({1, 2})->isEqual(Value::valueWithPoint({2, 1})));
}

TEST(Value, BoxesPointersSelectorsAndClassesWithoutChecks)
{
    int target = 0;
    auto pointer = Value::valueWithPointer(&target);
    EXPECT_STREQ(pointer->objCType(), "^v");
    EXPECT_EQ(pointer->pointerValue(), &target);

    SEL sel = selector("ipcService:didRecvString:");
    auto boxedSelector = Value::valueWithSelector(sel);
    EXPECT_STREQ(boxedSelector->objCType(), ":");
    EXPECT_EQ(boxedSelector->selectorValue(), sel);

    auto boxedClass = Value::valueWithClass(Number::staticClass());
    EXPECT_STREQ(boxedClass->objCType(), "#");
    EXPECT_EQ(boxedClass->classValue(), Number::staticClass());
    // The accessors read the stored bytes whatever was boxed.
    EXPECT_EQ(boxedClass->pointerValue(), static_cast<void*>(Number::staticClass()));

    auto string = str("held elsewhere");
    auto nonretained = Value::valueWithNonretainedObject(string);
    EXPECT_EQ(string->retainCount(), 1u);
    EXPECT_EQ(nonretained->nonretainedObjectValue(), string.get());
}

TEST(Geometry, PrintsTextForms)
{
    EXPECT_EQ(utf8(NSStringFromPoint({1.5, 2})), "{1.5, 2}");
    EXPECT_EQ(utf8(NSStringFromSize({-0.25, 1e20})), "{-0.25, 1e+20}");
    EXPECT_EQ(utf8(NSStringFromRect(makeRect(0, 1, 2.5, 3))), "{{0, 1}, {2.5, 3}}");
    EXPECT_EQ(utf8(NSStringFromRange({7, 18446744073709551615u})), "{7, 18446744073709551615}");
}

TEST(Geometry, ParsesTextFormsLeniently)
{
    EXPECT_EQ(NSPointFromString(str("{1.5, 2}")), makePoint(1.5, 2));
    EXPECT_EQ(NSPointFromString(str("{-3e2,.5}")), makePoint(-300, 0.5));
    EXPECT_EQ(NSPointFromString(str("{7")), makePoint(7, 0));
    EXPECT_EQ(NSPointFromString(str("nothing here")), makePoint(0, 0));
    EXPECT_EQ(NSPointFromString(nullptr), makePoint(0, 0));
    EXPECT_EQ(NSSizeFromString(str("{4, 5}")), makeSize(4, 5));
    EXPECT_EQ(NSRectFromString(str("{{1, 2}, {3, 4}}")), makeRect(1, 2, 3, 4));
    EXPECT_EQ(NSRectFromString(str("{{1, 2}, {3")), makeRect(1, 2, 3, 0));
    EXPECT_EQ(NSRangeFromString(str("{5, 10}")), makeRange(5, 10));
    EXPECT_EQ(NSRangeFromString(str("{-5, 0x10}")), makeRange(0, 0));
    // Hex is not a number form here: "0x10" reads as 0, then 10.
    EXPECT_EQ(NSPointFromString(str("0x10")), makePoint(0, 10));
}

TEST(Geometry, TextFormsRoundTrip)
{
    const Rect rect = makeRect(0.1, -2.75, 1e-7, 123456789.5);
    EXPECT_EQ(NSRectFromString(NSStringFromRect(rect)), rect);
    EXPECT_EQ(NSRangeFromString(NSStringFromRange({3, 4})), makeRange(3, 4));
}

TEST(Date, MeasuresFromTheReferenceDate)
{
    auto reference = Date::dateWithTimeIntervalSinceReferenceDate(0);
    EXPECT_EQ(utf8(reference->description()), "2001-01-01 00:00:00 +0000");
    EXPECT_DOUBLE_EQ(reference->timeIntervalSince1970(), 978307200.0);
    auto epoch = Date::dateWithTimeIntervalSince1970(0);
    EXPECT_EQ(utf8(epoch->description()), "1970-01-01 00:00:00 +0000");
    EXPECT_DOUBLE_EQ(reference->timeIntervalSinceDate(epoch), 978307200.0);
    EXPECT_EQ(utf8(Date::dateWithTimeIntervalSince1970(951782400.5)->description()), "2000-02-29 00:00:00 +0000");
    EXPECT_EQ(utf8(Date::dateWithTimeIntervalSince1970(-0.5)->description()), "1969-12-31 23:59:59 +0000");
    EXPECT_EQ(utf8(Date::distantFuture()->description()), "4001-01-01 00:00:00 +0000");
}

TEST(Date, ComparesAndPrintsAnyStoredValue)
{
    auto early = Date::dateWithTimeIntervalSinceReferenceDate(10);
    auto late = Date::dateWithTimeIntervalSinceReferenceDate(20);
    EXPECT_EQ(early->compare(late), NSOrderedAscending);
    EXPECT_EQ(late->compare(early), NSOrderedDescending);
    EXPECT_TRUE(early->isEqual(Date::dateWithTimeIntervalSinceReferenceDate(10)));
    EXPECT_EQ(early->hash(), Date::dateWithTimeIntervalSinceReferenceDate(10)->hash());
    EXPECT_EQ(early->laterDate(late), late.get());
    EXPECT_EQ(late->earlierDate(early), early.get());
    auto now = Date::date();
    EXPECT_LT(std::fabs(now->timeIntervalSinceNow()), 60.0);
    for (double far : {1e300, -1e300, double(NAN), double(INFINITY)})
        EXPECT_FALSE(utf8(Date::dateWithTimeIntervalSinceReferenceDate(far)->description()).empty());
}

TEST(Null, IsOneSharedMarker)
{
    EXPECT_EQ(Null::null(), Null::null());
    EXPECT_EQ(utf8(Null::null()->description()), "<null>");
    EXPECT_EQ(Null::null()->objectClass()->name(), "NSNull");
    EXPECT_EQ(Null::null()->copy().get(), Null::null());
    EXPECT_TRUE(Null::null()->isImmortal());
}
