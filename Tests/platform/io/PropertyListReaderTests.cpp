#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;

namespace {

Ref<Object> read(std::string_view bytes, PropertyListFormat* format = nullptr,
    PropertyListMutabilityOptions options = NSPropertyListImmutable)
{
    Ref<Error> error;
    Ref<Object> plist = PropertyListSerialization::propertyListWithData(dataOf(bytes), &error, format, options);
    EXPECT_TRUE(plist) << (error ? error->localizedDescription() : nullptr);
    EXPECT_FALSE(error);
    return plist;
}

template <class T>
Ref<T> readAs(std::string_view bytes)
{
    return dynamicCast<T>(read(bytes));
}

// The reader's message for bytes it must refuse.
std::string readFailure(std::string_view bytes)
{
    Ref<Error> error;
    PropertyListFormat format = NSPropertyListOpenStepFormat;
    EXPECT_FALSE(PropertyListSerialization::propertyListWithData(dataOf(bytes), &error, &format));
    if (!error)
        return "(no error)";
    EXPECT_EQ(error->domain()->UTF8String(), "NSCocoaErrorDomain");
    EXPECT_EQ(error->code(), 3840);
    return error->localizedDescription()->UTF8String();
}

std::string inPlist(std::string_view body) { return "<plist version=\"1.0\">" + std::string(body) + "</plist>"; }

Ref<Object> roundTrip(Object* plist)
{
    Ref<Error> error;
    Ref<Data> xml = PropertyListSerialization::dataWithPropertyList(plist, NSPropertyListXMLFormat_v1_0, &error);
    if (!xml) {
        ADD_FAILURE() << error->localizedDescription();
        return nullptr;
    }
    return read(std::string_view(static_cast<const char*>(xml->bytes()), xml->length()));
}

// Builds binary documents object by object, including ones no writer would produce.
class BinaryDocument {
public:
    size_t add(std::vector<uint8_t> object)
    {
        objects_.push_back(std::move(object));
        return objects_.size() - 1;
    }
    static std::vector<uint8_t> container(uint8_t type, std::vector<uint8_t> references)
    {
        std::vector<uint8_t> object {static_cast<uint8_t>(type << 4 | 0x0F), 0x12, 0, 0, 0, 0};
        const uint32_t count = static_cast<uint32_t>(type == 0xD ? references.size() / 2 : references.size());
        for (int i = 0; i < 4; ++i)
            object[2 + i] = static_cast<uint8_t>(count >> (24 - 8 * i));
        object.insert(object.end(), references.begin(), references.end());
        return object;
    }
    static std::vector<uint8_t> ascii(std::string_view text)
    {
        std::vector<uint8_t> object {static_cast<uint8_t>(0x50 | text.size())};
        object.insert(object.end(), text.begin(), text.end());
        return object;
    }
    // One-byte references, four-byte offsets.
    std::string build(size_t top) const
    {
        std::string out = "bplist00";
        std::vector<uint32_t> offsets;
        for (const auto& object : objects_) {
            offsets.push_back(static_cast<uint32_t>(out.size()));
            out.append(object.begin(), object.end());
        }
        const uint64_t table = out.size();
        for (uint32_t offset : offsets)
            appendBigEndian(out, offset, 4);
        out.append(6, '\0');
        out.push_back(4);
        out.push_back(1);
        appendBigEndian(out, objects_.size(), 8);
        appendBigEndian(out, top, 8);
        appendBigEndian(out, table, 8);
        return out;
    }
    static void appendBigEndian(std::string& out, uint64_t value, int size)
    {
        for (int i = size - 1; i >= 0; --i)
            out.push_back(static_cast<char>(value >> (8 * i)));
    }

private:
    std::vector<std::vector<uint8_t>> objects_;
};

std::string binaryOf(std::vector<uint8_t> object)
{
    BinaryDocument document;
    document.add(std::move(object));
    return document.build(0);
}

} // namespace

