#include "platform/runtime/Class.h"
#include "platform/values/Data.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace zon;
using namespace zon::test;

TEST(Data, HoldsACopyOfItsBytes)
{
    uint8_t source[] = {1, 2, 3};
    auto data = Data::dataWithBytes(source, sizeof source);
    source[0] = 9;
    EXPECT_EQ(bytesOf(data), (std::vector<uint8_t> {1, 2, 3}));
    EXPECT_EQ(data->length(), 3u);
    EXPECT_EQ(Data::dataWithBytes(nullptr, 0)->length(), 0u);
    EXPECT_EQ(data->objectClass()->name(), "NSData");
    EXPECT_EQ(data->copy().get(), data.get());
}

TEST(Data, DescriptionIsTheClassicHexForm)
{
    const uint8_t bytes[] = {0x01, 0x02, 0x03, 0xff, 0xa0};
    EXPECT_EQ(utf8(Data::dataWithBytes(bytes, 3)->description()), "<010203>");
    EXPECT_EQ(utf8(Data::dataWithBytes(bytes, 4)->description()), "<010203ff>");
    EXPECT_EQ(utf8(Data::dataWithBytes(bytes, 5)->description()), "<010203ff a0>");
    EXPECT_EQ(utf8(Data::data()->description()), "<>");
}

TEST(Data, SubdataChecksItsRange)
{
    const uint8_t bytes[] = {1, 2, 3, 4};
    auto data = Data::dataWithBytes(bytes, 4);
    EXPECT_EQ(bytesOf(data->subdataWithRange({1, 2})), (std::vector<uint8_t> {2, 3}));
    EXPECT_EQ(data->subdataWithRange({4, 0})->length(), 0u);
    EXPECT_EQ(raisedDescription([&] { data->subdataWithRange({3, 2}); }),
        "NSRangeException: -[NSData subdataWithRange:]: range {3, 2} exceeds data length 4");
    // A huge length must not wrap around the check.
    EXPECT_EQ(raisedDescription([&] { data->subdataWithRange({1, SIZE_MAX}); }),
        "NSRangeException: -[NSData subdataWithRange:]: range {1, 18446744073709551615} exceeds data length 4");
}

TEST(Data, EqualityAndHashFollowTheBytes)
{
    const uint8_t bytes[] = {5, 6, 7};
    auto a = Data::dataWithBytes(bytes, 3);
    auto b = MutableData::dataWithBytes(bytes, 3);
    EXPECT_TRUE(a->isEqual(b));
    EXPECT_TRUE(b->isEqualToData(a));
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_FALSE(a->isEqual(Data::dataWithBytes(bytes, 2)));
    EXPECT_FALSE(a->isEqual(ZSTR("abc")));
}

TEST(MutableData, GrowsShrinksAndReplaces)
{
    auto data = MutableData::data();
    data->appendBytes_length("ab", 2);
    data->appendData(Data::dataWithBytes("cd", 2));
    data->increaseLengthBy(2);
    EXPECT_EQ(bytesOf(data), (std::vector<uint8_t> {'a', 'b', 'c', 'd', 0, 0}));
    data->replaceBytesInRange_withBytes({4, 2}, "ef");
    data->replaceBytesInRange_withBytes_length({1, 2}, "XYZ", 3);
    EXPECT_EQ(bytesOf(data), (std::vector<uint8_t> {'a', 'X', 'Y', 'Z', 'd', 'e', 'f'}));
    data->replaceBytesInRange_withBytes_length({1, 3}, nullptr, 0);
    data->resetBytesInRange({0, 1});
    EXPECT_EQ(bytesOf(data), (std::vector<uint8_t> {0, 'd', 'e', 'f'}));
    data->setLength(2);
    EXPECT_EQ(bytesOf(data), (std::vector<uint8_t> {0, 'd'}));
    // Growing again zeroes the bytes that were cut off, though the storage still holds them.
    data->setLength(4);
    EXPECT_EQ(bytesOf(data), (std::vector<uint8_t> {0, 'd', 0, 0}));
    data->setLength(2);
    EXPECT_EQ(MutableData::dataWithLength(3)->span()[2], 0);
    EXPECT_EQ(raisedDescription([&] { data->resetBytesInRange({1, 2}); }),
        "NSRangeException: -[NSMutableData resetBytesInRange:]: range {1, 2} exceeds data length 2");
    EXPECT_THROW(data->appendBytes_length(nullptr, 1), Exception);
}

