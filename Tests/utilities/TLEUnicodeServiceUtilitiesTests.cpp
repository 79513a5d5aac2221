#include "utilities/data/TXZonTLEUnicodeServiceUtilities.h"

#include "utilities/CodecTestSupport.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

namespace {

struct Encoded {
    int32_t count;
    bool isUTF16;
    Bytes bytes;
};

Encoded encode(std::u16string_view units, int32_t start, int32_t end)
{
    Ref<MutableData> buffer = MutableData::data();
    bool isUTF16 = true;
    const int32_t count = TXZonTLEUnicodeServiceUtilities::CodeBOM_start_end_toBuffer_isUTF16(str(units), start, end,
        buffer, &isUTF16);
    return {count, isUTF16, bytesOf(buffer)};
}

Encoded encode(std::u16string_view units) { return encode(units, 0, static_cast<int32_t>(units.size())); }

Bytes utf8Form(std::u16string_view units)
{
    Ref<MutableData> buffer = MutableData::data();
    TXZonTLEUnicodeServiceUtilities::WriteUTF8BOM_start_end_toBuffer(str(units), 0, static_cast<int32_t>(units.size()),
        buffer);
    return bytesOf(buffer);
}

int32_t utf8Length(std::u16string_view units)
{
    return TXZonTLEUnicodeServiceUtilities::GetUTF8BOMLength_start_end(str(units), 0, static_cast<int32_t>(units.size()));
}

} // namespace

TEST(TXZonTLEUnicodeServiceUtilities, NarrowTextIsOneBytePerCharacterWithoutAMark)
{
    Encoded abc = encode(u"abc");
    EXPECT_EQ(abc.count, 3);
    EXPECT_FALSE(abc.isUTF16);
    EXPECT_EQ(abc.bytes, (Bytes {0x61, 0x62, 0x63}));
    EXPECT_EQ(encode(u"\u00E9").bytes, Bytes {0xE9});
    // Only the range is encoded.
    EXPECT_EQ(encode(u"xabcx", 1, 4).bytes, (Bytes {0x61, 0x62, 0x63}));
}

TEST(TXZonTLEUnicodeServiceUtilities, EmptyAndReversedRangesAppendNothing)
{
    Encoded empty = encode(u"abc", 2, 2);
    EXPECT_EQ(empty.count, 0);
    EXPECT_TRUE(empty.bytes.empty());
    Encoded reversed = encode(u"abc", 3, 1);
    EXPECT_EQ(reversed.count, -2);
    EXPECT_TRUE(reversed.bytes.empty());
}

TEST(TXZonTLEUnicodeServiceUtilities, TheShorterOfUTF8AndUTF16IsChosen)
{
    // Narrow, but it starts like a UTF-16 mark: u = 7, w = 6.
    Encoded mark = encode(u"\u00FE\u00FF");
    EXPECT_EQ(mark.count, 6);
    EXPECT_TRUE(mark.isUTF16);
    EXPECT_EQ(mark.bytes, (Bytes {0xFE, 0xFF, 0x00, 0xFE, 0x00, 0xFF}));
    // u = 5, w = 4.
    Encoded omega = encode(u"\u03A9");
    EXPECT_EQ(omega.count, 4);
    EXPECT_EQ(omega.bytes, (Bytes {0xFE, 0xFF, 0x03, 0xA9}));
    // u = 8, w = 10.
    Encoded mixed = encode(u"\u03A9abc");
    EXPECT_EQ(mixed.count, 8);
    EXPECT_FALSE(mixed.isUTF16);
    EXPECT_EQ(mixed.bytes, (Bytes {0xEF, 0xBB, 0xBF, 0xCE, 0xA9, 0x61, 0x62, 0x63}));
    // A tie goes to UTF-16: u = 3 + 2 + 1 = 6 = w.
    Encoded tie = encode(u"\u0100a");
    EXPECT_TRUE(tie.isUTF16);
    EXPECT_EQ(tie.bytes, (Bytes {0xFE, 0xFF, 0x01, 0x00, 0x00, 0x61}));
}

TEST(TXZonTLEUnicodeServiceUtilities, ASurrogatePairIsWrittenFromItsShiftedUnits)
{
    // D83D DE00 gives the units F400 and 0200, whose UTF-8 is EF 90 80 C8 80: four bytes of it.
    EXPECT_EQ(utf8Form(u"\U0001F600"), (Bytes {0xEF, 0xBB, 0xBF, 0xEF, 0x90, 0x80, 0xC8}));
    EXPECT_EQ(utf8Length(u"\U0001F600"), 7);
    // A high surrogate whose shifted unit is itself a surrogate has no UTF-8 form: nothing.
    EXPECT_EQ(utf8Form(u"\xD836\xDC00"), (Bytes {0xEF, 0xBB, 0xBF}));
}

TEST(TXZonTLEUnicodeServiceUtilities, ABrokenPairWritesReplacementAndDropsTheLastUnit)
{
    // D800 then "a": U+FFFD, then "a" is written next; the remaining count fell by two, so "b" is
    // never written.
    EXPECT_EQ(utf8Form(u"\xD800" u"ab"), (Bytes {0xEF, 0xBB, 0xBF, 0xEF, 0xBF, 0xBD, 0x61}));
    // The length counts the broken pair as three bytes and "b" as one.
    EXPECT_EQ(utf8Length(u"\xD800" u"ab"), 7);
    // A high surrogate at the end and a lone low surrogate are written as they stand.
    EXPECT_EQ(utf8Form(u"a\xD800"), (Bytes {0xEF, 0xBB, 0xBF, 0x61, 0xED, 0xA0, 0x80}));
    EXPECT_EQ(utf8Form(u"\xDC00"), (Bytes {0xEF, 0xBB, 0xBF, 0xED, 0xB0, 0x80}));
}

TEST(TXZonTLEUnicodeServiceUtilities, ARangePastTheStringRaisesBeforeAppending)
{
    Ref<MutableData> buffer = MutableData::data();
    bool isUTF16 = false;
    const std::string reason = raisedReason(NSRangeException, [&] {
        TXZonTLEUnicodeServiceUtilities::CodeBOM_start_end_toBuffer_isUTF16(str(u"abc"), 1, 5, buffer, &isUTF16);
    });
    EXPECT_NE(reason, "");
    EXPECT_EQ(buffer->length(), 0u);
    raisedReason(NSRangeException, [&] { TXZonTLEUnicodeServiceUtilities::GetUTF8BOMLength_start_end(str(u"abc"), -1, 2); });
}
