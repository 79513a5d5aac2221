#include "utilities/data/TXJSONParser.h"

#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "utilities/CodecTestSupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace zon;
using namespace zon::test;

namespace {

struct Parsed {
    Ref<Object> value;
    bool success;
};

Parsed parse(std::u16string_view json)
{
    bool success = false;
    Ref<Object> value = TXJSONParser::JsonDecode_withSuccess(str(json), &success);
    return {value, success};
}

// The string a text parses to; "(not a string)" otherwise.
std::string parsedString(std::u16string_view json)
{
    Parsed parsed = parse(json);
    EXPECT_TRUE(parsed.success) << utf8(str(json));
    const String* string = dynamicCast<String>(parsed.value.get());
    return string ? utf8(string) : "(not a string)";
}

std::u16string parsedUnits(std::u16string_view json)
{
    Parsed parsed = parse(json);
    const String* string = dynamicCast<String>(parsed.value.get());
    return string ? std::u16string(string->view()) : u"(not a string)";
}

void expectFailure(std::u16string_view json)
{
    Parsed parsed = parse(json);
    EXPECT_FALSE(parsed.success) << utf8(str(json));
    EXPECT_EQ(parsed.value.get(), nullptr) << utf8(str(json));
}

std::vector<std::string> strings(const Object* array)
{
    std::vector<std::string> result;
    const Array* items = dynamicCast<Array>(array);
    for (size_t i = 0; items && i < items->count(); ++i)
        result.push_back(utf8(dynamicCast<String>(items->objectAtIndex(i))));
    return result;
}

} // namespace

TEST(TXJSONParser, NumbersComeBackAsTheirText)
{
    Parsed parsed = parse(u"{\"a\": 1}");
    ASSERT_TRUE(parsed.success);
    const auto* object = dynamicCast<MutableDictionary>(parsed.value.get());
    ASSERT_TRUE(object);
    const auto* one = dynamicCast<String>(object->objectForKey(str(u"a")));
    ASSERT_TRUE(one);
    EXPECT_EQ(utf8(one), "1");
    EXPECT_EQ(parsedString(u"-0.5e-3"), "-0.5e-3");
    // Any run of number characters is taken verbatim.
    EXPECT_EQ(parsedString(u"1-2"), "1-2");
    EXPECT_EQ(parsedString(u"3e+e"), "3e+e");
    EXPECT_EQ(parsedString(u"  42 tail"), "42");
    expectFailure(u"+1");
    expectFailure(u".5");
}

TEST(TXJSONParser, KeywordsAreBooleansAndNullAndMatchAsPrefixes)
{
    EXPECT_EQ(parse(u"true").value.get(), Number::yes());
    EXPECT_EQ(parse(u"false").value.get(), Number::no());
    EXPECT_EQ(parse(u"null").value.get(), Null::null());
    Parsed truex = parse(u"truex");
    EXPECT_TRUE(truex.success);
    EXPECT_EQ(truex.value.get(), Number::yes());
    EXPECT_EQ(strings(parse(u"[nullnull]").value), (std::vector<std::string> {"(nil)", "(nil)"}));
    expectFailure(u"fals");
    expectFailure(u"tru");
    expectFailure(u"True");
}

TEST(TXJSONParser, CommasAreOptionalAndMayRepeat)
{
    EXPECT_EQ(strings(parse(u"[1 2]").value), (std::vector<std::string> {"1", "2"}));
    EXPECT_EQ(strings(parse(u"[,1,,2,]").value), (std::vector<std::string> {"1", "2"}));
    Parsed object = parse(u"{,\"a\":\"x\" \"b\":\"y\",,}");
    ASSERT_TRUE(object.success);
    EXPECT_EQ(dynamicCast<Dictionary>(object.value.get())->count(), 2u);
    // A later member replaces an earlier one of the same key.
    Parsed repeated = parse(u"{\"a\":\"1\",\"a\":\"2\"}");
    EXPECT_EQ(utf8(dynamicCast<String>(dynamicCast<Dictionary>(repeated.value.get())->objectForKey(str(u"a")))), "2");
}

