#include "platform/runtime/Class.h"
#include "platform/values/CharacterSet.h"
#include "platform/values/Exception.h"
#include "platform/values/MutableString.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

using namespace zon;
using namespace zon::test;

namespace {

std::vector<std::string> utf8Of(const std::vector<Ref<String>>& strings)
{
    std::vector<std::string> out;
    for (const Ref<String>& s : strings)
        out.push_back(s->UTF8String());
    return out;
}

// The name of the platform exception that body raises, or "" when it raises none.
template <class Body>
std::string raisedName(Body&& body)
{
    try {
        body();
    } catch (const Exception& e) {
        return e.name()->UTF8String();
    }
    return "";
}

} // namespace

TEST(String, IndexesCountUTF16UnitsWithSurrogatePairsAsTwo)
{
    Ref<String> text = str("a\xF0\x9F\x98\x80" "b"); // a, U+1F600, b
    ASSERT_EQ(text->length(), 4u);
    EXPECT_EQ(text->characterAtIndex(1), 0xD83D);
    EXPECT_EQ(text->characterAtIndex(2), 0xDE00);
    EXPECT_EQ(text->substringWithRange({1, 2})->UTF8String(), "\xF0\x9F\x98\x80");
    // Half a pair cannot be written as UTF-8 and comes out as U+FFFD.
    EXPECT_EQ(text->substringToIndex(2)->UTF8String(), "a\xEF\xBF\xBD");
    EXPECT_EQ(raisedName([&] { text->characterAtIndex(4); }), "NSRangeException");
    EXPECT_EQ(text->objectClass()->name(), "NSString");
}

TEST(String, StrictUTF8DecodingAnswersNilForInvalidBytesAndLocatesThem)
{
    const std::string invalid[] = {
        "\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF", // overlong
        "\xED\xA0\x80", "\xED\xBF\xBF",                              // surrogates
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",                      // past U+10FFFF
        "\xE2\x82", "\xF0\x9F\x98", "\xC3",                          // truncated
        "\x80", "\xBF", "\xFF", "\xE2\x28\xA1",                      // stray or broken
    };
    for (const std::string& bytes : invalid) {
        // Alone, and after a run of ASCII long enough to take the vector path.
        EXPECT_EQ(String::stringWithUTF8String(bytes), nullptr) << testing::PrintToString(bytes);
        EXPECT_EQ(String::stringWithUTF8String(std::string(37, 'x') + bytes + "tail"), nullptr);
        EXPECT_EQ(MutableString::stringWithUTF8String(bytes), nullptr);
        // The fault is placed at its lead byte, whether a vector block or a character came before.
        for (const std::string& before : {std::string(), std::string(37, 'x'), "\xC3\xA9" + std::string(20, 'y')})
            EXPECT_EQ(utf::offsetOfInvalidUTF8(before + bytes + "tail"), before.size()) << testing::PrintToString(bytes);
    }
    // The boundaries of each sequence length are valid.
    const std::string_view edgeBytes = "\x7F\xDF\xBF\xEF\xBF\xBF\xF4\x8F\xBF\xBF\xC2\x80\xE0\xA0\x80\xF0\x90\x80\x80";
    EXPECT_EQ(utf::offsetOfInvalidUTF8(edgeBytes), edgeBytes.size());
    Ref<String> edges = str(edgeBytes);
    ASSERT_NE(edges, nullptr);
    EXPECT_EQ(edges->view(), (std::u16string {0x7F, 0x7FF, 0xFFFF, 0xDBFF, 0xDFFF, 0x80, 0x800, 0xD800, 0xDC00}));
    EXPECT_EQ(str(std::string_view("a\0b", 3))->length(), 3u);
}

