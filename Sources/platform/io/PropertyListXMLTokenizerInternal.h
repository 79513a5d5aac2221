#pragma once

// The tokenizer of the XML that property lists use, and the byte classes of XML text.

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zon::plist {

// What each byte may be: bit 0, the first character of an element or attribute name; bit 1, any
// other character of one (bytes of multi-byte UTF-8 sequences count as name characters); bit 2,
// XML white space.
inline constexpr std::array<uint8_t, 256> kXMLByteClasses = [] {
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

inline bool isXMLSpace(char c) { return kXMLByteClasses[static_cast<unsigned char>(c)] & 4; }
inline bool isXMLNameStart(unsigned char c) { return kXMLByteClasses[c] & 1; }
inline bool isXMLNameChar(unsigned char c) { return kXMLByteClasses[c] & 2; }

inline bool isBlank(std::string_view text)
{
    for (char c : text) {
        if (!isXMLSpace(c))
            return false;
    }
    return true;
}

inline std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isXMLSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isXMLSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

// One piece of the document as the tokenizer sees it. Comments, processing instructions and the
// DOCTYPE are skipped; a self-closing element comes as a start and an end.
struct XMLToken {
    enum Kind : uint8_t { Start, End, Text, CData, EndOfDocument, Malformed } kind;
    std::string_view text; // an element's name, or character data (references not decoded)
    size_t offset;         // of the '<' of markup, or of the first byte of text
};

// Splits the bytes of an XML document into tokens, checking that the markup is well formed and that
// end tags match their start tags. Works on the caller's bytes without copying them.
class XMLTokenizer {
public:
    explicit XMLTokenizer(std::string_view document, size_t start) : document_(document), at_(start) {}

    XMLToken next();
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
    bool takeSimpleContent(std::string_view& text)
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
    // When the element just started is a <dict> that holds exactly <key>CF$UID</key> and
    // <integer>N</integer> (N in decimal digits, only blanks between the elements), takes it through
    // its "</dict>" and answers N. Otherwise consumes nothing: the generic path reads it. Keyed
    // archives are mostly these reference dictionaries; reading each as a dictionary with a key and
    // a number cost a third of BM_KeyedArchiveRead.
    std::optional<uint64_t> takeReferenceDictionary()
    {
        if (pendingEnd_)
            return std::nullopt; // <dict/>
        size_t at = at_;
        const auto skipBlank = [&] {
            while (at < document_.size() && isXMLSpace(document_[at]))
                ++at;
        };
        const auto take = [&](std::string_view text) {
            if (document_.compare(at, text.size(), text) != 0)
                return false;
            at += text.size();
            return true;
        };
        skipBlank();
        if (!take("<key>CF$UID</key>") || (skipBlank(), !take("<integer>")))
            return std::nullopt;
        uint64_t value = 0;
        const char* digits = document_.data() + at;
        const char* end = document_.data() + document_.size();
        const auto [after, status] = std::from_chars(digits, end, value);
        if (status != std::errc() || after == digits || *digits < '0' || *digits > '9')
            return std::nullopt;
        at = static_cast<size_t>(after - document_.data());
        if (!take("</integer>") || (skipBlank(), !take("</dict>")))
            return std::nullopt;
        at_ = at;
        open_.pop_back();
        return value;
    }

    const std::string& problem() const { return problem_; }
    size_t problemOffset() const { return problemOffset_; }

private:
    XMLToken malformed(size_t offset, const char* what)
    {
        problem_ = what;
        problemOffset_ = offset;
        return {XMLToken::Malformed, {}, offset};
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
        if (at_ < document_.size() && isXMLNameStart(static_cast<unsigned char>(document_[at_]))) {
            ++at_;
            while (at_ < document_.size() && isXMLNameChar(static_cast<unsigned char>(document_[at_])))
                ++at_;
        }
        return document_.substr(start, at_ - start);
    }
    XMLToken startTag(size_t open);
    XMLToken endTag(size_t open);
    bool skipDoctype();

    std::string_view document_;
    size_t at_;
    std::vector<std::string_view> open_; // names of the elements not yet closed
    bool pendingEnd_ = false;
    std::string problem_;
    size_t problemOffset_ = 0;
};

} // namespace zon::plist