TEST(PropertyListReader, ReadsBackWhatTheWriterWrites)
{
    Ref<Dictionary> plist = Dictionary::dictionaryWithObjectsAndKeys({
        {str("string"), str("text \r\n\r\x01\x1f é 😀 &<>")},
        {str("max"), Number::numberWithUnsignedLongLong(UINT64_MAX)},
        {str("min"), Number::numberWithLongLong(INT64_MIN)},
        {str("negative zero"), Number::numberWithDouble(-0.0)},
        {str("nan"), Number::numberWithDouble(NAN)},
        {str("denormal"), Number::numberWithDouble(5e-324)},
        {str("yes"), Number::yes()},
        {str("date"), Date::dateWithTimeIntervalSinceReferenceDate(-1e10)},
        {str("data"), Data::dataWithBytes("\0\1\2\3\4", 5)},
        {str("array"), Array::arrayWithObjects({Dictionary::dictionary(), Array::array(), str("")})},
    });
    Ref<Dictionary> dictionary = dynamicCast<Dictionary>(roundTrip(plist));
    ASSERT_TRUE(dictionary);
    EXPECT_STREQ(dictionary->objectForKey<Number>(str("max"))->objCType(), "Q");
    EXPECT_EQ(dictionary->objectForKey<Number>(str("max"))->unsignedLongLongValue(), UINT64_MAX);
    EXPECT_STREQ(dictionary->objectForKey<Number>(str("min"))->objCType(), "q");
    EXPECT_TRUE(std::signbit(dictionary->objectForKey<Number>(str("negative zero"))->doubleValue()));
    EXPECT_TRUE(std::isnan(dictionary->objectForKey<Number>(str("nan"))->doubleValue()));
    EXPECT_TRUE(dictionary->objectForKey<Number>(str("yes"))->isBoolean());
    // Everything but NaN (which equals nothing) compares equal.
    Ref<MutableDictionary> expected = MutableDictionary::dictionaryWithDictionary(plist);
    Ref<MutableDictionary> actual = MutableDictionary::dictionaryWithDictionary(dictionary);
    expected->removeObjectForKey(str("nan"));
    actual->removeObjectForKey(str("nan"));
    EXPECT_TRUE(actual->isEqual(expected));
}

TEST(PropertyListReader, KeepsNulCarriageReturnsAndControlCharactersExactly)
{
    constexpr std::u16string_view units(u"a\0b\r\n\r\x1\x1F\x7F", 9);
    Ref<String> text = String::stringWithCharacters(units);
    Ref<String> back = dynamicCast<String>(roundTrip(text));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->view(), units);
}

TEST(PropertyListReader, DecodesReferencesCDATAAndCommentsInText)
{
    Ref<String> text =
        readAs<String>(inPlist("<string>&lt;&#x41;&#66;&quot;&apos;&#x1F600;<![CDATA[<&amp;>]]><!-- c -->z&gt;</string>"));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->UTF8String(), "<AB\"'😀<&amp;>z>");
    EXPECT_EQ(readAs<String>(inPlist("<string> \t </string>"))->UTF8String(), " \t ");
    EXPECT_EQ(readAs<String>(inPlist("<string/>"))->length(), 0u);
}

TEST(PropertyListReader, AcceptsTheLenientFormsOtherWritersUse)
{
    // A byte-order mark, a DOCTYPE, a bare root value, padding-free base64 across lines, signs and
    // hexadecimal integers, white space around numbers, spelled-out infinities.
    const std::string document = "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!DOCTYPE plist SYSTEM \"x.dtd\">\n"
                                 "<array><data>\n  aGVs\n  bG8\n</data><integer> 0x10 </integer><integer>+5</integer>"
                                 "<real>+infinity</real><real>-inf</real><real>1e999</real><real>.5</real>"
                                 "<dict><key>k</key><string>first</string><key>k</key><string>second</string></dict>"
                                 "</array>\n";
    Ref<Array> array = readAs<Array>(document);
    ASSERT_TRUE(array);
    ASSERT_EQ(array->count(), 8u);
    EXPECT_TRUE(array->objectAtIndex(0)->isEqual(Data::dataWithBytes("hello", 5)));
    EXPECT_EQ(static_cast<Number*>(array->objectAtIndex(1))->longLongValue(), 16);
    EXPECT_EQ(static_cast<Number*>(array->objectAtIndex(2))->longLongValue(), 5);
    EXPECT_EQ(static_cast<Number*>(array->objectAtIndex(3))->doubleValue(), INFINITY);
    EXPECT_EQ(static_cast<Number*>(array->objectAtIndex(4))->doubleValue(), -INFINITY);
    EXPECT_EQ(static_cast<Number*>(array->objectAtIndex(5))->doubleValue(), INFINITY);
    EXPECT_EQ(static_cast<Number*>(array->objectAtIndex(6))->doubleValue(), 0.5);
    EXPECT_EQ(static_cast<Dictionary*>(array->objectAtIndex(7))->objectForKey(str("k"))->description()->UTF8String(),
        "second");
}

