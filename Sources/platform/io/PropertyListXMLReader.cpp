#include "platform/io/PropertyListXMLReader.h"

#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <pugixml.hpp>

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

// pugixml stops at a NUL byte, so NULs are replaced by this byte before parsing and restored in
// character data. It never occurs in valid UTF-8, which the whole document is checked to be first.
constexpr char kNulStandIn = '\xFF';

// Raw mode: no end-of-line normalisation and no entity decoding (both are done here, so that
// carriage returns survive and entity errors are reported); CDATA kept; whitespace-only text kept
// only as an element's single child (an all-blank <string>); text outside the root element kept
// (fragment mode) so that trailing garbage can be refused.
constexpr unsigned kParseOptions = pugi::parse_minimal | pugi::parse_cdata | pugi::parse_ws_pcdata_single
    | pugi::parse_embed_pcdata | pugi::parse_fragment;

bool isXMLSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

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
        size_t run = i;
        while (run < raw.size() && raw[run] != kNulStandIn && (raw[run] != '&' || cdata))
            ++run;
        out.append(raw.data() + i, run - i);
        i = run;
        if (i == raw.size())
            break;
        if (raw[i] == kNulStandIn) {
            out.push_back('\0');
            ++i;
        } else {
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
bool decodeBase64(std::string_view text, std::vector<uint8_t>& out)
{
    static const auto table = [] {
        std::array<int8_t, 256> t {};
        t.fill(-1);
        const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 64; ++i)
            t[static_cast<unsigned char>(alphabet[i])] = static_cast<int8_t>(i);
        for (char c : " \t\r\n"sv)
            t[static_cast<unsigned char>(c)] = -2;
        t['='] = -3;
        return t;
    }();
    out.reserve(text.size() / 4 * 3);
    uint32_t quad = 0;
    size_t sextets = 0;
    size_t padding = 0;
    for (char c : text) {
        const int8_t code = table[static_cast<unsigned char>(c)];
        if (code == -2)
            continue;
        if (code == -1)
            return false;
        if (code == -3) {
            ++padding;
            continue;
        }
        if (padding)
            return false;
        quad = (quad << 6) | static_cast<uint32_t>(code);
        if (++sextets % 4 == 0) {
            out.push_back(static_cast<uint8_t>(quad >> 16));
            out.push_back(static_cast<uint8_t>(quad >> 8));
            out.push_back(static_cast<uint8_t>(quad));
        }
    }
    const size_t tail = sextets % 4;
    if (tail == 1 || padding > 2 || (padding && (tail + padding) != 4))
        return false;
    if (tail == 2) {
        out.push_back(static_cast<uint8_t>(quad >> 4));
    } else if (tail == 3) {
        out.push_back(static_cast<uint8_t>(quad >> 10));
        out.push_back(static_cast<uint8_t>(quad >> 2));
    }
    return true;
}

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

// Whether the NUL-terminated name is exactly expected; inline, as it runs once per element.
bool nameIs(const char* name, std::string_view expected)
{
    for (char c : expected) {
        if (*name++ != c)
            return false;
    }
    return *name == '\0';
}

Tag tagOf(const char* name)
{
    switch (name[0]) {
    case 's':
        return nameIs(name, "string"sv) ? Tag::String : Tag::Unknown;
    case 'k':
        return nameIs(name, "key"sv) ? Tag::Key : Tag::Unknown;
    case 'i':
        return nameIs(name, "integer"sv) ? Tag::Integer : Tag::Unknown;
    case 'r':
        return nameIs(name, "real"sv) ? Tag::Real : Tag::Unknown;
    case 't':
        return nameIs(name, "true"sv) ? Tag::True : Tag::Unknown;
    case 'f':
        return nameIs(name, "false"sv) ? Tag::False : Tag::Unknown;
    case 'd':
        if (nameIs(name, "dict"sv))
            return Tag::Dict;
        if (nameIs(name, "date"sv))
            return Tag::Date;
        return nameIs(name, "data"sv) ? Tag::Data : Tag::Unknown;
    case 'a':
        return nameIs(name, "array"sv) ? Tag::Array : Tag::Unknown;
    case 'p':
        return nameIs(name, "plist"sv) ? Tag::Plist : Tag::Unknown;
    default:
        return Tag::Unknown;
    }
}

