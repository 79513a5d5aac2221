#include "platform/io/PropertyListXMLReader.h"

#include "platform/runtime/PageMemoryInternal.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Number.h"
#include "platform/values/ObjectTable.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstring>
#include <locale.h>
#include <unordered_map>
#include <vector>

namespace zon::plist {

namespace {

using namespace std::string_view_literals;

// What each byte may be: bit 0, the first character of an element or attribute name; bit 1, any
// other character of one (bytes of multi-byte UTF-8 sequences count as name characters); bit 2,
// XML white space.
constexpr std::array<uint8_t, 256> kByteClasses = [] {
    std::array<uint8_t, 256> table {};
    for (int c = 0; c < 256; ++c) {
        const int lower = c | 0x20;
        const bool start = (lower >= 'a' && lower <= 'z') || c == '_' || c == ':' || c >= 0x80;
        const bool other = start || (c >= '0' && c <= '9') || c == '-' || c == '.';
        const bool space = c == ' ' || c == '\t' || c == '\n' || c == '\r';
        table[c] = static_cast<uint8_t>((start ? 1 : 0) | (other ? 2 : 0) | (space ? 4 : 0));
    }
    return table;
}();

bool isXMLSpace(char c) { return kByteClasses[static_cast<unsigned char>(c)] & 4; }
bool isNameStart(unsigned char c) { return kByteClasses[c] & 1; }
bool isNameChar(unsigned char c) { return kByteClasses[c] & 2; }

bool isBlank(std::string_view text)
{
    for (char c : text) {
        if (!isXMLSpace(c))
            return false;
    }
    return true;
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isXMLSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isXMLSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

// Where the first byte that is not valid UTF-8 sits (the document is known to hold one).
size_t firstInvalidUTF8(std::string_view text)
{
    size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            ++i;
            continue;
        }
        size_t length;
        char32_t code;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            code = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            code = lead & 0x0F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            code = lead & 0x07;
        } else {
            return i;
        }
        if (text.size() - i < length)
            return i;
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                return i;
            code = (code << 6) | (next & 0x3F);
        }
        const char32_t minimum = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return i;
        i += length;
    }
    return text.size();
}

void appendUTF8(std::string& out, char32_t code)
{
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (code >> 6)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (code >> 12)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (code >> 18)));
        out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
}

// "&#65;" or "&#x41;" without the & and ;: the code point, or nothing when malformed or not a
// Unicode scalar value.
std::optional<char32_t> characterReference(std::string_view body)
{
    int base = 10;
    body.remove_prefix(1); // '#'
    if (!body.empty() && body.front() == 'x') {
        base = 16;
        body.remove_prefix(1);
    }
    uint32_t code = 0;
    const auto [end, status] = std::from_chars(body.data(), body.data() + body.size(), code, base);
    if (body.empty() || status != std::errc() || end != body.data() + body.size())
        return std::nullopt;
    if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return std::nullopt;
    return static_cast<char32_t>(code);
}

struct TextProblem {
    std::string message;
    const char* at;
};

// Appends character data with its references decoded; CDATA is taken as it is. Answers the problem
// and where it is on failure.
std::optional<TextProblem> appendCharacterData(std::string& out, std::string_view raw, bool cdata)
{
    size_t i = 0;
    while (i < raw.size()) {
        // Ordinary bytes are copied a run at a time.
        const void* amp = cdata ? nullptr : std::memchr(raw.data() + i, '&', raw.size() - i);
        const size_t run = amp ? static_cast<size_t>(static_cast<const char*>(amp) - raw.data()) : raw.size();
        out.append(raw.data() + i, run - i);
        i = run;
        if (i == raw.size())
            break;
        const size_t semicolon = raw.find(';', i);
        if (semicolon == std::string_view::npos || semicolon - i > 12)
            return TextProblem {"Unterminated entity reference", raw.data() + i};
        const std::string_view body = raw.substr(i + 1, semicolon - i - 1);
        if (body == "amp"sv)
            out.push_back('&');
        else if (body == "lt"sv)
            out.push_back('<');
        else if (body == "gt"sv)
            out.push_back('>');
        else if (body == "quot"sv)
            out.push_back('"');
        else if (body == "apos"sv)
            out.push_back('\'');
        else if (!body.empty() && body.front() == '#') {
            const auto code = characterReference(body);
            if (!code)
                return TextProblem {"Invalid character reference &" + quotedForMessage(body) + ";", raw.data() + i};
            appendUTF8(out, *code);
        } else {
            return TextProblem {"Undefined entity &" + quotedForMessage(body) + ";", raw.data() + i};
        }
        i = semicolon + 1;
    }
    return std::nullopt;
}