TEST(PropertyListReader, DecodesBase64WithWhiteSpaceAtAnyPointAndOptionalPadding)
{
    static constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (size_t length = 0; length <= 10; ++length) {
        std::string bytes;
        for (size_t i = 0; i < length; ++i)
            bytes.push_back(static_cast<char>(i * 37 + length));
        std::string padded;
        for (size_t i = 0; i < length; i += 3) {
            uint32_t group = 0;
            for (size_t k = 0; k < 3; ++k)
                group = group << 8 | (i + k < length ? static_cast<uint8_t>(bytes[i + k]) : 0u);
            const size_t kept = std::min<size_t>(length - i, 3) + 1;
            for (size_t k = 0; k < 4; ++k)
                padded.push_back(k < kept ? kAlphabet[group >> (18 - 6 * k) & 63] : '=');
        }
        const std::string unpadded = padded.substr(0, padded.find('='));
        for (const std::string& encoded : {padded, unpadded}) {
            for (size_t cut = 0; cut <= encoded.size(); ++cut) {
                const std::string spaced = encoded.substr(0, cut) + "\n\t " + encoded.substr(cut);
                Ref<Data> data = readAs<Data>(inPlist("<data>" + spaced + "</data>"));
                ASSERT_TRUE(data) << spaced;
                EXPECT_EQ(std::string_view(static_cast<const char*>(data->bytes()), data->length()), bytes) << spaced;
            }
        }
    }
}

TEST(PropertyListReader, ReportsTheFormatAndMakesMutableContainersOnRequest)
{
    PropertyListFormat format = NSPropertyListOpenStepFormat;
    Ref<Object> plist = read(inPlist("<dict><key>a</key><array/></dict>"), &format, NSPropertyListMutableContainers);
    EXPECT_EQ(format, NSPropertyListXMLFormat_v1_0);
    Ref<MutableDictionary> dictionary = dynamicCast<MutableDictionary>(plist);
    ASSERT_TRUE(dictionary);
    EXPECT_TRUE(dynamicCast<MutableArray>(dictionary->objectForKey(str("a"))));
    EXPECT_FALSE(readAs<MutableDictionary>(inPlist("<dict/>")));

    read(binaryOf({0x09}), &format);
    EXPECT_EQ(format, NSPropertyListBinaryFormat_v1_0);
}