// Builds the values of the document depth first, with an explicit stack of open containers and
// one shared run of finished items (each open container owns the tail from its start).
class Reader {
public:
    // base is the start of the buffer pugixml parsed in place, so text pointers give positions.
    Reader(std::string_view original, size_t bodyOffset, const char* base, Mutability mutability)
        : original_(original), bodyOffset_(bodyOffset), base_(base), mutability_(mutability)
    {
    }

    Ref<Object> read(pugi::xml_node document, std::string& error);

private:
    struct Frame {
        pugi::xml_node container;
        pugi::xml_node next;
        size_t itemStart;
        bool dictionary;
        bool expectingKey;
    };

    // Positions point at an element's '<' (pugixml records its name) or at the start of text.
    bool fail(pugi::xml_node at, const std::string& message)
    {
        return failAt(at.offset_debug() - (at.type() == pugi::node_element ? 1 : 0), message);
    }
    bool failAt(ptrdiff_t offset, const std::string& message);

    bool readRoot(pugi::xml_node document, pugi::xml_node& value);
    bool readValue(pugi::xml_node node);
    bool readScalar(pugi::xml_node node, Tag tag);
    bool textOf(pugi::xml_node node, std::string_view& text, bool& plain);
    Ref<String> keyString(std::string_view text, bool plain);
    bool checkNoText(pugi::xml_node node);
    bool finishContainer();

    std::string_view original_;
    size_t bodyOffset_;
    const char* base_;
    Mutability mutability_;
    std::vector<Frame> stack_;
    std::vector<Ref<Object>> items_;
    std::string scratch_;
    // Documents repeat the same keys in every dictionary: one string per distinct key text.
    using KeyCache = std::unordered_map<std::string_view, Ref<String>>;
    KeyCache keys_;
    // The cached key met at each position of the dictionaries read so far: dictionaries of one
    // document tend to list the same keys in the same order, so most keys match their hint and
    // need no hashing.
    std::vector<const KeyCache::value_type*> keyHints_;
    std::vector<uint8_t> bytes_;
    std::string error_;
};

bool Reader::failAt(ptrdiff_t offset, const std::string& message)
{
    if (error_.empty())
        error_ = message + positionText(original_, bodyOffset_ + static_cast<size_t>(std::max<ptrdiff_t>(offset, 0)));
    return false;
}

Ref<Object> Reader::read(pugi::xml_node document, std::string& error)
{
    pugi::xml_node value;
    if (readRoot(document, value) && readValue(value)) {
        while (!stack_.empty()) {
            Frame& frame = stack_.back();
            const pugi::xml_node child = frame.next;
            if (!child) {
                if (!finishContainer())
                    break;
                continue;
            }
            frame.next = child.next_sibling();
            if (child.type() != pugi::node_element) {
                if (child.type() == pugi::node_pcdata && isBlank(child.value()))
                    continue;
                fail(child, std::string("Unexpected text inside <") + frame.container.name() + ">");
                break;
            }
            if (frame.dictionary) {
                const bool isKey = tagOf(child.name()) == Tag::Key;
                if (frame.expectingKey) {
                    if (!isKey) {
                        fail(child, "Expected <key> but found <" + quotedForMessage(child.name()) + ">");
                        break;
                    }
                    frame.expectingKey = false;
                    if (!readScalar(child, Tag::Key))
                        break;
                    continue;
                }
                if (isKey) {
                    fail(child, "Key without a value before another <key>");
                    break;
                }
                frame.expectingKey = true;
            }
            if (!readValue(child))
                break;
        }
    }
    if (!error_.empty()) {
        error = error_;
        return nullptr;
    }
    return std::move(items_.front());
}

