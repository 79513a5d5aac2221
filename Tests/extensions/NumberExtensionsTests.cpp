#include "platform/runtime/Class.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace zon;

namespace {

// A subclass that inherits Number's constructors, to check that the explicit-width factories
// make instances of the class that asks.
class TaggedNumber final : public Number {
    ZON_OBJECT(TaggedNumber, Number)
    using Number::Number;
};

ZON_DEFINE_CLASS(TaggedNumber, "TaggedNumber")

} // namespace

TEST(NumberExplicitSize, EachWidthKeepsItsTypeAndValue)
{
    EXPECT_STREQ(Number::numberWithInt8(-5)->objCType(), "c");
    EXPECT_EQ(Number::numberWithInt8(-5)->int8Value(), -5);
    EXPECT_STREQ(Number::numberWithUnsignedInt8(200)->objCType(), "C");
    EXPECT_EQ(Number::numberWithUnsignedInt8(200)->unsignedInt8Value(), 200);
    EXPECT_STREQ(Number::numberWithInt16(-30000)->objCType(), "s");
    EXPECT_EQ(Number::numberWithInt16(-30000)->int16Value(), -30000);
    EXPECT_STREQ(Number::numberWithUnsignedInt16(60000)->objCType(), "S");
    EXPECT_EQ(Number::numberWithUnsignedInt16(60000)->unsignedInt16Value(), 60000);
    EXPECT_STREQ(Number::numberWithInt32(INT32_MIN)->objCType(), "i");
    EXPECT_EQ(Number::numberWithInt32(INT32_MIN)->int32Value(), INT32_MIN);
    EXPECT_STREQ(Number::numberWithUnsignedInt32(4000000000u)->objCType(), "I");
    EXPECT_EQ(Number::numberWithUnsignedInt32(4000000000u)->unsignedInt32Value(), 4000000000u);
    EXPECT_STREQ(Number::numberWithInt64(INT64_MIN)->objCType(), "q");
    EXPECT_EQ(Number::numberWithInt64(INT64_MIN)->int64Value(), INT64_MIN);
    EXPECT_STREQ(Number::numberWithUnsignedInt64(UINT64_MAX)->objCType(), "Q");
    EXPECT_EQ(Number::numberWithUnsignedInt64(UINT64_MAX)->unsignedInt64Value(), UINT64_MAX);
    // The unsigned widths print as unsigned values.
    EXPECT_EQ(Number::numberWithUnsignedInt8(200)->description()->UTF8String(), "200");
    EXPECT_EQ(Number::initWithUnsignedInt64(UINT64_MAX)->description()->UTF8String(), "18446744073709551615");
}

TEST(NumberExplicitSize, ASubclassGetsInstancesOfItsOwnKind)
{
    Ref<TaggedNumber> number = TaggedNumber::numberWithUnsignedInt16<TaggedNumber>(513);
    EXPECT_TRUE(number->isMemberOfClass(TaggedNumber::staticClass()));
    EXPECT_STREQ(number->objCType(), "S");
    EXPECT_EQ(number->unsignedInt16Value(), 513);
    EXPECT_TRUE(number->isEqual(Number::numberWithInt(513)));
}

TEST(NumberTimeInterval, IsADouble)
{
    Ref<Number> interval = Number::numberWithTimeInterval(1.25);
    EXPECT_STREQ(interval->objCType(), "d");
    EXPECT_EQ(interval->timeInterval(), 1.25);
}
