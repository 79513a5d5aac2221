#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Array.h"
#include "platform/values/Base64.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/Value.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;

namespace {

const std::string kHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                            "<!DOCTYPE plist PUBLIC \"-//ZonCommon//DTD PLIST 1.0//EN\" \"PropertyList-1.0.dtd\">\n"
                            "<plist version=\"1.0\">\n";

std::string xmlOf(Object* plist)
{
    Ref<Error> error;
    Ref<Data> data = PropertyListSerialization::dataWithPropertyList(plist, NSPropertyListXMLFormat_v1_0, &error);
    EXPECT_TRUE(data) << (error ? error->localizedDescription() : nullptr);
    return data ? std::string(static_cast<const char*>(data->bytes()), data->length()) : std::string();
}

Ref<Error> writeError(Object* plist, PropertyListFormat format = NSPropertyListXMLFormat_v1_0)
{
    Ref<Error> error;
    EXPECT_FALSE(PropertyListSerialization::dataWithPropertyList(plist, format, &error));
    return error;
}

Ref<Array> nestedArrays(size_t depth)
{
    Ref<Array> array = Array::array();
    for (size_t i = 1; i < depth; ++i)
        array = Array::arrayWithObject(array);
    return array;
}

} // namespace

TEST(PropertyListWriter, WritesEveryScalarKindInThePlatformLayout)
{
    Ref<MutableDictionary> plist = MutableDictionary::dictionary();
    plist->setObject_forKey(str("a & b < c > d \"q\" 'a'\t\r\n\x01 é 😀"), str("string"));
    plist->setObject_forKey(str(""), str("empty"));
    plist->setObject_forKey(Number::numberWithLongLong(INT64_MIN), str("min"));
    plist->setObject_forKey(Number::numberWithUnsignedLongLong(UINT64_MAX), str("max"));
    plist->setObject_forKey(Number::numberWithInt(-1), str("minus one"));
    plist->setObject_forKey(Number::numberWithDouble(0.1), str("tenth"));
    plist->setObject_forKey(Number::numberWithDouble(3), str("three"));
    plist->setObject_forKey(Number::numberWithDouble(1e20), str("large"));
    plist->setObject_forKey(Number::numberWithFloat(0.1f), str("float"));
    plist->setObject_forKey(Number::numberWithDouble(0.0), str("zero"));
    plist->setObject_forKey(Number::numberWithDouble(-0.0), str("negative zero"));
    plist->setObject_forKey(Number::numberWithDouble(INFINITY), str("inf"));
    plist->setObject_forKey(Number::numberWithDouble(-INFINITY), str("-inf"));
    plist->setObject_forKey(Number::numberWithDouble(NAN), str("nan"));
    plist->setObject_forKey(Number::yes(), str("yes"));
    plist->setObject_forKey(Number::no(), str("no"));
    plist->setObject_forKey(Date::dateWithTimeIntervalSinceReferenceDate(0.999), str("reference"));
    plist->setObject_forKey(Date::dateWithTimeIntervalSinceReferenceDate(-0.5), str("before"));
    plist->setObject_forKey(Date::dateWithTimeIntervalSince1970(951782400), str("leap day"));
    plist->setObject_forKey(Data::data(), str("no bytes"));
    plist->setObject_forKey(Data::dataWithBytes("hello", 5), str("hello"));

    EXPECT_EQ(xmlOf(plist), kHeader + "<dict>\n"
        "\t<key>string</key>\n\t<string>a &amp; b &lt; c &gt; d \"q\" 'a'\t\r\n\x01 é 😀</string>\n"
        "\t<key>empty</key>\n\t<string></string>\n"
        "\t<key>min</key>\n\t<integer>-9223372036854775808</integer>\n"
        "\t<key>max</key>\n\t<integer>18446744073709551615</integer>\n"
        "\t<key>minus one</key>\n\t<integer>-1</integer>\n"
        "\t<key>tenth</key>\n\t<real>0.10000000000000001</real>\n"
        "\t<key>three</key>\n\t<real>3</real>\n"
        "\t<key>large</key>\n\t<real>1e+20</real>\n"
        "\t<key>float</key>\n\t<real>0.10000000149011612</real>\n"
        "\t<key>zero</key>\n\t<real>0.0</real>\n"
        "\t<key>negative zero</key>\n\t<real>-0.0</real>\n"
        "\t<key>inf</key>\n\t<real>+infinity</real>\n"
        "\t<key>-inf</key>\n\t<real>-infinity</real>\n"
        "\t<key>nan</key>\n\t<real>nan</real>\n"
        "\t<key>yes</key>\n\t<true/>\n"
        "\t<key>no</key>\n\t<false/>\n"
        "\t<key>reference</key>\n\t<date>2001-01-01T00:00:00Z</date>\n"
        "\t<key>before</key>\n\t<date>2000-12-31T23:59:59Z</date>\n"
        "\t<key>leap day</key>\n\t<date>2000-02-29T00:00:00Z</date>\n"
        "\t<key>no bytes</key>\n\t<data>\n\t</data>\n"
        "\t<key>hello</key>\n\t<data>\n\taGVsbG8=\n\t</data>\n"
        "</dict>\n</plist>\n");
}