TEST(String, MixedTextRoundTripsAtEveryVectorOffset)
{
    // Multi-byte characters at every offset around 16-byte blocks, against a plain reference.
    const std::pair<std::string, std::u16string> pieces[] = {
        {"\xC3\xA9", u"\u00E9"}, {"\xE4\xB8\xAD", u"\u4E2D"}, {"\xF0\x9F\x98\x80", u"\U0001F600"}};
    for (const auto& [utf8Piece, utf16Piece] : pieces) {
        for (size_t prefix = 0; prefix < 40; ++prefix) {
            std::string utf8 = std::string(prefix, 'a') + utf8Piece + std::string(prefix % 19, 'b') + utf8Piece;
            std::u16string expected = std::u16string(prefix, u'a') + utf16Piece + std::u16string(prefix % 19, u'b') + utf16Piece;
            Ref<String> decoded = str(utf8);
            ASSERT_NE(decoded, nullptr);
            EXPECT_EQ(decoded->view(), expected);
            EXPECT_EQ(decoded->UTF8String(), utf8);
            EXPECT_EQ(utf::utf8LengthOfUTF16(expected), utf8.size());
        }
    }
}

TEST(String, LongTextDecodesWhetherOrNotEveryByteIsACharacter)
{
    // Past the stack buffer, ASCII keeps the room it decoded into and other text is copied into
    // an exactly sized string; both must hold exactly the decoded units.
    const std::string ascii(5000, 'q');
    Ref<String> plain = str(ascii);
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->length(), ascii.size());
    EXPECT_EQ(plain->UTF8String(), ascii);

    const std::string mixed = ascii + "\xE4\xB8\xAD\xF0\x9F\x98\x80";
    Ref<String> decoded = str(mixed);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->view(), std::u16string(5000, u'q') + u"\u4E2D\U0001F600");
    EXPECT_EQ(decoded->UTF8String(), mixed);

    Ref<String> leading = str("\xC3\xA9" + ascii);
    ASSERT_NE(leading, nullptr);
    EXPECT_EQ(leading->view(), u"\u00E9" + std::u16string(5000, u'q'));

    EXPECT_EQ(str(ascii + "\xC3"), nullptr);
    EXPECT_EQ(str("\xED\xA0\x80" + ascii), nullptr);
}

TEST(String, Latin1AndUTF16BytesRoundTrip)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all.push_back(static_cast<char>(byte));
    Ref<String> latin1 = String::initWithBytes_length_encoding(all, NSISOLatin1StringEncoding);
    ASSERT_EQ(latin1->length(), 256u);
    EXPECT_EQ(latin1->characterAtIndex(0xE9), 0xE9);
    EXPECT_EQ(latin1->bytesUsingEncoding(NSISOLatin1StringEncoding), all);

    Ref<String> wide = str("A\xC4\x80\xF0\x9F\x98\x80"); // A, U+0100, U+1F600
    EXPECT_EQ(wide->bytesUsingEncoding(NSISOLatin1StringEncoding), std::nullopt);
    EXPECT_EQ(wide->bytesUsingEncoding(NSISOLatin1StringEncoding, true), "A??");
    EXPECT_FALSE(wide->canBeConvertedToEncoding(NSASCIIStringEncoding));
    EXPECT_EQ(String::initWithBytes_length_encoding("caf\xE9", NSASCIIStringEncoding), nullptr);

    const std::string big("\x00" "A\x01\x00\xD8\x3D\xDE\x00", 8), little("A\x00\x00\x01\x3D\xD8\x00\xDE", 8);
    EXPECT_EQ(wide->bytesUsingEncoding(NSUTF16BigEndianStringEncoding), big);
    EXPECT_EQ(wide->bytesUsingEncoding(NSUTF16LittleEndianStringEncoding), little);
    EXPECT_TRUE(String::initWithBytes_length_encoding(big, NSUTF16BigEndianStringEncoding)->isEqual(wide));
    EXPECT_TRUE(String::initWithBytes_length_encoding(little, NSUTF16LittleEndianStringEncoding)->isEqual(wide));
    // The unmarked encoding reads a mark in either order and assumes big-endian without one.
    EXPECT_TRUE(String::initWithBytes_length_encoding("\xFF\xFE" + little, NSUTF16StringEncoding)->isEqual(wide));
    EXPECT_TRUE(String::initWithBytes_length_encoding("\xFE\xFF" + big, NSUTF16StringEncoding)->isEqual(wide));
    EXPECT_TRUE(String::initWithBytes_length_encoding(big, NSUTF16StringEncoding)->isEqual(wide));
    EXPECT_EQ(wide->bytesUsingEncoding(NSUTF16StringEncoding), "\xFF\xFE" + little);
    // A mark is a character in the explicit encodings; an odd byte count is invalid.
    EXPECT_EQ(String::initWithBytes_length_encoding("\xFE\xFF" + big, NSUTF16BigEndianStringEncoding)->characterAtIndex(0), 0xFEFF);
    EXPECT_EQ(String::initWithBytes_length_encoding(big + "x", NSUTF16BigEndianStringEncoding), nullptr);
}