TEST(PropertyListReader, RefusesMalformedXMLWithItsPosition)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "zero-length"},
        {"{ a = b; }", "Old-style"},
        {"<plist><string>a</string>", "Malformed XML"},
        {"<?xml version=\"1.0\"?>\n", "No root element"},
        {inPlist("<string>&bogus;</string>"), "Undefined entity &bogus;"},
        {inPlist("<string>&#xD800;</string>"), "Invalid character reference"},
        {inPlist("<string>&#x110000;</string>"), "Invalid character reference"},
        {inPlist("<string>&#;</string>"), "Invalid character reference"},
        {inPlist("<string>&#12a;</string>"), "Invalid character reference"},
        {inPlist("<string>&amp</string>"), "Unterminated entity"},
        {"<plist>\n<string>\xC3\x28</string></plist>", "Invalid UTF-8 at line 2, column 9"},
        {"<plist><string>\xED\xA0\x80</string></plist>", "Invalid UTF-8"},
        {inPlist("<data>!!!!</data>"), "Invalid base64"},
        {inPlist("<data>QQ=a</data>"), "Invalid base64"},
        {inPlist("<data>Q</data>"), "Invalid base64"},
        {inPlist("<data>QQ===</data>"), "Invalid base64"},
        {inPlist("<date>2001-13-01T00:00:00Z</date>"), "Invalid date"},
        {inPlist("<date>2001-02-29T00:00:00Z</date>"), "Invalid date"},
        {inPlist("<date>2001-01-01 00:00:00Z</date>"), "Invalid date"},
        {inPlist("<date>2001-01-01T00:00:00</date>"), "Invalid date"},
        {inPlist("<date>2001-01-01T24:00:00Z</date>"), "Invalid date"},
        {inPlist("<integer>12a</integer>"), "Invalid integer"},
        {inPlist("<integer></integer>"), "Invalid integer"},
        {inPlist("<integer>18446744073709551616</integer>"), "Invalid integer"},
        {inPlist("<integer>-9223372036854775809</integer>"), "Invalid integer"},
        {inPlist("<integer>1.5</integer>"), "Invalid integer"},
        {inPlist("<real>abc</real>"), "Invalid real"},
        {inPlist("<real>--1</real>"), "Invalid real"},
        {inPlist("<real>1.5.5</real>"), "Invalid real"},
        {inPlist("<dict><key>a</key></dict>"), "Key without a value"},
        {inPlist("<dict><key>a</key><key>b</key><string/></dict>"), "Key without a value before another <key>"},
        {inPlist("<dict><string>x</string></dict>"), "Expected <key> but found <string>"},
        {inPlist("<array><key>x</key></array>"), "Unexpected element <key>"},
        {inPlist("<string>a</string>") + "junk", "Unexpected text after the root element"},
        {inPlist("<string>a</string>") + "<plist/>", "Unexpected element after the root element"},
        {inPlist("<string>a</string><string>b</string>"), "Unexpected element after the property list's value"},
        {inPlist(""), "Empty <plist> element"},
        {inPlist("<foo/>"), "Unexpected element <foo>"},
        {inPlist("<array>x<true/></array>"), "Unexpected text inside <array>"},
        {inPlist("<array><![CDATA[x]]></array>"), "Unexpected text inside <array>"},
        {inPlist("<true>x</true>"), "Unexpected text inside <true>"},
        {inPlist("<string>a<b/></string>"), "Unexpected element <b> inside <string>"},
        {"<plist>\n<array>\n\t<foo/>\n</array></plist>", "Unexpected element <foo> at line 3, column 2"},
        {"<plist>\n<string>fish &amp; &bogus;</string></plist>", "Undefined entity &bogus; at line 2, column 20"},
        {"<plist>\n<string><![CDATA[x]]>\n &#xZ;</string></plist>", "Invalid character reference &#xZ; at line 3, column 2"},
    };
    for (const auto& [document, message] : cases)
        EXPECT_THAT(readFailure(document), HasSubstr(message)) << document;
}

TEST(PropertyListReader, InvalidUTF8AnywhereComesBeforeEveryOtherFault)
{
    // The UTF-8 is checked in stretches of some kilobytes as the reader goes: faults before it in
    // the document, in its markup or values, and characters straddling stretches must not change
    // the verdict.
    std::string padding;
    while (padding.size() < 200000)
        padding += "<string>\xC3\xA9t\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80</string>";
    const std::string valid = "<plist><array>" + padding + "</array></plist>";
    for (size_t shift = 0; shift < 4; ++shift) {
        Ref<Array> array = readAs<Array>("<plist><array>" + std::string(shift, ' ') + padding + "</array></plist>");
        ASSERT_TRUE(array);
        EXPECT_EQ(static_cast<String*>(array->lastObject())->UTF8String(), "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80");
    }
    const std::string farInvalid = "<!-- \xC3\x28 -->";
    EXPECT_THAT(readFailure(valid + farInvalid), HasSubstr("Invalid UTF-8 at line 1, column " + std::to_string(valid.size() + 6)));
    EXPECT_THAT(readFailure("<plist><array><integer>x</integer>" + padding + "</array></plist>" + farInvalid),
        HasSubstr("Invalid UTF-8"));
    EXPECT_THAT(readFailure("<plist><array><foo>" + padding + "</array></plist>" + farInvalid), HasSubstr("Invalid UTF-8"));
    EXPECT_THAT(readFailure("<plist><array><key>\xFF</key></array></plist>"), HasSubstr("Invalid UTF-8 at line 1, column 20"));
}