TEST(PropertyListWriter, NestsWithOneTabPerLevelAndShortFormsForEmptyContainers)
{
    Ref<Array> plist = Array::arrayWithObjects({Dictionary::dictionary(), Array::array(),
        Dictionary::dictionaryWithObject_forKey(Array::arrayWithObject(str("deep")), str("k"))});
    EXPECT_EQ(xmlOf(plist), kHeader + "<array>\n"
        "\t<dict/>\n"
        "\t<array/>\n"
        "\t<dict>\n"
        "\t\t<key>k</key>\n"
        "\t\t<array>\n"
        "\t\t\t<string>deep</string>\n"
        "\t\t</array>\n"
        "\t</dict>\n"
        "</array>\n</plist>\n");
    EXPECT_EQ(xmlOf(str("top")), kHeader + "<string>top</string>\n</plist>\n");
}

TEST(PropertyListWriter, Base64LinesShrinkByEightPerLevelDownToTwelve)
{
    const std::vector<uint8_t> bytes(120, 0xFF); // "////" per 3 bytes
    Ref<Data> data = Data::dataWithBytes(bytes);
    // The lengths of the base64 lines, without their indentation.
    const auto lines = [](const std::string& xml) {
        const size_t start = xml.find("<data>\n") + 7;
        std::vector<size_t> lengths;
        std::istringstream body(xml.substr(start, xml.find("</data>") - start));
        for (std::string line; std::getline(body, line);) {
            const size_t text = line.find_first_not_of('\t');
            if (text != std::string::npos)
                lengths.push_back(line.size() - text);
        }
        return lengths;
    };
    EXPECT_THAT(lines(xmlOf(data)), testing::ElementsAre(76, 76, 8));
    EXPECT_THAT(lines(xmlOf(Array::arrayWithObject(data))), testing::ElementsAre(68, 68, 24));
    // From the eighth level on every line holds 12 characters, still indented like the tag.
    Ref<Object> deep = data;
    for (int i = 0; i < 10; ++i)
        deep = Array::arrayWithObject(deep);
    const std::string xml = xmlOf(deep);
    std::vector<size_t> expected(13, 12);
    expected.push_back(4);
    EXPECT_EQ(lines(xml), expected);
    EXPECT_THAT(xml, HasSubstr("\n" + std::string(10, '\t') + "////////////\n"));
    EXPECT_THAT(xml, HasSubstr("\n" + std::string(10, '\t') + "</data>\n"));
}