TEST(String, SubstringsOutsideTheStringRaise)
{
    Ref<String> text = str("hello");
    EXPECT_EQ(text->substringFromIndex(5)->length(), 0u);
    EXPECT_EQ(text->substringFromIndex(1)->UTF8String(), "ello");
    EXPECT_EQ(raisedName([&] { text->substringFromIndex(6); }), "NSRangeException");
    EXPECT_EQ(raisedName([&] { text->substringToIndex(6); }), "NSRangeException");
    EXPECT_EQ(raisedName([&] { text->substringWithRange({4, 2}); }), "NSRangeException");
    EXPECT_EQ(raisedName([&] { text->substringWithRange({2, SIZE_MAX}); }), "NSRangeException");
}

TEST(String, SearchHonoursOptionsAndRange)
{
    Ref<String> text = str("abcABCabc");
    EXPECT_EQ(text->rangeOfString(str("bc")), makeRange(1, 2));
    EXPECT_EQ(text->rangeOfString_options(str("bc"), NSBackwardsSearch), makeRange(7, 2));
    EXPECT_EQ(text->rangeOfString_options(str("BC"), NSCaseInsensitiveSearch), makeRange(1, 2));
    EXPECT_EQ(text->rangeOfString_options(str("BC"), NSCaseInsensitiveSearch | NSBackwardsSearch), makeRange(7, 2));
    EXPECT_EQ(text->rangeOfString_options(str("bc"), NSAnchoredSearch).location, NSNotFound);
    EXPECT_EQ(text->rangeOfString_options(str("ABC"), NSAnchoredSearch | NSCaseInsensitiveSearch), makeRange(0, 3));
    EXPECT_EQ(text->rangeOfString_options(str("Abc"), NSAnchoredSearch | NSBackwardsSearch | NSCaseInsensitiveSearch),
        makeRange(6, 3));
    EXPECT_EQ(text->rangeOfString_options_range(str("abc"), 0, {1, 7}).location, NSNotFound);
    EXPECT_EQ(text->rangeOfString_options_range(str("abc"), 0, {1, 8}), makeRange(6, 3));
    EXPECT_EQ(text->rangeOfString(String::string()).location, NSNotFound);
    EXPECT_EQ(text->rangeOfString(nullptr).location, NSNotFound);
    EXPECT_EQ(str("\xC3\x84pfel")->rangeOfString_options(str("\xC3\xA4PFEL"), NSCaseInsensitiveSearch), makeRange(0, 5));

    EXPECT_FALSE(text->hasPrefix(String::string()));
    EXPECT_TRUE(text->hasPrefix(str("abcA")));
    EXPECT_TRUE(text->hasSuffix(str("Cabc")));
    EXPECT_FALSE(text->hasSuffix(str("xabcABCabc")));

    Ref<String> emoji = str("x\xF0\x9F\x98\x80y\xF0\x9F\x98\x80");
    Ref<CharacterSet> smile = CharacterSet::characterSetWithCharactersInString(str("\xF0\x9F\x98\x80"));
    EXPECT_EQ(emoji->rangeOfCharacterFromSet(smile), makeRange(1, 2));
    EXPECT_EQ(emoji->rangeOfCharacterFromSet_options(smile, NSBackwardsSearch), makeRange(4, 2));
    EXPECT_EQ(emoji->rangeOfCharacterFromSet_options(smile, NSAnchoredSearch).location, NSNotFound);
}