TEST(PropertyListReader, SkipsMarkupThatCarriesNoValue)
{
    // An internal DOCTYPE subset whose quotes and comments hold '>' and ']', processing
    // instructions and comments between elements, attributes in either quote.
    const std::string document = "<?xml version='1.0' encoding=\"UTF-8\"?><!-- > -->\n"
                                 "<!DOCTYPE plist [ <!ENTITY x \"]>\"> <!-- ]> --> ]>\n"
                                 "<plist version='1.0' x = \"a>b\"><?pi ?><array><!-- <x> -->"
                                 "<string id=\"1\">a<?pi?>b</string><true/></array></plist><!-- end -->\n";
    Ref<Array> array = readAs<Array>(document);
    ASSERT_TRUE(array);
    ASSERT_EQ(array->count(), 2u);
    EXPECT_EQ(static_cast<String*>(array->objectAtIndex(0))->UTF8String(), "ab");
}

TEST(PropertyListReader, RefusesBrokenMarkupBeforeFaultsInTheValues)
{
    const std::pair<std::string, std::string> cases[] = {
        {inPlist("<string>a</strin>"), "Malformed XML (Start-end tags mismatch) at line 1, column 31"},
        {inPlist("<string>a < b</string>"), "Malformed XML (Unrecognized tag)"},
        {inPlist("<string>a<!-- x</string>"), "Malformed XML (Unterminated comment)"},
        {inPlist("<string><![CDATA[x</string>"), "Malformed XML (Unterminated CDATA"},
        {inPlist("<string a=b>x</string>"), "Malformed XML (Bad attribute"},
        {inPlist("<string a=\"1\"b=\"2\">x</string>"), "Malformed XML (Bad attribute"},
        {inPlist("<string"), "Malformed XML"},
        {"<!DOCTYPE plist [ <plist/>", "Malformed XML"},
        {"</plist>", "Malformed XML (Start-end tags mismatch)"},
        // The unknown element comes first, but the broken end tag is what gets reported.
        {inPlist("<foo/><array></dict>"), "Malformed XML (Start-end tags mismatch)"},
    };
    for (const auto& [document, message] : cases)
        EXPECT_THAT(readFailure(document), HasSubstr(message)) << document;
}

TEST(PropertyListReader, RefusesDeepXMLWithoutRecursing)
{
    const auto nested = [](size_t depth) {
        std::string document;
        for (size_t i = 0; i < depth; ++i)
            document += "<array>";
        for (size_t i = 0; i < depth; ++i)
            document += "</array>";
        return document;
    };
    read(nested(512));
    EXPECT_THAT(readFailure(nested(513)), HasSubstr("nested more than 512"));
    EXPECT_THAT(readFailure(nested(1000000)), HasSubstr("nested more than 512"));
}

