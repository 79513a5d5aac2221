#pragma once

#include "platform/runtime/Object.h"

#include <cstdint>

namespace zon {

class MutableArray;
class MutableDictionary;
class String;

// The library's JSON reader. It turns text into mutable dictionaries and arrays, immutable
// strings, Number::yes()/no() and Null, and is lenient in ways its callers rely on:
//
// - numbers come back as strings holding their characters exactly as written; any run of
//   "0123456789+-.eE" that starts with "-" or a digit is a number ("1-2", "3e+e");
// - commas are optional and may be repeated anywhere between members and elements;
// - true, false and null match as prefixes ("truex" is true) and text after the value is ignored;
// - "\u" is not decoded: the backslash and the u are dropped and the four digits kept as text;
//   "\UXXXX" appends the unit XXXX, nothing when its low byte is zero (4E00); unknown escapes
//   are dropped;
// - a member's key is read by skipping one character unchecked, so {1b":2} has the key b;
// - a token is recognised by the low 8 bits of its unit (U+017B opens an object), keywords and
//   string contents by whole units; white space is space, tab, line feed and carriage return.
//
// Failure is reported only through the success flag (false) and a nil result: an unterminated
// string or escape, a missing or unexpected token where a value or colon belongs, or the end of
// the text inside an object or array. One case the lenient rules would loop on forever fails too:
// an array element that consumes no text (a unit whose low byte reads as a digit but which is not
// one, such as U+0131). Nesting depth is limited only by memory, and the time taken is linear in
// the length of the text.
//
// Indexes count UTF-16 units and are passed by reference; every operation is a class operation.
// The instance fields are declared for subclasses and not used by the parser.
class ZON_EXPORT TXJSONParser : public Object {
    ZON_OBJECT(TXJSONParser, Object)
public:
    // Token codes of NextToken_withRefInt and LookAhead_withIndex.
    enum Token : int {
        kTokenNone = 0,
        kTokenCurlyOpen = 1,
        kTokenCurlyClose = 2,
        kTokenSquaredOpen = 3,
        kTokenSquaredClose = 4,
        kTokenColon = 5,
        kTokenComma = 6,
        kTokenString = 7,
        kTokenNumber = 8,
        kTokenTrue = 9,
        kTokenFalse = 10,
        kTokenNull = 11,
    };

    static Ref<TXJSONParser> init();

    // JsonDecode_withSuccess without the flag.
    static Ref<Object> JsonDecode(const String* json);
    // Sets *success true, then parses one value from index 0. Nil text answers nil with the flag
    // left true.
    static Ref<Object> JsonDecode_withSuccess(const String* json, bool* success);

    // The step operations; index must lie within [0, length] of the text (NSRangeException
    // otherwise), and so must the text's length fit an int32_t.
    static Ref<Object> ParseValue_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success);
    // Consumes one token (taken as the opening brace) and reads members up to the closing one.
    static Ref<Object> ParseObject_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success);
    static Ref<Object> ParseArray_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success);
    // Skips white space and one character (taken as the opening quote), then reads to the quote.
    static Ref<String> ParseString_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success);
    // Never changes success.
    static Ref<String> ParseNumber_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success);
    // Consumes the next token and answers its code; at the end or at an unknown character it
    // answers kTokenNone and consumes nothing but white space.
    static int NextToken_withRefInt(const String* json, int32_t& index);
    // The code of the next token; index does not move.
    static int LookAhead_withIndex(const String* json, int32_t index);
    static void EatWhitespace_withRefIndex(const String* json, int32_t& index);
    // The index of the last number character of the run starting at index (index - 1 when none).
    static int32_t GetLastIndexOfNumber_withIndex(const String* json, int32_t index);
    // Four hexadecimal digits, most significant first, into *output; false and *output untouched
    // when one is not a digit.
    static bool decodeHexQuadWithInputUnichar_outputQuad(const char16_t* input, uint16_t* output);

protected:
    TXJSONParser();
    ~TXJSONParser() override;

    Ref<Object> parsedJsonData;
    Ref<Object> currentData;
    Ref<Object> nextData;
    Ref<MutableArray> masterArray;
    Ref<MutableDictionary> masterDictionary;
    Ref<MutableArray> arrayToken;
    Ref<MutableDictionary> dictionaryToken;
    bool jsonDataIsArray = false;
    bool jsonDataIsDictionary = false;
    bool isHandlingArray = false;
};

} // namespace zon