TEST(TXJSONParser, EscapesFollowTheirOwnRules)
{
    EXPECT_EQ(parsedUnits(u"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\""), u"\"\\/\b\f\n\r\t");
    // Lower-case u is dropped with its backslash; the digits stay as text.
    EXPECT_EQ(parsedUnits(u"\"\\u00e9\""), u"00e9");
    // Upper-case U appends the unit of its four digits...
    EXPECT_EQ(parsedUnits(u"\"\\U4E2D\""), u"\u4E2D");
    // ...nothing when the low byte is zero, the one character when only the high byte is.
    EXPECT_EQ(parsedUnits(u"\"\\U4E00!\""), u"!");
    EXPECT_EQ(parsedUnits(u"\"\\U00e9\""), u"\u00E9");
    // Leading digits only: "4Z" scans as 4.
    EXPECT_EQ(parsedUnits(u"\"\\U4Zab\""), u"\u0004");
    // With fewer than four units left nothing is appended and the rest is read as text.
    EXPECT_EQ(parsedUnits(u"\"\\U4\""), u"4");
    EXPECT_EQ(parsedUnits(u"\"a\\xb\""), u"ab");
}

TEST(TXJSONParser, UnfinishedTextFails)
{
    expectFailure(u"\"abc");
    expectFailure(u"\"abc\\");
    expectFailure(u"{\"a\":\"1\"");
    expectFailure(u"{\"a\" \"1\"}");
    expectFailure(u"[\"a\"");
    expectFailure(u"");
    expectFailure(u"]");
    expectFailure(u"{\"a\":}");
}

TEST(TXJSONParser, AKeyIsReadBySkippingOneCharacterUnchecked)
{
    Parsed parsed = parse(u"{1b\":2}");
    ASSERT_TRUE(parsed.success);
    EXPECT_EQ(utf8(dynamicCast<String>(dynamicCast<Dictionary>(parsed.value.get())->objectForKey(str(u"b")))), "2");
    // A letter there is no token at all.
    expectFailure(u"{ab\":2}");
}

TEST(TXJSONParser, OnlyFourWhiteSpaceCharactersAreSkipped)
{
    EXPECT_EQ(parsedString(u" \t\n\r\"x\""), "x");
    expectFailure(u"\f\"x\"");
    expectFailure(u"\u00A0\"x\"");
}

TEST(TXJSONParser, TokensAreRecognisedByTheLowByteOfTheirUnit)
{
    // U+017B ends in 7B, "{"; U+015D ends in 5D, "]".
    Parsed parsed = parse(u"\u017B\"a\":[\"b\"\u015D}");
    ASSERT_TRUE(parsed.success);
    EXPECT_EQ(strings(dynamicCast<Dictionary>(parsed.value.get())->objectForKey(str(u"a"))),
        std::vector<std::string> {"b"});
    // U+0131 reads as a number token that no number character follows: an empty number at the
    // top, and a failure inside an array, where it would be read again forever.
    EXPECT_EQ(parsedString(u"\u0131"), "");
    expectFailure(u"[\u0131]");
}

TEST(TXJSONParser, NilTextKeepsTheFlagTrueAndJsonDecodeDropsTheFlag)
{
    bool success = false;
    EXPECT_EQ(TXJSONParser::JsonDecode_withSuccess(nullptr, &success).get(), nullptr);
    EXPECT_TRUE(success);
    EXPECT_EQ(TXJSONParser::JsonDecode(str(u"[")).get(), nullptr);
    EXPECT_EQ(strings(TXJSONParser::JsonDecode(str(u"[\"q\"]"))), std::vector<std::string> {"q"});
}

TEST(TXJSONParser, StepOperationsMoveTheIndex)
{
    Ref<String> json = str(u"  [ \"k\" , 12e3 ]x");
    int32_t index = 0;
    EXPECT_EQ(TXJSONParser::LookAhead_withIndex(json, index), TXJSONParser::kTokenSquaredOpen);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(TXJSONParser::NextToken_withRefInt(json, index), TXJSONParser::kTokenSquaredOpen);
    EXPECT_EQ(index, 3);
    bool success = true;
    EXPECT_EQ(utf8(TXJSONParser::ParseString_withRefIndex_withRefSuccess(json, index, success)), "k");
    EXPECT_EQ(index, 7);
    EXPECT_EQ(TXJSONParser::NextToken_withRefInt(json, index), TXJSONParser::kTokenComma);
    EXPECT_EQ(TXJSONParser::GetLastIndexOfNumber_withIndex(json, 10), 13);
    EXPECT_EQ(utf8(TXJSONParser::ParseNumber_withRefIndex_withRefSuccess(json, index, success)), "12e3");
    EXPECT_EQ(index, 14);
    EXPECT_EQ(TXJSONParser::NextToken_withRefInt(json, index), TXJSONParser::kTokenSquaredClose);
    EXPECT_EQ(TXJSONParser::NextToken_withRefInt(json, index), TXJSONParser::kTokenNone);
    EXPECT_EQ(index, 16);
    TXJSONParser::EatWhitespace_withRefIndex(json, index);
    EXPECT_EQ(index, 16);
    index = 0;
    EXPECT_EQ(strings(TXJSONParser::ParseValue_withRefIndex_withRefSuccess(json, index, success)),
        (std::vector<std::string> {"k", "12e3"}));
    EXPECT_TRUE(success);
    EXPECT_EQ(index, 16);
    // ParseObject takes whatever token comes first as its brace.
    index = 0;
    Ref<String> members = str(u"[\"a\":true}");
    EXPECT_TRUE(dynamicCast<Dictionary>(TXJSONParser::ParseObject_withRefIndex_withRefSuccess(members, index, success)));
    index = 99;
    raisedReason(NSRangeException, [&] { TXJSONParser::NextToken_withRefInt(json, index); });
}