TEST(MutableData, AppendingItsOwnBytesIsSafe)
{
    auto data = MutableData::dataWithBytes("abc", 3);
    for (int i = 0; i < 10; ++i)
        data->appendBytes_length(data->bytes(), data->length());
    EXPECT_EQ(data->length(), 3u << 10);
    data->replaceBytesInRange_withBytes_length({0, 1}, data->bytes(), 6);
    EXPECT_EQ(std::memcmp(data->bytes(), "abcabcbc", 8), 0);
}

TEST(MutableData, CopiesAreIndependent)
{
    auto data = MutableData::dataWithBytes("ab", 2);
    Ref<Object> frozen = data->copy();
    Ref<Object> thawed = Data::dataWithBytes("ab", 2)->mutableCopy();
    data->appendBytes_length("c", 1);
    EXPECT_EQ(dynamicCast<Data>(frozen.get())->length(), 2u);
    EXPECT_EQ(frozen->objectClass()->name(), "NSData");
    EXPECT_EQ(thawed->objectClass()->name(), "NSMutableData");
}

TEST(Data, BridgesToAndFromUTF8)
{
    auto data = Data::dataWithUTF8OfString(ZSTR("h\u00e9"));
    EXPECT_EQ(bytesOf(data), (std::vector<uint8_t> {'h', 0xc3, 0xa9}));
    EXPECT_TRUE(stringWithUTF8Data(data)->isEqual(ZSTR("h\u00e9")));
    const uint8_t invalid[] = {0xc3, 0x28};
    EXPECT_EQ(stringWithUTF8Data(Data::dataWithBytes(invalid, 2)), nullptr);
    EXPECT_EQ(stringWithUTF8Data(nullptr), nullptr);
    EXPECT_EQ(Data::dataWithUTF8OfString(nullptr), nullptr);
}

TEST(Data, LongTextEncodesAsUTF8AcrossConversionBlocks)
{
    // Long text is encoded in blocks of 16384 units: a surrogate pair or a lone surrogate at a
    // block's edge, and the first non-ASCII character far from the start, must come out as the
    // whole-string conversion gives them.
    constexpr size_t kBlock = 16384;
    std::u16string pairAcrossEdge = std::u16string(kBlock - 1, u'a') + u"\U0001F600" + std::u16string(kBlock, u'b');
    std::u16string loneAtEdge = std::u16string(kBlock - 1, u'a') + u'\xD800' + u"\u00E9" + std::u16string(kBlock, u'c');
    std::u16string lateNonASCII = std::u16string(3 * kBlock + 5, u'a') + u"\u4E2D\u00E9";
    const std::u16string texts[] = {std::u16string(2 * kBlock + 7, u'x'), pairAcrossEdge, loneAtEdge, lateNonASCII};
    for (const std::u16string& text : texts) {
        auto string = String::stringWithCharacters(text.data(), text.size());
        const std::string expected = string->UTF8String();
        auto data = Data::dataWithUTF8OfString(string);
        ASSERT_EQ(data->length(), expected.size());
        EXPECT_EQ(std::memcmp(data->bytes(), expected.data(), expected.size()), 0);
    }
    auto pair = String::stringWithCharacters(pairAcrossEdge.data(), pairAcrossEdge.size());
    auto roundTrip = stringWithUTF8Data(Data::dataWithUTF8OfString(pair));
    ASSERT_NE(roundTrip, nullptr);
    EXPECT_EQ(roundTrip->view(), pairAcrossEdge);
}
