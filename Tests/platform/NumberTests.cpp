#include "platform/runtime/Class.h"
#include "platform/runtime/Invocation.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>

using namespace zon;
using namespace zon::test;

TEST(Number, RemembersTheCTypeItWasMadeFrom)
{
    EXPECT_STREQ(Number::numberWithChar('a')->objCType(), "c");
    EXPECT_STREQ(Number::numberWithUnsignedChar(200)->objCType(), "C");
    EXPECT_STREQ(Number::numberWithShort(-3)->objCType(), "s");
    EXPECT_STREQ(Number::numberWithUnsignedShort(3)->objCType(), "S");
    EXPECT_STREQ(Number::numberWithInt(-3)->objCType(), "i");
    EXPECT_STREQ(Number::numberWithUnsignedInt(3)->objCType(), "I");
    EXPECT_STREQ(Number::numberWithLong(-3)->objCType(), "q");
    EXPECT_STREQ(Number::numberWithInteger(3)->objCType(), "q");
    EXPECT_STREQ(Number::numberWithUnsignedLong(3)->objCType(), "Q");
    EXPECT_STREQ(Number::numberWithLongLong(3)->objCType(), "q");
    EXPECT_STREQ(Number::numberWithUnsignedLongLong(3)->objCType(), "Q");
    EXPECT_STREQ(Number::numberWithFloat(1.5f)->objCType(), "f");
    EXPECT_STREQ(Number::numberWithDouble(1.5)->objCType(), "d");
    EXPECT_STREQ(Number::numberWithBool(true)->objCType(), "c");
}

TEST(Number, GeneralFactoriesKeepTheWidthOfTheirEncoding)
{
    EXPECT_EQ(Number::numberWithSigned(300, 'c')->longLongValue(), 44);
    EXPECT_EQ(Number::numberWithSigned(-1, 'S')->unsignedLongLongValue(), 65535u);
    EXPECT_EQ(Number::numberWithUnsigned(UINT64_MAX, 'i')->longLongValue(), -1);
    EXPECT_STREQ(Number::numberWithFloating(2.9, 'i')->objCType(), "i");
    EXPECT_EQ(Number::numberWithFloating(2.9, 'i')->intValue(), 2);
    EXPECT_THROW(Number::numberWithSigned(1, '@'), Exception);
}

TEST(Number, BooleansAreSharedAndDistinctFromOne)
{
    EXPECT_EQ(Number::numberWithBool(true).get(), Number::yes());
    EXPECT_EQ(Number::numberWithBool(false).get(), Number::no());
    EXPECT_EQ(Number::yes()->objectClass()->name(), "NSCFBoolean");
    EXPECT_TRUE(Number::yes()->isKindOfClass(Number::staticClass()));
    EXPECT_TRUE(Number::yes()->isBoolean());

    auto one = Number::numberWithInt(1);
    EXPECT_NE(one.get(), Number::yes());
    EXPECT_FALSE(one->isBoolean());
    EXPECT_EQ(one->objectClass()->name(), "NSNumber");
    EXPECT_EQ(Number::staticClass()->superclass()->name(), "NSValue");
    // Numerically they are the same value.
    EXPECT_TRUE(one->isEqual(Number::yes()));
    EXPECT_TRUE(Number::yes()->isImmortal());
}

TEST(Number, EqualityAndOrderingAreNumericAcrossTypes)
{
    EXPECT_TRUE(Number::numberWithInt(1)->isEqual(Number::numberWithDouble(1.0)));
    EXPECT_TRUE(Number::numberWithUnsignedChar(7)->isEqualToNumber(Number::numberWithLongLong(7)));
    EXPECT_FALSE(Number::numberWithInt(1)->isEqual(Number::numberWithDouble(1.5)));
    EXPECT_EQ(Number::numberWithUnsignedLongLong(UINT64_MAX)->compare(Number::numberWithInt(-1)), NSOrderedDescending);
    EXPECT_EQ(Number::numberWithInt(-1)->compare(Number::numberWithUnsignedLongLong(UINT64_MAX)), NSOrderedAscending);
    EXPECT_FALSE(Number::numberWithInt(-1)->isEqual(Number::numberWithUnsignedLongLong(UINT64_MAX)));
    EXPECT_EQ(Number::numberWithDouble(1.5)->compare(Number::numberWithInt(1)), NSOrderedDescending);
    EXPECT_EQ(Number::numberWithDouble(-1.5)->compare(Number::numberWithInt(-1)), NSOrderedAscending);

    // 2^62 + 1 has no double of its own: the double 2^62 must not compare equal to it.
    const long long big = (1LL << 62) + 1;
    EXPECT_EQ(Number::numberWithDouble(static_cast<double>(1LL << 62))->compare(Number::numberWithLongLong(big)),
        NSOrderedAscending);
    EXPECT_EQ(Number::numberWithDouble(18446744073709551616.0)->compare(Number::numberWithUnsignedLongLong(UINT64_MAX)),
        NSOrderedDescending);
    EXPECT_EQ(Number::numberWithDouble(-9223372036854775808.0)->compare(Number::numberWithLongLong(LLONG_MIN)),
        NSOrderedSame);
    EXPECT_TRUE(Number::numberWithDouble(0.0)->isEqual(Number::numberWithDouble(-0.0)));
    EXPECT_FALSE(Number::numberWithInt(1)->isEqual(ZSTR("1")));
    EXPECT_THROW(Number::numberWithInt(1)->compare(nullptr), Exception);
}

