#include "platform/values/URL.h"

#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/StringInternal.h"
#include "platform/values/UTF.h"

#include <array>
#include <bitset>
#include <functional>
#include <limits>

namespace zon {

ZON_DEFINE_CLASS(URL, "NSURL")

namespace {

enum CharacterClass : uint8_t { kLegal = 1, kSchemeTail = 2, kHexDigit = 4 };

constexpr std::array<uint8_t, 128> makeCharacterTable()
{
    std::array<uint8_t, 128> table {};
    for (char c : std::string_view("!$&'()*+,-./:;=?@_~"))
        table[size_t(c)] |= kLegal;
    for (int c = 0; c < 128; ++c) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        const bool digit = c >= '0' && c <= '9';
        if (letter || digit)
            table[c] |= kLegal | kSchemeTail;
        if (digit || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))
            table[c] |= kHexDigit;
    }
    table['+'] |= kSchemeTail;
    table['-'] |= kSchemeTail;
    table['.'] |= kSchemeTail;
    return table;
}
constexpr std::array<uint8_t, 128> kCharacterTable = makeCharacterTable();

bool hasClass(char16_t c, CharacterClass kind) { return c < 128 && (kCharacterTable[c] & kind); }

bool isASCIILetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

int hexValue(char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; }

// The ASCII characters of a caller's set, as a mask.
std::bitset<128> asciiMask(std::u16string_view characters)
{
    std::bitset<128> mask;
    for (char16_t c : characters) {
        if (c < 128)
            mask.set(c);
    }
    return mask;
}

void appendEscapedByte(std::string& out, uint8_t byte)
{
    static constexpr char kHex[] = "0123456789ABCDEF";
    out.push_back('%');
    out.push_back(kHex[byte >> 4]);
    out.push_back(kHex[byte & 15]);
}

void appendUTF8Escaped(std::string& out, char32_t codePoint)
{
    char bytes[4];
    const char* end = utf::encodeUTF8(codePoint, bytes);
    for (const char* byte = bytes; byte != end; ++byte)
        appendEscapedByte(out, uint8_t(*byte));
}

std::u16string_view viewOf(const String* text) { return text ? text->view() : std::u16string_view {}; }

} // namespace

void URL::appendPercentEscaped(
    std::string& out, std::u16string_view input, std::u16string_view leaveUnescaped, std::u16string_view legalToEscape)
{
    const std::bitset<128> leave = asciiMask(leaveUnescaped);
    const std::bitset<128> escape = asciiMask(legalToEscape);
    out.reserve(out.size() + input.size());
    for (size_t i = 0; i < input.size();) {
        const char16_t c = input[i];
        if (c < 128) {
            if (leave[c] || (hasClass(c, kLegal) && !escape[c]))
                out.push_back(char(c));
            else
                appendEscapedByte(out, uint8_t(c));
            ++i;
            continue;
        }
        size_t units;
        char32_t codePoint = text::codePointAt(input, i, &units);
        if (text::isLeadSurrogate(codePoint) || text::isTrailSurrogate(codePoint))
            codePoint = 0xFFFD; // a lone surrogate has no UTF-8 form
        appendUTF8Escaped(out, codePoint);
        i += units;
    }
}

Ref<String> URL::stringByAddingPercentEscapes(const String* text, const String* leaveUnescaped, const String* legalToEscape)
{
    if (!text)
        return nullptr;
    std::string out;
    appendPercentEscaped(out, text->view(), viewOf(leaveUnescaped), viewOf(legalToEscape));
    return String::stringWithUTF8String(out);
}

Ref<URL> URL::URLWithString(const String* text)
{
    if (!text)
        return nullptr;
    std::string ascii;
    ascii.reserve(text->length());
    for (char16_t c : text->view()) {
        if (c >= 128)
            return nullptr;
        ascii.push_back(char(c));
    }
    return parse(std::move(ascii));
}

Ref<URL> URL::URLWithString(std::string_view ascii) { return parse(std::string(ascii)); }

Ref<URL> URL::parse(std::string text)
{
    const size_t size = text.size();
    if (size >= UINT32_MAX)
        return nullptr;
    size_t hash = std::string::npos;
    size_t brackets = 0;
    for (size_t i = 0; i < size; ++i) {
        const char c = text[i];
        if (hasClass(c, kLegal))
            continue;
        if (c == '%' && i + 2 < size && hasClass(text[i + 1], kHexDigit) && hasClass(text[i + 2], kHexDigit)) {
            i += 2;
        } else if (c == '#' && hash == std::string::npos) {
            hash = i;
        } else if ((c == '[' || c == ']') && hash == std::string::npos) {
            ++brackets;
        } else {
            return nullptr;
        }
    }

    auto span = [](size_t start, size_t end) { return Span {uint32_t(start), uint32_t(end - start)}; };
    auto find = [&](char c, size_t from, size_t end) {
        const size_t at = text.find(c, from);
        return at < end ? at : end;
    };
    Parts parts;
    const size_t end = hash == std::string::npos ? size : hash;
    if (hash != std::string::npos)
        parts.fragment = span(hash + 1, size);

    size_t position = 0;
    if (size && isASCIILetter(text[0])) {
        size_t colon = 1;
        while (colon < end && hasClass(text[colon], kSchemeTail))
            ++colon;
        if (colon < end && text[colon] == ':') {
            parts.scheme = span(0, colon);
            position = colon + 1;
        }
    }
    // A scheme followed by neither "//" nor "/" leaves the rest opaque: no host, path or query.
    if (parts.scheme.present() && (position == end || text[position] != '/'))
        return brackets ? nullptr : makeObject<URL>(std::move(text), parts);

    size_t hostBrackets = 0;
    if (text.compare(position, 2, "//") == 0 && position + 2 <= end) {
        const size_t start = position + 2;
        const size_t authorityEnd = std::min(find('/', start, end), find('?', start, end));
        const size_t at = text.rfind('@', authorityEnd == 0 ? 0 : authorityEnd - 1);
        size_t hostStart = start;
        if (at != std::string::npos && at >= start && at < authorityEnd) {
            const size_t colon = find(':', start, at);
            parts.user = span(start, colon);
            if (colon < at)
                parts.password = span(colon + 1, at);
            hostStart = at + 1;
        }
        size_t portColon = authorityEnd;
        if (hostStart < authorityEnd && text[hostStart] == '[') {
            const size_t close = find(']', hostStart, authorityEnd);
            if (close == authorityEnd || (close + 1 < authorityEnd && text[close + 1] != ':'))
                return nullptr;
            parts.host = span(hostStart + 1, close);
            portColon = close + 1;
            hostBrackets = 2;
        } else {
            const size_t colon = text.rfind(':', authorityEnd - 1);
            if (colon != std::string::npos && colon >= hostStart && colon < authorityEnd)
                portColon = colon;
            parts.host = span(hostStart, portColon);
        }
        if (portColon < authorityEnd)
            parts.port = span(portColon + 1, authorityEnd);
        position = authorityEnd;
    }
    // Brackets may only enclose the host.
    if (brackets != hostBrackets)
        return nullptr;
    const size_t question = find('?', position, end);
    parts.path = span(position, question);
    if (question < end)
        parts.query = span(question + 1, end);
    return makeObject<URL>(std::move(text), parts);
}