TEST(String, NumericComparisonOrdersDigitRunsByValue)
{
    auto numeric = [](const char* a, const char* b) { return str(a)->compare_options(str(b), NSNumericSearch); };
    EXPECT_EQ(numeric("file9", "file10"), NSOrderedAscending);
    EXPECT_EQ(numeric("v1.10.2", "v1.9.7"), NSOrderedDescending);
    EXPECT_EQ(numeric("a007b", "a7b"), NSOrderedSame);
    EXPECT_EQ(numeric("99999999999999999999999", "100000000000000000000000"), NSOrderedAscending);
    EXPECT_EQ(numeric("10", "10a"), NSOrderedAscending);
    EXPECT_EQ(str("file10")->compare(str("file9")), NSOrderedAscending);
    EXPECT_EQ(str("FILE9")->compare_options(str("file10"), NSNumericSearch | NSCaseInsensitiveSearch), NSOrderedAscending);

    EXPECT_EQ(str("abc")->caseInsensitiveCompare(str("ABD")), NSOrderedAscending);
    EXPECT_EQ(str("Stra\xC3\x9F" "e")->caseInsensitiveCompare(str("STRA\xC3\x9F" "E")), NSOrderedSame);
    EXPECT_EQ(str("a")->compare(nullptr), NSOrderedDescending);
    EXPECT_EQ(str("xaby")->compare_options_range(str("ab"), 0, {1, 2}), NSOrderedSame);
    // Collation puts case second; code units put every capital first.
    EXPECT_EQ(str("a")->compare(str("B")), NSOrderedDescending);
    EXPECT_EQ(str("a")->localizedCompare(str("B")), NSOrderedAscending);
    EXPECT_EQ(str("a")->localizedCaseInsensitiveCompare(str("A")), NSOrderedSame);
}

TEST(String, SplittingTrimmingAndReplacing)
{
    EXPECT_THAT(utf8Of(str("a,,b,")->componentsSeparatedByString(str(","))), testing::ElementsAre("a", "", "b", ""));
    EXPECT_THAT(utf8Of(str("a::b")->componentsSeparatedByString(str("::"))), testing::ElementsAre("a", "b"));
    EXPECT_THAT(utf8Of(str("ab")->componentsSeparatedByString(String::string())), testing::ElementsAre("ab"));
    EXPECT_THAT(utf8Of(String::string()->componentsSeparatedByString(str(","))), testing::ElementsAre(""));
    EXPECT_THAT(utf8Of(str("a b\tc\n")->componentsSeparatedByCharactersInSet(CharacterSet::whitespaceAndNewlineCharacterSet())),
        testing::ElementsAre("a", "b", "c", ""));

    // U+00A0 and U+3000 are space separators; the newline is not white space.
    Ref<String> padded = str("\xC2\xA0 \t x y \xE3\x80\x80\n");
    EXPECT_EQ(padded->stringByTrimmingCharactersInSet(CharacterSet::whitespaceAndNewlineCharacterSet())->UTF8String(), "x y");
    EXPECT_EQ(padded->stringByTrimmingCharactersInSet(CharacterSet::whitespaceCharacterSet())->UTF8String(), "x y \xE3\x80\x80\n");
    EXPECT_EQ(str(" \n ")->stringByTrimmingCharactersInSet(CharacterSet::whitespaceAndNewlineCharacterSet())->length(), 0u);

    EXPECT_EQ(str("aaa")->stringByReplacingOccurrencesOfString_withString(str("aa"), str("x"))->UTF8String(), "xa");
    EXPECT_EQ(str("a.b.c")->stringByReplacingOccurrencesOfString_withString(str("."), str("::"))->UTF8String(), "a::b::c");
    EXPECT_EQ(str("a.b")->stringByReplacingOccurrencesOfString_withString(str("."), nullptr)->UTF8String(), "ab");
    EXPECT_EQ(str("AbAb")->stringByReplacingOccurrencesOfString_withString_options_range(str("ab"), str("-"),
                  NSCaseInsensitiveSearch, {1, 3})->UTF8String(), "Ab-");
    EXPECT_EQ(str("ab")->stringByAppendingString(str("cd"))->UTF8String(), "abcd");
}