std::optional<Ref<Object>> parseInteger(std::string_view text)
{
    text = trimmed(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    uint64_t magnitude = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (text.empty() || status != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    if (negative) {
        if (magnitude > static_cast<uint64_t>(INT64_MAX) + 1)
            return std::nullopt;
        return Number::numberWithLongLong(static_cast<long long>(0 - magnitude));
    }
    if (magnitude > static_cast<uint64_t>(INT64_MAX))
        return Number::numberWithUnsignedLongLong(magnitude);
    return Number::numberWithLongLong(static_cast<long long>(magnitude));
}

std::optional<double> parseReal(std::string_view text)
{
    text = trimmed(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    // Only digits or a dot may start the number itself (from_chars would take a second sign).
    if (text.empty() || text.front() == '-' || text.front() == '+')
        return std::nullopt;
    double value = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size())
        return std::nullopt;
    if (status == std::errc::result_out_of_range) {
        // Too large or too small for a double: what strtod answers (infinity, or the nearest
        // value toward zero), in the C locale.
        static const locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
        const std::string copy(text);
        value = strtod_l(copy.c_str(), nullptr, cLocale);
    } else if (status != std::errc()) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

bool parseDigits(std::string_view& text, size_t count, int& value)
{
    if (text.size() < count)
        return false;
    value = 0;
    for (size_t i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        value = value * 10 + (text[i] - '0');
    }
    text.remove_prefix(count);
    return true;
}

bool expect(std::string_view& text, char c)
{
    if (text.empty() || text.front() != c)
        return false;
    text.remove_prefix(1);
    return true;
}

// YYYY-MM-DDTHH:MM:SSZ in UTC; the year may be longer than four digits or negative.
std::optional<double> parseDate(std::string_view text)
{
    text = trimmed(text);
    CivilTime time;
    const bool negative = expect(text, '-');
    size_t yearDigits = 0;
    while (yearDigits < text.size() && text[yearDigits] >= '0' && text[yearDigits] <= '9')
        ++yearDigits;
    if (yearDigits < 4 || yearDigits > 12)
        return std::nullopt;
    std::from_chars(text.data(), text.data() + yearDigits, time.year);
    text.remove_prefix(yearDigits);
    if (negative)
        time.year = -time.year;
    if (!expect(text, '-') || !parseDigits(text, 2, time.month) || !expect(text, '-')
        || !parseDigits(text, 2, time.day) || !expect(text, 'T') || !parseDigits(text, 2, time.hour)
        || !expect(text, ':') || !parseDigits(text, 2, time.minute) || !expect(text, ':')
        || !parseDigits(text, 2, time.second) || !expect(text, 'Z') || !text.empty())
        return std::nullopt;
    if (time.month < 1 || time.month > 12 || time.day < 1 || time.day > daysInMonth(time.year, time.month)
        || time.hour > 23 || time.minute > 59 || time.second > 59)
        return std::nullopt;
    const double seconds = referenceSecondsFromCivilTime(time);
    if (std::fabs(seconds) >= kMaxDateSeconds)
        return std::nullopt;
    return seconds;
}

// Base64 with white space anywhere; padding optional, but nothing except padding and white space
// may follow it.
bool decodeBase64(std::string_view text, ByteVector& out)
{
    static constexpr int8_t kSpace = -2, kPad = -3;
    static constexpr auto kSextets = [] {
        std::array<int8_t, 256> t {};
        t.fill(-1);
        const std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (size_t i = 0; i < alphabet.size(); ++i)
            t[static_cast<unsigned char>(alphabet[i])] = static_cast<int8_t>(i);
        for (char c : " \t\r\n"sv)
            t[static_cast<unsigned char>(c)] = kSpace;
        t['='] = kPad;
        return t;
    }();
    const auto sextet = [](const char* at) { return kSextets[static_cast<unsigned char>(*at)]; };
    out.resize(text.size() / 4 * 3 + 3);
    uint8_t* write = out.data();
    const char* at = text.data();
    const char* const end = at + text.size();
    uint32_t quad = 0;
    size_t sextets = 0;
    size_t padding = 0;
    while (at < end) {
        // Whole groups of four plain characters, the body of every line, go four at a time.
        if (sextets % 4 == 0 && !padding) {
            for (; end - at >= 4; at += 4) {
                const int8_t a = sextet(at), b = sextet(at + 1), c = sextet(at + 2), d = sextet(at + 3);
                if ((a | b | c | d) < 0)
                    break;
                const auto group = static_cast<uint32_t>(a << 18 | b << 12 | c << 6 | d);
                *write++ = static_cast<uint8_t>(group >> 16);
                *write++ = static_cast<uint8_t>(group >> 8);
                *write++ = static_cast<uint8_t>(group);
            }
            if (at == end)
                break;
        }
        const int8_t code = sextet(at++);
        if (code == kSpace)
            continue;
        if (code == kPad) {
            ++padding;
            continue;
        }
        if (code < 0 || padding)
            return false;
        quad = (quad << 6) | static_cast<uint32_t>(code);
        if (++sextets % 4 == 0) {
            *write++ = static_cast<uint8_t>(quad >> 16);
            *write++ = static_cast<uint8_t>(quad >> 8);
            *write++ = static_cast<uint8_t>(quad);
        }
    }
    const size_t tail = sextets % 4;
    if (tail == 1 || padding > 2 || (padding && (tail + padding) != 4))
        return false;
    if (tail == 2) {
        *write++ = static_cast<uint8_t>(quad >> 4);
    } else if (tail == 3) {
        *write++ = static_cast<uint8_t>(quad >> 10);
        *write++ = static_cast<uint8_t>(quad >> 2);
    }
    out.resize(static_cast<size_t>(write - out.data()));
    return true;
}

// Checks a document's UTF-8 a stretch ahead of the reader, so that each stretch is checked just
// before the reader goes over it (while it is in cache) rather than in a pass of its own over
// megabytes. Stretches end before an ASCII or lead byte, so no character straddles two: the
// document is valid exactly when every stretch is.
class UTF8Lookahead {
public:
    explicit UTF8Lookahead(std::string_view text) : text_(text) {}

    // Checks at least up to offset.
    void checkThrough(size_t offset)
    {
        if (offset >= checked_)
            advance(offset + kStretch);
    }
    // Checks the rest; answers whether all of the text is valid.
    bool checkAll()
    {
        advance(text_.size());
        return valid_;
    }

private:
    static constexpr size_t kStretch = 32 * 1024;

    static bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

    void advance(size_t target)
    {
        target = std::min(target, text_.size());
        while (valid_ && checked_ < target) {
            size_t end = std::min(text_.size(), checked_ + kStretch);
            for (int back = 0; back < 3 && end < text_.size() && isContinuation(text_[end]); ++back)
                --end;
            valid_ = utf::utf16LengthOfUTF8(text_.substr(checked_, end - checked_)) != utf::kInvalid;
            checked_ = end;
        }
    }

    std::string_view text_;
    size_t checked_ = 0;
    bool valid_ = true;
};

// " at line L, column C" (both from 1; columns count bytes) of a byte offset in the document.
std::string positionText(std::string_view document, size_t offset)
{
    const std::string_view before = document.substr(0, std::min(offset, document.size()));
    size_t line = 1;
    for (char c : before)
        line += c == '\n';
    const size_t lineStart = before.rfind('\n');
    const size_t column = before.size() - (lineStart == std::string_view::npos ? 0 : lineStart + 1) + 1;
    return " at line " + std::to_string(line) + ", column " + std::to_string(column);
}

enum class Tag : uint8_t { String, Key, Integer, Real, True, False, Date, Data, Array, Dict, Plist, Unknown };

Tag tagOf(std::string_view name)
{
    if (name.empty())
        return Tag::Unknown;
    switch (name[0]) {
    case 's':
        return name == "string"sv ? Tag::String : Tag::Unknown;
    case 'k':
        return name == "key"sv ? Tag::Key : Tag::Unknown;
    case 'i':
        return name == "integer"sv ? Tag::Integer : Tag::Unknown;
    case 'r':
        return name == "real"sv ? Tag::Real : Tag::Unknown;
    case 't':
        return name == "true"sv ? Tag::True : Tag::Unknown;
    case 'f':
        return name == "false"sv ? Tag::False : Tag::Unknown;
    case 'd':
        if (name == "dict"sv)
            return Tag::Dict;
        if (name == "date"sv)
            return Tag::Date;
        return name == "data"sv ? Tag::Data : Tag::Unknown;
    case 'a':
        return name == "array"sv ? Tag::Array : Tag::Unknown;
    case 'p':
        return name == "plist"sv ? Tag::Plist : Tag::Unknown;
    default:
        return Tag::Unknown;
    }
}


// One piece of the document as the tokenizer sees it. Comments, processing instructions and the
// DOCTYPE are skipped; a self-closing element comes as a start and an end.
struct Token {
    enum Kind : uint8_t { Start, End, Text, CData, EndOfDocument, Malformed } kind;
    std::string_view text; // an element's name, or character data (references not decoded)
    size_t offset;         // of the '<' of markup, or of the first byte of text
};

// Splits the bytes of an XML document into tokens, checking that the markup is well formed and that
// end tags match their start tags. Works on the caller's bytes without copying them.
class Tokenizer {
public:
    explicit Tokenizer(std::string_view document, size_t start) : document_(document), at_(start) {}

    Token next();
    size_t offset() const { return at_; }
    // Skips white space that markup or the end of the document follows: blank text between
    // elements, which the reader would drop anyway. Text with anything else in it stays whole for
    // next().
    void skipBlankBeforeMarkup()
    {
        size_t at = at_;
        while (at < document_.size() && isXMLSpace(document_[at]))
            ++at;
        if (at == document_.size() || document_[at] == '<')
            at_ = at;
    }
    // When the element just started holds only character data (nothing that starts with '<') and
    // ends with a plain "</name>", takes the data and the end tag at once: the shape of nearly every
    // scalar. Otherwise consumes nothing and answers false.
    bool takeSimpleContent(std::string_view& text);
    const std::string& problem() const { return problem_; }
    size_t problemOffset() const { return problemOffset_; }

private:
    Token malformed(size_t offset, const char* what)
    {
        problem_ = what;
        problemOffset_ = offset;
        return {Token::Malformed, {}, offset};
    }
    // Where the first occurrence of terminator at or after from ends, or npos.
    size_t after(std::string_view terminator, size_t from) const
    {
        const size_t found = document_.find(terminator, from);
        return found == std::string_view::npos ? found : found + terminator.size();
    }
    void skipSpace()
    {
        while (at_ < document_.size() && isXMLSpace(document_[at_]))
            ++at_;
    }
    std::string_view name()
    {
        const size_t start = at_;
        if (at_ < document_.size() && isNameStart(static_cast<unsigned char>(document_[at_]))) {
            ++at_;
            while (at_ < document_.size() && isNameChar(static_cast<unsigned char>(document_[at_])))
                ++at_;
        }
        return document_.substr(start, at_ - start);
    }
    Token startTag(size_t open);
    Token endTag(size_t open);
    bool skipDoctype();

    std::string_view document_;
    size_t at_;
    std::vector<std::string_view> open_; // names of the elements not yet closed
    bool pendingEnd_ = false;
    std::string problem_;
    size_t problemOffset_ = 0;
};

bool Tokenizer::takeSimpleContent(std::string_view& text)
{
    if (pendingEnd_)
        return false; // <name/>: next() gives its end
    const void* found = std::memchr(document_.data() + at_, '<', document_.size() - at_);
    if (!found)
        return false;
    const std::string_view name = open_.back();
    const size_t open = static_cast<size_t>(static_cast<const char*>(found) - document_.data());
    const size_t close = open + 2 + name.size();
    if (close >= document_.size() || document_[open + 1] != '/' || document_[close] != '>'
        || document_.compare(open + 2, name.size(), name) != 0)
        return false;
    text = document_.substr(at_, open - at_);
    at_ = close + 1;
    open_.pop_back();
    return true;
}

Token Tokenizer::next()
{
    if (pendingEnd_) {
        pendingEnd_ = false;
        const std::string_view name = open_.back();
        open_.pop_back();
        return {Token::End, name, at_};
    }
    for (;;) {
        if (at_ >= document_.size()) {
            if (!open_.empty())
                return malformed(document_.size(), "Unexpected end of document inside an element");
            return {Token::EndOfDocument, {}, at_};
        }
        const size_t start = at_;
        if (document_[at_] != '<') {
            const void* open = std::memchr(document_.data() + at_, '<', document_.size() - at_);
            at_ = open ? static_cast<size_t>(static_cast<const char*>(open) - document_.data()) : document_.size();
            return {Token::Text, document_.substr(start, at_ - start), start};
        }
        // Start tags, the most common markup, need no further look.
        const char second = at_ + 1 < document_.size() ? document_[at_ + 1] : '\0';
        if (second != '/' && second != '?' && second != '!')
            return startTag(start);
        const std::string_view rest = document_.substr(at_);
        if (rest.starts_with("</"sv))
            return endTag(start);
        if (rest.starts_with("<?"sv)) {
            if ((at_ = after("?>"sv, at_ + 2)) == std::string_view::npos)
                return malformed(start, "Unterminated processing instruction");
        } else if (rest.starts_with("<!--"sv)) {
            if ((at_ = after("-->"sv, at_ + 4)) == std::string_view::npos)
                return malformed(start, "Unterminated comment");
        } else if (rest.starts_with("<![CDATA["sv)) {
            const size_t close = document_.find("]]>"sv, at_ + 9);
            if (close == std::string_view::npos)
                return malformed(start, "Unterminated CDATA section");
            at_ = close + 3;
            return {Token::CData, document_.substr(start + 9, close - start - 9), start};
        } else if (rest.starts_with("<!DOCTYPE"sv) && open_.empty()) {
            if (!skipDoctype())
                return malformed(start, "Unterminated document type declaration");
        } else {
            return startTag(start);
        }
    }
}

// <name attribute="value" ...> or <name .../>
Token Tokenizer::startTag(size_t open)
{
    ++at_;
    const std::string_view tag = name();
    if (tag.empty())
        return malformed(open, "Unrecognized tag");
    for (;;) {
        const size_t beforeSpace = at_;
        skipSpace();
        if (at_ >= document_.size())
            return malformed(open, "Unterminated start tag");
        if (document_[at_] == '>') {
            ++at_;
            break;
        }
        if (document_[at_] == '/') {
            if (at_ + 1 >= document_.size() || document_[at_ + 1] != '>')
                return malformed(at_, "Bad start tag");
            at_ += 2;
            pendingEnd_ = true;
            break;
        }
        if (at_ == beforeSpace || name().empty())
            return malformed(at_, "Bad attribute");
        skipSpace();
        if (at_ >= document_.size() || document_[at_] != '=')
            return malformed(at_, "Bad attribute");
        ++at_;
        skipSpace();
        if (at_ >= document_.size() || (document_[at_] != '"' && document_[at_] != '\''))
            return malformed(at_, "Bad attribute");
        const size_t close = document_.find(document_[at_], at_ + 1);
        if (close == std::string_view::npos || document_.substr(at_, close - at_).find('<') != std::string_view::npos)
            return malformed(at_, "Bad attribute value");
        at_ = close + 1;
    }
    open_.push_back(tag);
    return {Token::Start, tag, open};
}

Token Tokenizer::endTag(size_t open)
{
    at_ += 2;
    const std::string_view tag = name();
    skipSpace();
    if (at_ >= document_.size() || document_[at_] != '>')
        return malformed(open, "Bad end tag");
    ++at_;
    if (open_.empty() || open_.back() != tag)
        return malformed(open, "Start-end tags mismatch");
    open_.pop_back();
    return {Token::End, tag, open};
}

// Skips a DOCTYPE with its quoted identifiers and internal subset, if any.
bool Tokenizer::skipDoctype()
{
    size_t subsetDepth = 0;
    for (at_ += 9; at_ < document_.size(); ++at_) {
        const char c = document_[at_];
        if (c == '"' || c == '\'') {
            if ((at_ = document_.find(c, at_ + 1)) == std::string_view::npos)
                return false;
        } else if (c == '<' && document_.substr(at_).starts_with("<!--"sv)) {
            if ((at_ = after("-->"sv, at_ + 4)) == std::string_view::npos)
                return false;
            --at_;
        } else if (c == '[') {
            ++subsetDepth;
        } else if (c == ']' && subsetDepth) {
            --subsetDepth;
        } else if (c == '>' && !subsetDepth) {
            ++at_;
            return true;
        }
    }
    return false;
}

// Builds the values of the document as its tokens come, with an explicit stack of open containers
// and one shared run of finished items (each open container owns the tail from its start). After a
// fault in the content the rest of the document is still tokenized, so that malformed markup is
// reported before it wherever it lies.
class Reader {
public:
    Reader(std::string_view document, size_t bodyOffset, Mutability mutability)
        : document_(document),
          bodyOffset_(bodyOffset),
          tokens_(document, bodyOffset),
          utf8_(document.substr(bodyOffset)),
          mutability_(mutability)
    {
    }

    Ref<Object> read(std::string& error);

private:
    struct Frame {
        Tag tag;
        bool expectingKey; // a dictionary's next element is a key
        bool hasValue;     // <plist> holds its value
        size_t itemStart;
        size_t keyHashStart; // a dictionary's keys' hashes in keyHashes_
        size_t offset;
    };

    bool failAt(size_t offset, const std::string& message);
    // Answers false with the error of the first invalid UTF-8 when the document has any: that
    // fault comes before every other.
    bool checkUTF8(std::string& error);
    bool take(const Token& token);
    bool startElement(const Token& token);
    bool startValue(const Token& token, Tag tag);
    bool startScalar(const Token& token, Tag tag);
    void addText(const Token& token);
    bool finishScalar();
    bool finishContainer();
    Ref<String> keyString(std::string_view text, bool plain);
    Ref<String> hashedKey(Ref<String> key, size_t hash);

    std::string_view document_;
    size_t bodyOffset_;
    Tokenizer tokens_;
    UTF8Lookahead utf8_;
    Mutability mutability_;
    std::vector<Frame> stack_;
    // Page memory: this grows while the document's values are being allocated.
    std::vector<Ref<Object>, detail::PageAllocator<Ref<Object>>> items_;
    bool rootSeen_ = false;

    // The scalar element being read, and its character data so far: a single piece stays a view
    // into the document; more pieces, or references to decode, go through scratch_.
    bool inScalar_ = false;
    Tag scalarTag_ = Tag::Unknown;
    std::string_view scalarName_;
    size_t scalarOffset_ = 0;
    size_t pieces_ = 0;
    std::string_view firstPiece_;
    bool firstIsCData_ = false;
    std::string scratch_;

    // Documents repeat the same keys in every dictionary: one string per distinct key text, with
    // its hash in a dictionary.
    struct TextHash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    struct CachedKey {
        Ref<String> string;
        size_t hash;
    };
    // The cache owns its key texts: compact and hot, where the document's copy may lie megabytes
    // back.
    using KeyCache = std::unordered_map<std::string, CachedKey, TextHash, std::equal_to<>>;
    KeyCache keys_;
    // The cached key met at each position of the dictionaries read so far: dictionaries of one
    // document tend to list the same keys in the same order, so most keys match their hint and
    // need no hashing.
    std::vector<const KeyCache::value_type*> keyHints_;
    // The hashes of the keys of the open dictionaries, each dictionary's after its parent's.
    std::vector<size_t> keyHashes_;
    ByteVector bytes_;
    std::string error_;
};

bool Reader::failAt(size_t offset, const std::string& message)
{
    if (error_.empty())
        error_ = message + positionText(document_, offset);
    return false;
}

bool Reader::checkUTF8(std::string& error)
{
    if (utf8_.checkAll())
        return true;
    const std::string_view body = document_.substr(bodyOffset_);
    error = "Invalid UTF-8" + positionText(document_, bodyOffset_ + firstInvalidUTF8(body));
    return false;
}

Ref<Object> Reader::read(std::string& error)
{
    for (;;) {
        utf8_.checkThrough(tokens_.offset() - bodyOffset_);
        if (!inScalar_)
            tokens_.skipBlankBeforeMarkup();
        const Token token = tokens_.next();
        if (token.kind == Token::Malformed) {
            if (checkUTF8(error))
                error = "Malformed XML (" + tokens_.problem() + ")" + positionText(document_, tokens_.problemOffset());
            return nullptr;
        }
        if (token.kind == Token::EndOfDocument)
            break;
        if (error_.empty())
            take(token);
    }
    if (!checkUTF8(error))
        return nullptr;
    if (!rootSeen_)
        failAt(bodyOffset_, "No root element");
    if (!error_.empty()) {
        error = error_;
        return nullptr;
    }
    return std::move(items_.front());
}

bool Reader::take(const Token& token)
{
    switch (token.kind) {
    case Token::Start:
        return startElement(token);
    case Token::End:
        if (inScalar_)
            return finishScalar();
        if (stack_.back().tag != Tag::Plist)
            return finishContainer();
        if (!stack_.back().hasValue)
            return failAt(stack_.back().offset, "Empty <plist> element");
        stack_.pop_back();
        return true;
    case Token::Text:
    case Token::CData:
        if (inScalar_) {
            addText(token);
            return true;
        }
        if (token.kind == Token::Text && isBlank(token.text))
            return true;
        if (stack_.empty())
            return failAt(token.offset, rootSeen_ ? "Unexpected text after the root element" : "Unexpected text before the root element");
        return failAt(token.offset,
            stack_.back().tag == Tag::Array      ? "Unexpected text inside <array>"
                : stack_.back().tag == Tag::Dict ? "Unexpected text inside <dict>"
                                                 : "Unexpected text inside <plist>");
    default:
        return true;
    }
}

bool Reader::startElement(const Token& token)
{
    const Tag tag = tagOf(token.text);
    if (inScalar_) {
        return failAt(token.offset,
            "Unexpected element <" + quotedForMessage(token.text) + "> inside <" + quotedForMessage(scalarName_) + ">");
    }
    if (stack_.empty()) {
        if (rootSeen_)
            return failAt(token.offset, "Unexpected element after the root element");
        rootSeen_ = true;
        if (tag == Tag::Plist) {
            stack_.push_back({Tag::Plist, false, false, items_.size(), keyHashes_.size(), token.offset});
            return true;
        }
        return startValue(token, tag);
    }
    Frame& frame = stack_.back();
    if (frame.tag == Tag::Plist) {
        if (frame.hasValue)
            return failAt(token.offset, "Unexpected element after the property list's value");
        frame.hasValue = true;
    } else if (frame.tag == Tag::Dict) {
        const bool isKey = tag == Tag::Key;
        if (frame.expectingKey) {
            if (!isKey)
                return failAt(token.offset, "Expected <key> but found <" + quotedForMessage(token.text) + ">");
            frame.expectingKey = false;
            return startScalar(token, Tag::Key);
        }
        if (isKey)
            return failAt(token.offset, "Key without a value before another <key>");
        frame.expectingKey = true;
    }
    return startValue(token, tag);
}

bool Reader::startValue(const Token& token, Tag tag)
{
    if (tag != Tag::Array && tag != Tag::Dict) {
        if (tag == Tag::Unknown || tag == Tag::Plist || tag == Tag::Key)
            return failAt(token.offset, "Unexpected element <" + quotedForMessage(token.text) + ">");
        return startScalar(token, tag);
    }
    const size_t depth = stack_.size() - (!stack_.empty() && stack_.front().tag == Tag::Plist);
    if (depth >= kMaxNestingDepth)
        return failAt(token.offset, "Containers nested more than " + std::to_string(kMaxNestingDepth) + " deep");
    stack_.push_back({tag, true, false, items_.size(), keyHashes_.size(), token.offset});
    return true;
}

bool Reader::startScalar(const Token& token, Tag tag)
{
    inScalar_ = true;
    scalarTag_ = tag;
    scalarName_ = token.text;
    scalarOffset_ = token.offset;
    pieces_ = 0;
    std::string_view text;
    if (!tokens_.takeSimpleContent(text))
        return true; // the content comes token by token
    pieces_ = text.empty() ? 0 : 1;
    firstPiece_ = text;
    firstIsCData_ = false;
    return finishScalar();
}

// Character data is decoded into scratch_ from the second piece on, or as soon as it holds a
// reference; until then the single piece is kept as it is.
void Reader::addText(const Token& token)
{
    const auto append = [&](std::string_view piece, bool cdata) {
        if (auto problem = appendCharacterData(scratch_, piece, cdata))
            failAt(static_cast<size_t>(problem->at - document_.data()), problem->message);
    };
    if (++pieces_ == 1) {
        firstPiece_ = token.text;
        firstIsCData_ = token.kind == Token::CData;
        return;
    }
    if (pieces_ == 2) {
        scratch_.clear();
        append(firstPiece_, firstIsCData_);
    }
    append(token.text, token.kind == Token::CData);
}

bool Reader::finishContainer()
{
    const Frame& frame = stack_.back();
    const std::span<Ref<Object>> items(items_.data() + frame.itemStart, items_.size() - frame.itemStart);
    Ref<Object> container;
    if (frame.tag == Tag::Dict) {
        if (!frame.expectingKey)
            return failAt(frame.offset, "Key without a value in <dict>");
        const std::span<const size_t> hashes(keyHashes_.data() + frame.keyHashStart, items.size() / 2);
        container = makeDictionary(items, mutability_, hashes);
        keyHashes_.resize(frame.keyHashStart);
    } else {
        container = makeArray(items, mutability_);
    }
    items_.resize(frame.itemStart);
    items_.push_back(std::move(container));
    stack_.pop_back();
    return true;
}

// Key texts that come straight from the document, without references to decode, are looked up by
// that text; the cache stops growing at a size no sane document's key set reaches. Each key's
// hash goes on keyHashes_ for its dictionary.
Ref<String> Reader::keyString(std::string_view text, bool plain)
{
    constexpr size_t kMaxCachedKeys = 4096;
    if (!plain)
        return hashedKey(String::stringWithUTF8String(text), 0);
    const size_t position = (items_.size() - stack_.back().itemStart) / 2;
    if (position < keyHints_.size() && keyHints_[position] && keyHints_[position]->first == text)
        return hashedKey(keyHints_[position]->second.string, keyHints_[position]->second.hash);
    auto found = keys_.find(text);
    if (found == keys_.end()) {
        Ref<String> key = String::stringWithUTF8String(text);
        if (!key || keys_.size() >= kMaxCachedKeys)
            return hashedKey(std::move(key), 0);
        const size_t hash = detail::ObjectTable::hashOf(key);
        found = keys_.emplace(text, CachedKey {std::move(key), hash}).first;
    }
    if (position >= keyHints_.size())
        keyHints_.resize(position + 1);
    keyHints_[position] = &*found;
    return hashedKey(found->second.string, found->second.hash);
}

// Records the hash of key (computing it when hash is 0) and answers key; nil stays nil.
Ref<String> Reader::hashedKey(Ref<String> key, size_t hash)
{
    if (key)
        keyHashes_.push_back(hash ? hash : detail::ObjectTable::hashOf(key));
    return key;
}

bool Reader::finishScalar()
{
    inScalar_ = false;
    if (!error_.empty())
        return false;
    std::string_view text;
    bool plain = false;
    if (pieces_ == 0) {
        plain = true;
    } else if (pieces_ == 1 && (firstIsCData_ || firstPiece_.find('&') == std::string_view::npos)) {
        text = firstPiece_;
        plain = true;
    } else {
        if (pieces_ == 1) {
            scratch_.clear();
            if (auto problem = appendCharacterData(scratch_, firstPiece_, false))
                return failAt(static_cast<size_t>(problem->at - document_.data()), problem->message);
        }
        text = scratch_;
    }
    const size_t at = scalarOffset_;
    Ref<Object> value;
    switch (scalarTag_) {
    case Tag::String:
        // Nil for invalid UTF-8, which the document's own check reports.
        value = String::stringWithUTF8String(text);
        break;
    case Tag::Key:
        value = keyString(text, plain);
        break;
    case Tag::Integer:
        if (auto number = parseInteger(text))
            value = std::move(*number);
        else
            return failAt(at, "Invalid integer \"" + quotedForMessage(text) + "\"");
        break;
    case Tag::Real:
        if (auto real = parseReal(text))
            value = Number::numberWithDouble(*real);
        else
            return failAt(at, "Invalid real \"" + quotedForMessage(text) + "\"");
        break;
    case Tag::True:
    case Tag::False:
        if (!isBlank(text))
            return failAt(at, "Unexpected text inside <" + quotedForMessage(scalarName_) + ">");
        value = scalarTag_ == Tag::True ? Number::yes() : Number::no();
        break;
    case Tag::Date:
        if (auto seconds = parseDate(text))
            value = Date::dateWithTimeIntervalSinceReferenceDate(*seconds);
        else
            return failAt(at, "Invalid date \"" + quotedForMessage(text) + "\"");
        break;
    case Tag::Data:
        bytes_.clear();
        if (!decodeBase64(text, bytes_))
            return failAt(at, "Invalid base64 data");
        value = Data::dataWithBytes(bytes_.data(), bytes_.size());
        break;
    default:
        return failAt(at, "Unexpected element <" + quotedForMessage(scalarName_) + ">");
    }
    if (!value)
        return failAt(at, "Invalid UTF-8 text");
    items_.push_back(std::move(value));
    return true;
}

} // namespace

Ref<Object> readXMLPropertyList(std::span<const uint8_t> bytes, Mutability mutability, std::string& error)
{
    const std::string_view document(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const size_t bodyOffset = document.starts_with("\xEF\xBB\xBF"sv) ? 3 : 0;
    return Reader(document, bodyOffset, mutability).read(error);
}

} // namespace zon::plist