TEST(PropertyListWriter, Base64LinesJoinToTheEncodingOfTheWholeData)
{
    // Each line is encoded on its own: every length up to a few lines at every line length must
    // join to the one encoding of the bytes.
    const auto base64Of = [](const std::string& xml) {
        const size_t start = xml.find("<data>") + 6;
        std::string text;
        for (char c : xml.substr(start, xml.find("</data>") - start))
            if (c != '\n' && c != '\t')
                text += c;
        return text;
    };
    for (size_t length = 0; length < 300; ++length) {
        std::vector<uint8_t> bytes(length);
        for (size_t i = 0; i < length; ++i)
            bytes[i] = static_cast<uint8_t>(i * 37 + length);
        std::string whole(base64::encodedLength(length), '\0');
        whole.resize(static_cast<size_t>(base64::encode(bytes, whole.data()) - whole.data()));
        Ref<Object> value = Data::dataWithBytes(bytes);
        for (int level = 0; level < 9; ++level, value = Array::arrayWithObject(value))
            ASSERT_EQ(base64Of(xmlOf(value)), whole) << length << " bytes at level " << level;
    }
}

TEST(PropertyListWriter, LongASCIITextIsEscapedAsUTF16TextIs)
{
    std::string ascii;
    while (ascii.size() < 3000)
        ascii += "a<b & c>d\t";
    Ref<String> kept = String::stringWithUTF8String(ascii);
    ASSERT_NE(kept->asciiCharacters(), nullptr);
    const std::u16string units(ascii.begin(), ascii.end());
    const std::string xml = xmlOf(kept);
    EXPECT_EQ(xml, xmlOf(String::stringWithCharacters(units)));
    EXPECT_THAT(xml, HasSubstr("<string>a&lt;b &amp; c&gt;d\ta&lt;"));
}

TEST(PropertyListWriter, WritesDatesFarFromTheReferenceDate)
{
    const auto dateText = [](double secondsSince1970) {
        const std::string xml = xmlOf(Date::dateWithTimeIntervalSince1970(secondsSince1970));
        const size_t start = xml.find("<date>") + 6;
        return xml.substr(start, xml.find("</date>") - start);
    };
    EXPECT_EQ(dateText(-62135596800), "0001-01-01T00:00:00Z");
    EXPECT_EQ(dateText(253402214400 + 86399), "9999-12-31T23:59:59Z");
    EXPECT_EQ(dateText(-1230768000), "1931-01-01T00:00:00Z");
    EXPECT_EQ(dateText(3155760000), "2070-01-01T00:00:00Z");
    EXPECT_EQ(dateText(-62198755200), "-0001-01-01T00:00:00Z");
}

TEST(PropertyListWriter, RefusesWhatHasNoPropertyListForm)
{
    for (Ref<Error> error : {writeError(nullptr), writeError(Null::null()),
             writeError(Array::arrayWithObject(Value::valueWithPoint({1, 2}))),
             writeError(Dictionary::dictionaryWithObject_forKey(str("v"), Number::numberWithInt(1))),
             writeError(Date::dateWithTimeIntervalSinceReferenceDate(NAN)),
             writeError(str("x"), NSPropertyListBinaryFormat_v1_0), writeError(str("x"), NSPropertyListOpenStepFormat)}) {
        ASSERT_TRUE(error);
        EXPECT_EQ(error->domain()->UTF8String(), "NSCocoaErrorDomain");
        EXPECT_EQ(error->code(), 3851);
    }
    EXPECT_THAT(writeError(Array::arrayWithObject(Value::valueWithPoint({1, 2})))->localizedDescription()->UTF8String(),
        HasSubstr("'NSValue'"));
    EXPECT_THAT(writeError(Dictionary::dictionaryWithObject_forKey(str("v"), Number::numberWithInt(1)))
                    ->localizedDescription()->UTF8String(),
        HasSubstr("keys which are strings"));
}

TEST(PropertyListWriter, RefusesCyclesAndNestingBeyondTheLimitWithoutRecursing)
{
    Ref<MutableArray> cycle = MutableArray::array();
    cycle->addObject(Array::arrayWithObject(cycle));
    EXPECT_THAT(writeError(cycle)->localizedDescription()->UTF8String(), HasSubstr("holds itself"));
    cycle->removeAllObjects(); // breaks the cycle so that it can be freed

    EXPECT_FALSE(xmlOf(nestedArrays(512)).empty());
    EXPECT_THAT(writeError(nestedArrays(513))->localizedDescription()->UTF8String(), HasSubstr("nested more than 512"));
    EXPECT_TRUE(writeError(nestedArrays(200000)));
}