TEST(Number, EqualNumbersHashAlike)
{
    EXPECT_EQ(Number::numberWithInt(42)->hash(), Number::numberWithDouble(42.0)->hash());
    EXPECT_EQ(Number::numberWithUnsignedChar(42)->hash(), Number::numberWithLongLong(42)->hash());
    EXPECT_EQ(Number::numberWithInt(-5)->hash(), Number::numberWithFloat(-5.0f)->hash());
    EXPECT_EQ(Number::numberWithDouble(0.0)->hash(), Number::numberWithDouble(-0.0)->hash());
    EXPECT_EQ(Number::yes()->hash(), Number::numberWithInt(1)->hash());
}

TEST(Number, AccessorsConvertLikeCButNeverOverflow)
{
    auto n = Number::numberWithInt(-1);
    EXPECT_EQ(n->unsignedIntValue(), UINT_MAX);
    EXPECT_EQ(n->unsignedCharValue(), 255);
    EXPECT_TRUE(n->boolValue());
    EXPECT_DOUBLE_EQ(n->doubleValue(), -1.0);
    EXPECT_EQ(Number::numberWithDouble(2.75)->intValue(), 2);
    EXPECT_EQ(Number::numberWithDouble(-2.75)->longValue(), -2);
    EXPECT_EQ(Number::numberWithDouble(1e300)->unsignedLongLongValue(), ULLONG_MAX);
    EXPECT_EQ(Number::numberWithDouble(-1e300)->longLongValue(), LLONG_MIN);
    EXPECT_EQ(Number::numberWithDouble(std::nan(""))->longLongValue(), 0);
    EXPECT_FALSE(Number::numberWithDouble(0.0)->boolValue());
    EXPECT_TRUE(Number::numberWithDouble(0.25)->boolValue());
    EXPECT_EQ(Number::numberWithUnsignedLongLong(UINT64_MAX)->unsignedLongLongValue(), UINT64_MAX);
}

TEST(Number, DescriptionsPrintAsThePlatformDoes)
{
    EXPECT_EQ(utf8(Number::numberWithInt(-42)->description()), "-42");
    EXPECT_EQ(utf8(Number::numberWithUnsignedLongLong(UINT64_MAX)->description()), "18446744073709551615");
    EXPECT_EQ(utf8(Number::numberWithUnsignedInt(UINT_MAX)->stringValue()), "4294967295");
    EXPECT_EQ(utf8(Number::numberWithChar('A')->description()), "65");
    EXPECT_EQ(utf8(Number::yes()->description()), "1");
    EXPECT_EQ(utf8(Number::no()->description()), "0");
    EXPECT_EQ(utf8(Number::numberWithDouble(1.5)->description()), "1.5");
    EXPECT_EQ(utf8(Number::numberWithDouble(0.1)->description()), "0.1");
    EXPECT_EQ(utf8(Number::numberWithDouble(3)->description()), "3");
    EXPECT_EQ(utf8(Number::numberWithFloat(0.1f)->description()), "0.1");
    EXPECT_EQ(utf8(Number::numberWithDouble(0.1 + 0.2)->description()), "0.30000000000000004");
    EXPECT_EQ(utf8(Number::numberWithDouble(-2.5e-7)->description()), "-2.5e-07");
    EXPECT_EQ(utf8(Number::numberWithDouble(1e16)->description()), "10000000000000000");
    EXPECT_EQ(utf8(Number::numberWithDouble(1e17)->description()), "1e+17");
    EXPECT_EQ(utf8(Number::numberWithDouble(123456.789)->description()), "123456.789");
    EXPECT_EQ(utf8(Number::numberWithDouble(0.0001)->description()), "0.0001");
    EXPECT_EQ(utf8(Number::numberWithDouble(std::numeric_limits<double>::infinity())->description()), "inf");
    EXPECT_EQ(utf8(Number::numberWithDouble(std::nan(""))->description()), "nan");
}

TEST(Number, ShortestTextReadsBackExactly)
{
    for (double value : {0.1, 1.0 / 3, 2.0 / 3 * 1e-300, 5e-324, 1.7976931348623157e308, 123456789.125, -0.000123}) {
        const std::string printed = shortestDoubleText(value);
        EXPECT_EQ(std::strtod(printed.c_str(), nullptr), value) << printed;
    }
}

TEST(Number, ScalarsTravelBoxedThroughCallsBySelector)
{
    auto boxed = method_types::Traits<unsigned short>::toObject(65535);
    auto* number = dynamicCast<Number>(boxed.get());
    ASSERT_NE(number, nullptr);
    EXPECT_STREQ(number->objCType(), "S");
    EXPECT_EQ(method_types::Traits<int>::fromObject(Number::numberWithDouble(-7.9)), -7);
    EXPECT_EQ(method_types::Traits<double>::fromObject(nullptr), 0.0);
    EXPECT_THROW(method_types::Traits<int>::fromObject(ZSTR("7")), Exception);

    SEL sel = selector("doSomething:");
    EXPECT_EQ(method_types::Traits<SEL>::fromObject(method_types::Traits<SEL>::toObject(sel)), sel);
}
