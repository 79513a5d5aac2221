#include "utilities/data/TXJSONParser.h"

#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Null.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <cstdio>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace zon {

ZON_DEFINE_CLASS(TXJSONParser, "TXJSONParser")

namespace {

// The parse works on plain indexes into the units; the public step operations convert.
struct Text {
    const char16_t* units = nullptr;
    size_t length = 0;
};

Text textOf(const String* json) { return json ? Text {json->characters(), json->length()} : Text {}; }

bool isWhitespace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; }

bool isNumberCharacter(char16_t c) { return (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.' || c == u'e' || c == u'E'; }

void eatWhitespace(Text text, size_t& index)
{
    while (index < text.length && isWhitespace(text.units[index]))
        ++index;
}

bool spells(Text text, size_t index, std::u16string_view word)
{
    return text.length - index >= word.size() && std::u16string_view(text.units + index, word.size()) == word;
}

int nextToken(Text text, size_t& index)
{
    eatWhitespace(text, index);
    if (index >= text.length)
        return TXJSONParser::kTokenNone;
    // Punctuation is recognised by the unit's low byte alone.
    switch (static_cast<char>(text.units[index] & 0xFF)) {
    case '{': ++index; return TXJSONParser::kTokenCurlyOpen;
    case '}': ++index; return TXJSONParser::kTokenCurlyClose;
    case '[': ++index; return TXJSONParser::kTokenSquaredOpen;
    case ']': ++index; return TXJSONParser::kTokenSquaredClose;
    case ':': ++index; return TXJSONParser::kTokenColon;
    case ',': ++index; return TXJSONParser::kTokenComma;
    case '"': ++index; return TXJSONParser::kTokenString;
    case '-': case '0': case '1': case '2': case '3': case '4':
    case '5': case '6': case '7': case '8': case '9':
        ++index;
        return TXJSONParser::kTokenNumber;
    default: break;
    }
    // Keywords match as prefixes; false is tried first, and only with five units left.
    if (text.length - index >= 5 && spells(text, index, u"false")) {
        index += 5;
        return TXJSONParser::kTokenFalse;
    }
    if (spells(text, index, u"true")) {
        index += 4;
        return TXJSONParser::kTokenTrue;
    }
    if (spells(text, index, u"null")) {
        index += 4;
        return TXJSONParser::kTokenNull;
    }
    return TXJSONParser::kTokenNone;
}

int lookAhead(Text text, size_t index) { return nextToken(text, index); }

int hexDigitValue(char16_t c)
{
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    return -1;
}

// "\UXXXX": the leading hexadecimal digits of the four units, laid out little-endian as a
// zero-terminated byte string and read as UTF-16LE. A zero low byte ends the string at once
// (nothing); a zero high byte leaves the low byte alone, taken here as that one character.
void appendUpperEscape(Text text, size_t& index, std::u16string& out)
{
    if (text.length - index < 4)
        return;
    unsigned value = 0;
    for (size_t i = 0; i < 4; ++i) {
        const int digit = hexDigitValue(text.units[index + i]);
        if (digit < 0)
            break;
        value = value << 4 | static_cast<unsigned>(digit);
    }
    if (value & 0xFF)
        out += static_cast<char16_t>(value);
    index += 4;
}

Ref<String> parseString(Text text, size_t& index, bool& success)
{
    eatWhitespace(text, index);
    ++index; // the opening quote, whatever it is
    std::u16string out;
    for (;;) {
        const size_t run = index;
        while (index < text.length && text.units[index] != u'"' && text.units[index] != u'\\')
            ++index;
        if (index >= text.length) {
            success = false;
            return nullptr;
        }
        if (text.units[index] == u'"' && out.empty()) {
            // No escape: the string is a slice of the text, made without a staging copy.
            ++index;
            return String::stringWithCharacters(text.units + run, index - 1 - run);
        }
        out.append(text.units + run, index - run);
        if (text.units[index++] == u'"')
            return String::stringWithCharacters(out);
        if (index >= text.length) {
            success = false;
            return nullptr;
        }
        switch (const char16_t escape = text.units[index++]) {
        case u'"':
        case u'\\':
        case u'/': out += escape; break;
        case u'b': out += u'\b'; break;
        case u'f': out += u'\f'; break;
        case u'n': out += u'\n'; break;
        case u'r': out += u'\r'; break;
        case u't': out += u'\t'; break;
        case u'U': appendUpperEscape(text, index, out); break;
        default: break; // "\u" and unknown escapes append nothing; "\u"'s digits follow as text
        }
    }
}

size_t endOfNumber(Text text, size_t index)
{
    while (index < text.length && isNumberCharacter(text.units[index]))
        ++index;
    return index;
}

Ref<String> parseNumber(Text text, size_t& index)
{
    eatWhitespace(text, index);
    const size_t start = index;
    index = endOfNumber(text, index);
    return String::stringWithCharacters(text.units + start, index - start);
}

enum class Start { Value, Object, Array };

// One open object or array. Its children are added when they are complete, so a failure drops
// the stack frame by frame.
struct Frame {
    Ref<MutableDictionary> object;
    Ref<MutableArray> array;
    Ref<String> key;
};

// The recursive-descent grammar run on an explicit stack: nesting costs heap, not C++ stack.
Ref<Object> parse(Text text, size_t& index, bool& success, Start start)
{
    std::vector<Frame> stack;
    auto open = [&](Start kind) {
        nextToken(text, index);
        if (kind == Start::Object)
            stack.push_back({MutableDictionary::dictionary(), nullptr, nullptr});
        else
            stack.push_back({nullptr, MutableArray::array(), nullptr});
    };
    auto fail = [&] {
        success = false;
        return Ref<Object>();
    };

    bool needValue = start == Start::Value;
    if (!needValue)
        open(start);
    for (;;) {
        Ref<Object> value;
        if (needValue) {
            switch (lookAhead(text, index)) {
            case TXJSONParser::kTokenCurlyOpen:
                open(Start::Object);
                needValue = false;
                continue;
            case TXJSONParser::kTokenSquaredOpen:
                open(Start::Array);
                needValue = false;
                continue;
            case TXJSONParser::kTokenString:
                value = parseString(text, index, success);
                if (!success)
                    return nullptr;
                break;
            case TXJSONParser::kTokenNumber: {
                Ref<String> number = parseNumber(text, index);
                // A unit that only looks like a digit by its low byte is not consumed; as an
                // array element it would be read again forever.
                if (number->length() == 0 && !stack.empty() && stack.back().array)
                    return fail();
                value = std::move(number);
                break;
            }
            case TXJSONParser::kTokenTrue:
                nextToken(text, index);
                value = Number::yes();
                break;
            case TXJSONParser::kTokenFalse:
                nextToken(text, index);
                value = Number::no();
                break;
            case TXJSONParser::kTokenNull:
                nextToken(text, index);
                value = Null::null();
                break;
            default:
                return fail();
            }
        } else {
            Frame& top = stack.back();
            const int token = lookAhead(text, index);
            if (token == TXJSONParser::kTokenComma) {
                nextToken(text, index);
                continue;
            }
            if (token == TXJSONParser::kTokenNone)
                return fail();
            if (top.array) {
                if (token != TXJSONParser::kTokenSquaredClose) {
                    needValue = true;
                    continue;
                }
                value = std::move(top.array);
            } else {
                if (token != TXJSONParser::kTokenCurlyClose) {
                    top.key = parseString(text, index, success);
                    if (!success)
                        return nullptr;
                    if (nextToken(text, index) != TXJSONParser::kTokenColon)
                        return fail();
                    needValue = true;
                    continue;
                }
                value = std::move(top.object);
            }
            nextToken(text, index);
            stack.pop_back();
        }

        if (stack.empty())
            return value;
        Frame& parent = stack.back();
        if (parent.array)
            parent.array->addObject(value);
        else
            parent.object->setObject_forKey(value, parent.key);
        needValue = false;
    }
}

// Runs a parse that allocates as it goes: running out of memory is a failure like any other,
// answered with nil and the flag false. What was built so far is freed on the way out.
template <class Parse>
auto failingWhenMemoryRunsOut(bool& success, Parse&& parse) -> decltype(parse())
{
    try {
        return parse();
    } catch (const std::bad_alloc&) {
        success = false;
        return nullptr;
    }
}

// The position of a step operation as an index into text.
size_t checkedIndex(Text text, int32_t index)
{
    if (index < 0 || static_cast<size_t>(index) > text.length) {
        char reason[96];
        std::snprintf(reason, sizeof reason, "TXJSONParser: index %d outside text of length %zu", index, text.length);
        raisePlatformException(NSRangeException, reason);
    }
    return static_cast<size_t>(index);
}

// Runs a step operation on a plain index and stores the index it ends at.
template <class Step>
auto step(const String* json, int32_t& index, Step&& operation)
{
    const Text text = textOf(json);
    size_t position = checkedIndex(text, index);
    auto result = operation(text, position);
    index = static_cast<int32_t>(position);
    return result;
}

} // namespace

TXJSONParser::TXJSONParser() = default;
TXJSONParser::~TXJSONParser() = default;

Ref<TXJSONParser> TXJSONParser::init() { return makeObject<TXJSONParser>(); }

Ref<Object> TXJSONParser::JsonDecode(const String* json)
{
    bool success = true;
    return JsonDecode_withSuccess(json, &success);
}

Ref<Object> TXJSONParser::JsonDecode_withSuccess(const String* json, bool* success)
{
    bool ignored = true;
    bool& flag = success ? *success : ignored;
    flag = true;
    if (!json)
        return nullptr;
    size_t index = 0;
    return failingWhenMemoryRunsOut(flag, [&] { return parse(textOf(json), index, flag, Start::Value); });
}

Ref<Object> TXJSONParser::ParseValue_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success)
{
    return step(json, index, [&](Text text, size_t& at) {
        return failingWhenMemoryRunsOut(success, [&] { return parse(text, at, success, Start::Value); });
    });
}