TEST(PropertyListReader, ReadsBinaryScalarsExactly)
{
    const auto number = [](std::vector<uint8_t> object) {
        return readAs<Number>(binaryOf(std::move(object)));
    };
    Ref<Number> max = number({0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_STREQ(max->objCType(), "Q");
    EXPECT_EQ(max->unsignedLongLongValue(), UINT64_MAX);
    EXPECT_EQ(number({0x14, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 0})->longLongValue(),
        INT64_MIN);
    EXPECT_EQ(number({0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE})->longLongValue(), -2);
    EXPECT_EQ(number({0x12, 0xFF, 0xFF, 0xFF, 0xFF})->longLongValue(), 0xFFFFFFFFll);
    EXPECT_STREQ(number({0x22, 0x3F, 0xC0, 0, 0})->objCType(), "f");
    EXPECT_EQ(number({0x22, 0x3F, 0xC0, 0, 0})->doubleValue(), 1.5);
    EXPECT_TRUE(number({0x09})->isBoolean());

    Ref<String> lone = readAs<String>(binaryOf({0x62, 0xD8, 0x00, 0x00, 0x41}));
    ASSERT_TRUE(lone);
    EXPECT_EQ(lone->view(), std::u16string_view(u"\xD800" u"A"));
    Ref<Date> date = readAs<Date>(binaryOf({0x33, 0xC1, 0xCD, 0xCD, 0x65, 0, 0, 0, 0}));
    ASSERT_TRUE(date);
    EXPECT_EQ(date->timeIntervalSinceReferenceDate(), -1e9);
}

TEST(PropertyListReader, RefusesHostileBinaryDocuments)
{
    BinaryDocument selfContaining;
    selfContaining.add(BinaryDocument::container(0xA, {0}));
    BinaryDocument loop;
    loop.add(BinaryDocument::container(0xA, {1}));
    loop.add(BinaryDocument::container(0xD, {2, 0}));
    loop.add(BinaryDocument::ascii("k"));
    // Thirty levels of ten references each to the next level: 10^30 values if expanded.
    BinaryDocument laughs;
    for (uint8_t level = 0; level < 30; ++level)
        laughs.add(BinaryDocument::container(0xA, std::vector<uint8_t>(10, level + 1)));
    laughs.add(BinaryDocument::ascii("lol"));
    BinaryDocument deep;
    for (uint8_t level = 0; level < 200; ++level)
        deep.add(BinaryDocument::container(0xA, {static_cast<uint8_t>(level + 1)}));
    deep.add({0x08});
    BinaryDocument numberKey;
    numberKey.add(BinaryDocument::container(0xD, {1, 1}));
    numberKey.add({0x10, 0x01});
    BinaryDocument badReference;
    badReference.add(BinaryDocument::container(0xA, {7}));

    std::string badOffset = binaryOf({0x09});
    badOffset[9 + 3] = 0x7F; // the single offset now points past the objects
    std::string badSizes = binaryOf({0x09});
    badSizes[badSizes.size() - 32 + 7] = 0;
    std::string noObjects = binaryOf({0x09});
    noObjects[noObjects.size() - 32 + 15] = 0;
    std::string badTop = binaryOf({0x09});
    badTop[badTop.size() - 32 + 23] = 1;
    std::string badTable = binaryOf({0x09});
    badTable[badTable.size() - 1] = 0x7F;

    const std::pair<std::string, std::string> cases[] = {
        {selfContaining.build(0), "container inside itself"},
        {loop.build(0), "container inside itself"},
        {laughs.build(0), "expand too far"},
        {deep.build(0), ""}, // 200 levels are fine
        {numberKey.build(0), "key is not a string"},
        {badReference.build(0), "reference out of bounds"},
        {badOffset, "offset out of bounds"},
        {badSizes, "offset or reference size"},
        {noObjects, "object count"},
        {badTop, "top object"},
        {badTable, "Offset table out of bounds"},
        {"bplist00", "too short"},
        {"bplist01" + binaryOf({0x09}).substr(8), "Unsupported binary property list version"},
        {binaryOf({0x4F, 0x10, 0x7F}), "length out of bounds"},
        {binaryOf({0x4F, 0x20, 0x7F}), "Invalid object length"},
        {binaryOf({0xA3, 0, 0}), "length out of bounds"},
        {binaryOf({0x13, 0, 0}), "Invalid integer"},
        {binaryOf({0x14, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}), "out of the 64-bit range"},
        {binaryOf({0x15, 0}), "Invalid integer"},
        {binaryOf({0x21, 0, 0}), "Invalid real"},
        {binaryOf({0x34, 0, 0, 0, 0, 0, 0, 0, 0}), "Invalid date"},
        {binaryOf({0x52, 'a', 0xE9}), "Non-ASCII"},
        {binaryOf({0x00}), "Unsupported object type 0x00"},
        {binaryOf({0x81, 0}), "Truncated UID"},
        {binaryOf({0x70, 0}), "Unsupported object type 0x70"},
        {binaryOf({0xC1, 0}), "Unsupported object type 0xc1"},
    };
    for (const auto& [document, message] : cases) {
        if (message.empty())
            read(document);
        else
            EXPECT_THAT(readFailure(document), HasSubstr(message)) << testing::PrintToString(document);
    }

    // One-byte references reach 255 objects only, so this chain of 600 arrays has two-byte ones.
    std::string chain = "bplist00";
    std::vector<uint32_t> offsets;
    for (uint32_t level = 0; level < 600; ++level) {
        offsets.push_back(static_cast<uint32_t>(chain.size()));
        chain += '\xA1';
        BinaryDocument::appendBigEndian(chain, level + 1, 2);
    }
    offsets.push_back(static_cast<uint32_t>(chain.size()));
    chain += '\x08';
    const uint64_t table = chain.size();
    for (uint32_t offset : offsets)
        BinaryDocument::appendBigEndian(chain, offset, 4);
    chain.append(6, '\0');
    chain += '\x04';
    chain += '\x02';
    BinaryDocument::appendBigEndian(chain, offsets.size(), 8);
    BinaryDocument::appendBigEndian(chain, 0, 8);
    BinaryDocument::appendBigEndian(chain, table, 8);
    EXPECT_THAT(readFailure(chain), HasSubstr("nested more than 512"));
}