TEST(String, CaseMappingUsesFullUnicodeMappings)
{
    EXPECT_EQ(str("stra\xC3\x9F" "e")->uppercaseString()->UTF8String(), "STRASSE");
    EXPECT_EQ(str("\xC3\x84pFEL")->lowercaseString()->UTF8String(), "\xC3\xA4pfel");
    EXPECT_EQ(str("hello wORLD\tfoo-bar\n3rd  \xC3\xA9t\xC3\xA9")->capitalizedString()->UTF8String(),
        "Hello World\tFoo-bar\n3rd  \xC3\x89t\xC3\xA9");
    EXPECT_EQ(String::string()->uppercaseString()->length(), 0u);
}

TEST(String, LeadingIntegerSkipsWhitespaceStopsAtNonDigitsAndSaturates)
{
    EXPECT_EQ(str("  42abc")->intValue(), 42);
    EXPECT_EQ(str("\n\t-17.9")->intValue(), -17);
    EXPECT_EQ(str("+5")->intValue(), 5);
    EXPECT_EQ(str("- 5")->intValue(), 0);
    EXPECT_EQ(str("abc12")->intValue(), 0);
    EXPECT_EQ(String::string()->intValue(), 0);
    EXPECT_EQ(str("99999999999")->intValue(), INT_MAX);
    EXPECT_EQ(str("-99999999999")->intValue(), INT_MIN);
    EXPECT_EQ(str("-2147483648")->intValue(), INT_MIN);
    EXPECT_EQ(str("99999999999")->integerValue(), 99999999999L);
    EXPECT_EQ(str("9223372036854775808")->longLongValue(), LLONG_MAX);
    EXPECT_EQ(str("-9223372036854775808")->longLongValue(), LLONG_MIN);
    EXPECT_EQ(str("-99999999999999999999999999")->longLongValue(), LLONG_MIN);
}

TEST(String, LeadingFloatAndBoolConversions)
{
    EXPECT_DOUBLE_EQ(str(" 3.5e2x")->doubleValue(), 350.0);
    EXPECT_DOUBLE_EQ(str(".5")->doubleValue(), 0.5);
    EXPECT_DOUBLE_EQ(str("-0.25")->doubleValue(), -0.25);
    EXPECT_DOUBLE_EQ(str("2e")->doubleValue(), 2.0);
    EXPECT_DOUBLE_EQ(str("7.e+1")->doubleValue(), 70.0);
    EXPECT_EQ(str("abc")->doubleValue(), 0.0);
    EXPECT_EQ(str(".")->doubleValue(), 0.0);
    EXPECT_EQ(str("inf")->doubleValue(), 0.0);
    EXPECT_TRUE(std::isinf(str("1e999")->doubleValue()));
    EXPECT_FLOAT_EQ(str("1.25")->floatValue(), 1.25f);

    for (const char* yes : {"YES", "yes", "true", "T", " 1", "0007", "-3", "9x"})
        EXPECT_TRUE(str(yes)->boolValue()) << yes;
    for (const char* no : {"NO", "false", "0", "000", "", "x1", " "})
        EXPECT_FALSE(str(no)->boolValue()) << no;
}

TEST(StringPaths, ComponentsCollapseSlashes)
{
    EXPECT_THAT(utf8Of(str("/tmp//scratch/")->pathComponents()), testing::ElementsAre("/", "tmp", "scratch"));
    EXPECT_THAT(utf8Of(str("tmp/scratch.tiff")->pathComponents()), testing::ElementsAre("tmp", "scratch.tiff"));
    EXPECT_THAT(utf8Of(str("//")->pathComponents()), testing::ElementsAre("/"));
    EXPECT_TRUE(String::string()->pathComponents().empty());
    EXPECT_EQ(String::pathWithComponents(str("/tmp//scratch/")->pathComponents())->UTF8String(), "/tmp/scratch");
}