// The document holds one element: <plist> around one value, or a value alone.
bool Reader::readRoot(pugi::xml_node document, pugi::xml_node& value)
{
    pugi::xml_node root;
    for (pugi::xml_node child : document.children()) {
        if (child.type() == pugi::node_element && !root) {
            root = child;
        } else if (child.type() == pugi::node_element) {
            return fail(child, "Unexpected element after the root element");
        } else if (child.type() != pugi::node_pcdata || !isBlank(child.value())) {
            return fail(child, root ? "Unexpected text after the root element" : "Unexpected text before the root element");
        }
    }
    if (!root)
        return failAt(0, "No root element");
    if (tagOf(root.name()) != Tag::Plist) {
        value = root;
        return true;
    }
    if (!checkNoText(root))
        return false;
    for (pugi::xml_node child : root.children()) {
        if (child.type() != pugi::node_element)
            continue;
        if (value)
            return fail(child, "Unexpected element after the property list's value");
        value = child;
    }
    if (!value)
        return fail(root, "Empty <plist> element");
    return true;
}

// Text (other than white space) directly inside a container or <plist> is an error.
bool Reader::checkNoText(pugi::xml_node node)
{
    if (!isBlank(node.value()))
        return fail(node, std::string("Unexpected text inside <") + node.name() + ">");
    for (pugi::xml_node child : node.children()) {
        if (child.type() == pugi::node_element)
            continue;
        if (child.type() != pugi::node_pcdata || !isBlank(child.value()))
            return fail(child, std::string("Unexpected text inside <") + node.name() + ">");
    }
    return true;
}

bool Reader::readValue(pugi::xml_node node)
{
    const Tag tag = tagOf(node.name());
    if (tag != Tag::Array && tag != Tag::Dict) {
        if (tag == Tag::Unknown || tag == Tag::Plist || tag == Tag::Key)
            return fail(node, "Unexpected element <" + quotedForMessage(node.name()) + ">");
        return readScalar(node, tag);
    }
    if (!isBlank(node.value()))
        return fail(node, std::string("Unexpected text inside <") + node.name() + ">");
    if (stack_.size() >= kMaxNestingDepth)
        return fail(node, "Containers nested more than " + std::to_string(kMaxNestingDepth) + " deep");
    stack_.push_back({node, node.first_child(), items_.size(), tag == Tag::Dict, true});
    return true;
}

bool Reader::finishContainer()
{
    const Frame& frame = stack_.back();
    const std::span<Ref<Object>> items(items_.data() + frame.itemStart, items_.size() - frame.itemStart);
    Ref<Object> container;
    if (frame.dictionary) {
        if (!frame.expectingKey)
            return fail(frame.container, "Key without a value in <dict>");
        container = makeDictionary(items, mutability_);
    } else {
        container = makeArray(items, mutability_);
    }
    items_.resize(frame.itemStart);
    items_.push_back(std::move(container));
    stack_.pop_back();
    return true;
}

// The character data of a scalar element, its text and CDATA sections in order, references
// decoded. A view into the parsed buffer when nothing needed decoding, else into scratch_.
bool Reader::textOf(pugi::xml_node node, std::string_view& text, bool& plain)
{
    const char* value = node.value();
    text = std::string_view(value, std::strlen(value));
    plain = std::memchr(text.data(), '&', text.size()) == nullptr
        && std::memchr(text.data(), kNulStandIn, text.size()) == nullptr && !node.first_child();
    if (plain)
        return true;
    scratch_.clear();
    if (auto problem = appendCharacterData(scratch_, text, false))
        return failAt(problem->at - base_, problem->message);
    for (pugi::xml_node child : node.children()) {
        if (child.type() == pugi::node_element)
            return fail(child, "Unexpected element <" + quotedForMessage(child.name()) + "> inside <" + node.name() + ">");
        if (auto problem = appendCharacterData(scratch_, child.value(), child.type() == pugi::node_cdata))
            return failAt(problem->at - base_, problem->message);
    }
    text = scratch_;
    return true;
}