TEST(TXJSONParser, HexQuads)
{
    uint16_t quad = 7;
    EXPECT_TRUE(TXJSONParser::decodeHexQuadWithInputUnichar_outputQuad(u"4e2D", &quad));
    EXPECT_EQ(quad, 0x4E2D);
    EXPECT_FALSE(TXJSONParser::decodeHexQuadWithInputUnichar_outputQuad(u"12G4", &quad));
    EXPECT_EQ(quad, 0x4E2D);
}

TEST(TXJSONParser, DeepNestingNeitherOverflowsNorFailsWrongly)
{
    const size_t depth = 1000000;
    expectFailure(std::u16string(depth, u'['));
    std::u16string balanced = std::u16string(depth, u'[') + std::u16string(depth, u']');
    Parsed parsed = parse(balanced);
    ASSERT_TRUE(parsed.success);
    const Object* level = parsed.value.get();
    size_t count = 0;
    while (const Array* array = dynamicCast<Array>(level)) {
        ++count;
        level = array->count() ? array->objectAtIndex(0) : nullptr;
    }
    EXPECT_EQ(count, depth);
    std::u16string objects;
    for (size_t i = 0; i < depth; ++i)
        objects += u"{\"k\":";
    expectFailure(objects);
}

namespace {

// An array of count numbers: about 50 bytes of objects per element once parsed.
std::u16string wideArray(size_t count)
{
    std::u16string text = u"[";
    for (size_t i = 0; i < count; ++i)
        text += u"1,";
    return text + u"]";
}

// Maps stack pages that a later call may need once no more can be mapped.
void touchStack()
{
    volatile char pages[256 * 1024];
    for (size_t i = 0; i < sizeof pages; i += 4096)
        pages[i] = 0;
}

} // namespace

TEST(TXJSONParser, RunningOutOfMemoryFailsAndFreesWhatWasBuilt)
{
    if (!kMemoryLimitsApply)
        GTEST_SKIP() << "memory limits do not apply under the sanitizers";
    // The elements need far more than the 32 MiB allowed; what was built when an allocation
    // fails is freed on the way out, with no memory to spare for it.
    Ref<String> json = str(wideArray(4000000));
    const int status = exitStatusUnderMemoryLimit(32 << 20, [&] {
        bool success = true;
        try {
            if (TXJSONParser::JsonDecode_withSuccess(json, &success))
                return 1;
        } catch (const std::bad_alloc&) {
            return 2;
        }
        return success ? 3 : 0;
    });
    EXPECT_EQ(status, 0) << "1: a value, 2: std::bad_alloc escaped, 3: flag left true";
}

TEST(TXJSONParser, ALargeTreeIsFreedWithNoMemoryLeft)
{
    if (!kMemoryLimitsApply)
        GTEST_SKIP() << "memory limits do not apply under the sanitizers";
    // A long chain of nested arrays beside a wide array, freed when not a page more can be mapped.
    const size_t depth = 300000;
    Ref<String> json = str(u"[" + std::u16string(depth, u'[') + std::u16string(depth, u']') + u"," + wideArray(200000) + u"]");
    const int status = exitStatusUnderMemoryLimit(size_t {1} << 30, [&] {
        Ref<Object> tree = TXJSONParser::JsonDecode(json);
        if (!tree)
            return 1;
        touchStack();
        const rlimit none {0, 0};
        setrlimit(RLIMIT_AS, &none);
        tree = nullptr;
        return 0;
    });
    EXPECT_EQ(status, 0) << "1: parsed nothing; a signal is 128 and more";
}