TEST(StringPaths, ComponentAndExtensionOperations)
{
    struct Case {
        const char* path;
        const char* last;
        const char* extension;
        const char* withoutLast;
        const char* withoutExtension;
    };
    const Case cases[] = {
        {"/tmp/scratch.tiff", "scratch.tiff", "tiff", "/tmp", "/tmp/scratch"},
        {"/tmp/lock/", "lock", "", "/tmp", "/tmp/lock"},
        {"/tmp", "tmp", "", "/", "/tmp"},
        {"/", "/", "", "/", "/"},
        {"scratch..tiff", "scratch..tiff", "tiff", "", "scratch."},
        {"a//b.c.d//", "b.c.d", "d", "a", "a//b.c"},
        {"/dir.d/.profile", ".profile", "", "/dir.d", "/dir.d/.profile"},
        {"", "", "", "", ""},
    };
    for (const Case& c : cases) {
        Ref<String> path = str(c.path);
        EXPECT_EQ(path->lastPathComponent()->UTF8String(), c.last) << c.path;
        EXPECT_EQ(path->pathExtension()->UTF8String(), c.extension) << c.path;
        EXPECT_EQ(path->stringByDeletingLastPathComponent()->UTF8String(), c.withoutLast) << c.path;
        EXPECT_EQ(path->stringByDeletingPathExtension()->UTF8String(), c.withoutExtension) << c.path;
    }

    EXPECT_EQ(str("/tmp")->stringByAppendingPathComponent(str("scratch.tiff"))->UTF8String(), "/tmp/scratch.tiff");
    EXPECT_EQ(str("/tmp/")->stringByAppendingPathComponent(str("a/"))->UTF8String(), "/tmp/a");
    EXPECT_EQ(str("/")->stringByAppendingPathComponent(str("a"))->UTF8String(), "/a");
    EXPECT_EQ(String::string()->stringByAppendingPathComponent(str("a"))->UTF8String(), "a");
    EXPECT_EQ(str("/tmp/scratch.old")->stringByAppendingPathExtension(str("tiff"))->UTF8String(), "/tmp/scratch.old.tiff");
    EXPECT_EQ(str("/tmp/")->stringByAppendingPathExtension(str("tiff"))->UTF8String(), "/tmp.tiff");
    EXPECT_EQ(str("/")->stringByAppendingPathExtension(str("tiff")), nullptr);
    EXPECT_EQ(str("a")->stringByAppendingPathExtension(str("b/c")), nullptr);
    EXPECT_TRUE(str("~/x")->isAbsolutePath());
    EXPECT_FALSE(str("x/y")->isAbsolutePath());
}

TEST(MutableString, EditsKeepTheBaseViewOnTheCurrentText)
{
    Ref<MutableString> text = MutableString::stringWithUTF8String("ab");
    const String* base = text.get();
    std::u16string expected = u"ab";
    // Enough growth to move the buffer several times.
    for (int i = 0; i < 200; ++i) {
        text->appendString(str("xyz"));
        expected += u"xyz";
    }
    EXPECT_EQ(base->view(), expected);
    EXPECT_EQ(base->length(), expected.size());

    text->setString(str("hello"));
    text->insertString_atIndex(str(", world"), 5);
    text->replaceCharactersInRange_withString({0, 1}, str("J"));
    text->deleteCharactersInRange({5, 1});
    text->appendCharacters(u"!", 1);
    EXPECT_EQ(base->UTF8String(), "Jello world!");
    EXPECT_EQ(base->rangeOfString(str("world")), makeRange(6, 5));

    text->appendString(text);
    text->insertString_atIndex(text, 0);
    EXPECT_EQ(text->length(), 48u);
    text->appendCharacters(text->characters(), 2);
    EXPECT_TRUE(text->hasSuffix(str("!Je")));

    EXPECT_EQ(raisedName([&] { text->deleteCharactersInRange({text->length(), 1}); }), "NSRangeException");
    EXPECT_EQ(raisedName([&] { text->insertString_atIndex(str("x"), text->length() + 1); }), "NSRangeException");
    EXPECT_EQ(text->length(), 50u);

    Ref<MutableString> dots = MutableString::stringWithUTF8String("a.b.c");
    EXPECT_EQ(dots->replaceOccurrencesOfString_withString_options_range(str("."), str("--"), 0, {0, 5}), 2u);
    EXPECT_EQ(dots->UTF8String(), "a--b--c");
}