Ref<URL> URL::initWithScheme_host_path(const String* scheme, const String* host, const String* path)
{
    if (!scheme)
        return nullptr;
    std::string text;
    appendPercentEscaped(text, scheme->view(), {}, {});
    text.append("://");
    appendPercentEscaped(text, viewOf(host), u"[]", {});
    const std::u16string_view pathUnits = viewOf(path);
    if (!pathUnits.empty() && pathUnits.front() != '/')
        text.push_back('/');
    appendPercentEscaped(text, pathUnits, {}, {});
    return parse(std::move(text));
}

Ref<URL> URL::fileURLWithPath_isDirectory(const String* path, bool isDirectory)
{
    if (!path || !path->length())
        return nullptr;
    std::u16string absolute;
    if (path->view().front() != '/') {
        auto directory = currentDirectory();
        if (!directory)
            return nullptr;
        Ref<String> folder = String::stringWithUTF8String(directory.value());
        if (!folder)
            return nullptr;
        absolute = folder->stringByAppendingPathComponent(path)->view();
    } else {
        absolute = path->view();
    }
    if (isDirectory && absolute.back() != '/')
        absolute.push_back('/');
    std::string text = "file://";
    appendPercentEscaped(text, absolute, {}, {});
    return parse(std::move(text));
}

Ref<URL> URL::fileURLWithPath(const String* path)
{
    if (!path)
        return nullptr;
    auto status = pathStatus(path->UTF8String());
    return fileURLWithPath_isDirectory(path, status && S_ISDIR(status.value().st_mode));
}

Ref<String> URL::part(Span span) const
{
    if (!span.present())
        return nullptr;
    return String::stringWithUTF8String(std::string_view(text_).substr(span.start, span.length));
}

Ref<String> URL::absoluteString() const { return String::stringWithUTF8String(text_); }
Ref<String> URL::scheme() const { return part(parts_.scheme); }
Ref<String> URL::user() const { return part(parts_.user); }
Ref<String> URL::password() const { return part(parts_.password); }
Ref<String> URL::host() const { return part(parts_.host); }
Ref<String> URL::query() const { return part(parts_.query); }
Ref<String> URL::fragment() const { return part(parts_.fragment); }

Ref<Number> URL::port() const
{
    if (!parts_.port.present() || parts_.port.length == 0 || parts_.port.length > 9)
        return nullptr;
    int value = 0;
    for (char c : std::string_view(text_).substr(parts_.port.start, parts_.port.length)) {
        if (c < '0' || c > '9')
            return nullptr;
        value = value * 10 + (c - '0');
    }
    return Number::numberWithInt(value);
}

Ref<String> URL::path() const
{
    if (!parts_.path.present())
        return nullptr;
    std::string_view escaped = std::string_view(text_).substr(parts_.path.start, parts_.path.length);
    while (escaped.size() > 1 && escaped.back() == '/')
        escaped.remove_suffix(1);
    std::string bytes;
    bytes.reserve(escaped.size());
    for (size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] == '%' && i + 2 < escaped.size()) {
            bytes.push_back(char(hexValue(escaped[i + 1]) * 16 + hexValue(escaped[i + 2])));
            i += 2;
        } else {
            bytes.push_back(escaped[i]);
        }
    }
    return String::stringWithUTF8String(bytes);
}

bool URL::isFileURL() const { return schemeStartsWith("file") && parts_.scheme.length == 4; }

bool URL::schemeStartsWith(std::string_view prefix) const
{
    return parts_.scheme.present() && parts_.scheme.length >= prefix.size()
        && std::string_view(text_).substr(0, prefix.size()) == prefix;
}

Ref<String> URL::description() const { return absoluteString(); }

bool URL::isEqual(const Object* other) const
{
    const URL* url = dynamicCast<URL>(other);
    return url && url->text_ == text_;
}

size_t URL::hash() const { return std::hash<std::string> {}(text_); }

Ref<Object> URL::copy() const { return Ref<Object>(const_cast<URL*>(this)); }

} // namespace zon