// Key texts that come straight from the parsed buffer (which outlives the reader's work) are
// looked up by that text; the cache stops growing at a size no sane document's key set reaches.
Ref<String> Reader::keyString(std::string_view text, bool plain)
{
    constexpr size_t kMaxCachedKeys = 4096;
    if (!plain)
        return String::stringWithUTF8String(text);
    const size_t position = (items_.size() - stack_.back().itemStart) / 2;
    if (position < keyHints_.size() && keyHints_[position] && keyHints_[position]->first == text)
        return keyHints_[position]->second;
    auto found = keys_.find(text);
    if (found == keys_.end()) {
        Ref<String> key = String::stringWithUTF8String(text);
        if (keys_.size() >= kMaxCachedKeys)
            return key;
        found = keys_.emplace(text, std::move(key)).first;
    }
    if (position >= keyHints_.size())
        keyHints_.resize(position + 1);
    keyHints_[position] = &*found;
    return found->second;
}

bool Reader::readScalar(pugi::xml_node node, Tag tag)
{
    std::string_view text;
    bool plain;
    if (!textOf(node, text, plain))
        return false;
    Ref<Object> value;
    switch (tag) {
    case Tag::String:
        // The document's UTF-8 was checked up front, and decoding references keeps it valid.
        value = String::stringWithUTF8String(text);
        break;
    case Tag::Key:
        value = keyString(text, plain);
        break;
    case Tag::Integer:
        if (auto number = parseInteger(text))
            value = std::move(*number);
        else
            return fail(node, "Invalid integer \"" + quotedForMessage(text) + "\"");
        break;
    case Tag::Real:
        if (auto real = parseReal(text))
            value = Number::numberWithDouble(*real);
        else
            return fail(node, "Invalid real \"" + quotedForMessage(text) + "\"");
        break;
    case Tag::True:
    case Tag::False:
        if (!isBlank(text))
            return fail(node, std::string("Unexpected text inside <") + node.name() + ">");
        value = tag == Tag::True ? Number::yes() : Number::no();
        break;
    case Tag::Date:
        if (auto seconds = parseDate(text))
            value = Date::dateWithTimeIntervalSinceReferenceDate(*seconds);
        else
            return fail(node, "Invalid date \"" + quotedForMessage(text) + "\"");
        break;
    case Tag::Data:
        bytes_.clear();
        if (!decodeBase64(text, bytes_))
            return fail(node, "Invalid base64 data");
        value = Data::dataWithBytes(bytes_.data(), bytes_.size());
        break;
    default:
        return fail(node, "Unexpected element <" + quotedForMessage(node.name()) + ">");
    }
    if (!value)
        return fail(node, "Invalid UTF-8 text");
    items_.push_back(std::move(value));
    return true;
}

} // namespace

Ref<Object> readXMLPropertyList(std::span<const uint8_t> bytes, Mutability mutability, std::string& error)
{
    const std::string_view original(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const size_t bodyOffset = original.starts_with("\xEF\xBB\xBF"sv) ? 3 : 0;
    const std::string_view body = original.substr(bodyOffset);
    if (utf::utf16LengthOfUTF8(body) == utf::kInvalid) {
        error = "Invalid UTF-8" + positionText(original, bodyOffset + firstInvalidUTF8(body));
        return nullptr;
    }

    std::string buffer(body);
    for (size_t at = buffer.find('\0'); at != std::string::npos; at = buffer.find('\0', at + 1))
        buffer[at] = kNulStandIn;
    pugi::xml_document document;
    const pugi::xml_parse_result parsed =
        document.load_buffer_inplace(buffer.data(), buffer.size(), kParseOptions, pugi::encoding_utf8);
    if (!parsed) {
        error = std::string("Malformed XML (") + parsed.description() + ")"
            + positionText(original, bodyOffset + static_cast<size_t>(std::max<ptrdiff_t>(parsed.offset, 0)));
        return nullptr;
    }
    return Reader(original, bodyOffset, buffer.data(), mutability).read(document, error);
}

} // namespace zon::plist