Ref<Object> TXJSONParser::ParseObject_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success)
{
    return step(json, index, [&](Text text, size_t& at) {
        return failingWhenMemoryRunsOut(success, [&] { return parse(text, at, success, Start::Object); });
    });
}

Ref<Object> TXJSONParser::ParseArray_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success)
{
    return step(json, index, [&](Text text, size_t& at) {
        return failingWhenMemoryRunsOut(success, [&] { return parse(text, at, success, Start::Array); });
    });
}

Ref<String> TXJSONParser::ParseString_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success)
{
    return step(json, index, [&](Text text, size_t& at) {
        return failingWhenMemoryRunsOut(success, [&] { return parseString(text, at, success); });
    });
}

Ref<String> TXJSONParser::ParseNumber_withRefIndex_withRefSuccess(const String* json, int32_t& index, bool& success)
{
    return step(json, index, [&](Text text, size_t& at) {
        return failingWhenMemoryRunsOut(success, [&] { return parseNumber(text, at); });
    });
}

int TXJSONParser::NextToken_withRefInt(const String* json, int32_t& index)
{
    return step(json, index, [&](Text text, size_t& at) { return nextToken(text, at); });
}

int TXJSONParser::LookAhead_withIndex(const String* json, int32_t index) { return NextToken_withRefInt(json, index); }

void TXJSONParser::EatWhitespace_withRefIndex(const String* json, int32_t& index)
{
    step(json, index, [&](Text text, size_t& at) {
        eatWhitespace(text, at);
        return 0;
    });
}

int32_t TXJSONParser::GetLastIndexOfNumber_withIndex(const String* json, int32_t index)
{
    const Text text = textOf(json);
    return static_cast<int32_t>(endOfNumber(text, checkedIndex(text, index))) - 1;
}

bool TXJSONParser::decodeHexQuadWithInputUnichar_outputQuad(const char16_t* input, uint16_t* output)
{
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = hexDigitValue(input[i]);
        if (digit < 0)
            return false;
        value = value << 4 | static_cast<unsigned>(digit);
    }
    *output = static_cast<uint16_t>(value);
    return true;
}

} // namespace zon