TEST(MutableString, CopiesEqualityAndHashFollowTheContents)
{
    Ref<MutableString> text = MutableString::stringWithUTF8String("value");
    Ref<String> frozen = staticRefCast<String>(text->copy());
    EXPECT_TRUE(frozen->isMemberOfClass(String::staticClass()));
    EXPECT_EQ(text->objectClass()->name(), "NSMutableString");
    EXPECT_TRUE(frozen->isEqual(text));
    EXPECT_TRUE(text->isEqual(ZSTR("value")));
    EXPECT_EQ(frozen->hash(), text->hash());
    EXPECT_EQ(ZSTR("value")->hash(), text->hash());

    // Results that equal a mutable receiver are snapshots, not the receiver.
    Ref<String> trimmed = text->stringByTrimmingCharactersInSet(CharacterSet::whitespaceCharacterSet());
    text->appendString(str("!"));
    EXPECT_EQ(frozen->UTF8String(), "value");
    EXPECT_EQ(trimmed->UTF8String(), "value");

    String* constant = ZSTR("constant");
    ASSERT_TRUE(constant->mutableCopy()->isKindOfClass(MutableString::staticClass()));
    EXPECT_EQ(constant->copy().get(), constant);
    EXPECT_EQ(frozen->copy().get(), frozen.get());
}

TEST(CharacterSet, StandardSetsFollowUnicodeProperties)
{
    CharacterSet* whitespace = CharacterSet::whitespaceCharacterSet();
    EXPECT_TRUE(whitespace->characterIsMember(' '));
    EXPECT_TRUE(whitespace->characterIsMember('\t'));
    EXPECT_TRUE(whitespace->characterIsMember(0x00A0));
    EXPECT_TRUE(whitespace->characterIsMember(0x3000));
    EXPECT_FALSE(whitespace->characterIsMember('\n'));
    EXPECT_TRUE(CharacterSet::newlineCharacterSet()->characterIsMember(0x2028));
    EXPECT_FALSE(CharacterSet::newlineCharacterSet()->characterIsMember(' '));
    EXPECT_TRUE(CharacterSet::decimalDigitCharacterSet()->characterIsMember(0x0663)); // Arabic-Indic three
    EXPECT_FALSE(CharacterSet::decimalDigitCharacterSet()->characterIsMember(0x00B2)); // superscript two
    EXPECT_TRUE(CharacterSet::alphanumericCharacterSet()->characterIsMember(0x00B2));
    EXPECT_TRUE(CharacterSet::letterCharacterSet()->characterIsMember(0x0301)); // combining acute
    EXPECT_TRUE(CharacterSet::punctuationCharacterSet()->characterIsMember(0x00BF));
    EXPECT_FALSE(CharacterSet::punctuationCharacterSet()->characterIsMember('+'));

    Ref<CharacterSet> vowels = CharacterSet::characterSetWithCharactersInString(str("ae\xF0\x9F\x98\x80"));
    Ref<CharacterSet> others = vowels->invertedSet();
    EXPECT_TRUE(vowels->longCharacterIsMember(0x1F600));
    EXPECT_FALSE(vowels->characterIsMember(0xD83D));
    EXPECT_FALSE(others->characterIsMember('a'));
    EXPECT_TRUE(others->characterIsMember(0xD83D));
    EXPECT_TRUE(others->longCharacterIsMember(0x10FFFF));
    EXPECT_TRUE(vowels->isEqual(CharacterSet::characterSetWithCharactersInString(str("\xF0\x9F\x98\x80" "ea"))));
    EXPECT_TRUE(CharacterSet::characterSetWithRange({'a', 3})->characterIsMember('c'));
    EXPECT_EQ(vowels->objectClass()->name(), "NSCharacterSet");
}
