#include "platform/io/PropertyListXMLReaderInternal.h"

#include "platform/io/PropertyListXMLTokenizerInternal.h"
#include "platform/runtime/PageMemoryInternal.h"
#include "platform/values/Base64.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/KeyedArchiverUID.h"
#include "platform/values/Number.h"
#include "platform/values/ObjectTable.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <cstring>
#include <unordered_map>
#include <vector>

namespace zon::plist {

namespace {

using namespace std::string_view_literals;

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
    const std::optional<uint32_t> code = unsignedFromText<uint32_t>(body, base);
    if (!code || *code > 0x10FFFF || (*code >= 0xD800 && *code <= 0xDFFF))
        return std::nullopt;
    return static_cast<char32_t>(*code);
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
            utf::appendUTF8(out, *code);
        } else {
            return TextProblem {"Undefined entity &" + quotedForMessage(body) + ";", raw.data() + i};
        }
        i = semicolon + 1;
    }
    return std::nullopt;
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

// Builds the values of the document as its tokens come, with an explicit stack of open containers
// and one shared run of finished items (each open container owns the tail from its start). After a
// fault in the content the rest of the document is still tokenized, so that malformed markup is
// reported before it wherever it lies.
class Reader {
public:
    Reader(std::string_view document, size_t bodyOffset, Mutability mutability, ReferenceForm references)
        : document_(document),
          bodyOffset_(bodyOffset),
          tokens_(document, bodyOffset),
          utf8_(document.substr(bodyOffset)),
          mutability_(mutability),
          references_(references)
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
    bool take(const XMLToken& token);
    bool startElement(const XMLToken& token);
    bool startValue(const XMLToken& token, Tag tag);
    bool startScalar(const XMLToken& token, Tag tag);
    void addText(const XMLToken& token);
    bool finishScalar();
    bool finishContainer();
    Ref<String> keyString(std::string_view text, bool plain);
    Ref<String> hashedKey(Ref<String> key, size_t hash);

    std::string_view document_;
    size_t bodyOffset_;
    XMLTokenizer tokens_;
    UTF8Lookahead utf8_;
    Mutability mutability_;
    ReferenceForm references_;
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
    error = "Invalid UTF-8" + positionText(document_, bodyOffset_ + utf::offsetOfInvalidUTF8(body));
    return false;
}

Ref<Object> Reader::read(std::string& error)
{
    for (;;) {
        utf8_.checkThrough(tokens_.offset() - bodyOffset_);
        if (!inScalar_)
            tokens_.skipBlankBeforeMarkup();
        const XMLToken token = tokens_.next();
        if (token.kind == XMLToken::Malformed) {
            if (checkUTF8(error))
                error = "Malformed XML (" + tokens_.problem() + ")" + positionText(document_, tokens_.problemOffset());
            return nullptr;
        }
        if (token.kind == XMLToken::EndOfDocument)
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

bool Reader::take(const XMLToken& token)
{
    switch (token.kind) {
    case XMLToken::Start:
        return startElement(token);
    case XMLToken::End:
        if (inScalar_)
            return finishScalar();
        if (stack_.back().tag != Tag::Plist)
            return finishContainer();
        if (!stack_.back().hasValue)
            return failAt(stack_.back().offset, "Empty <plist> element");
        stack_.pop_back();
        return true;
    case XMLToken::Text:
    case XMLToken::CData:
        if (inScalar_) {
            addText(token);
            return true;
        }
        if (token.kind == XMLToken::Text && isBlank(token.text))
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

bool Reader::startElement(const XMLToken& token)
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

bool Reader::startValue(const XMLToken& token, Tag tag)
{
    if (tag != Tag::Array && tag != Tag::Dict) {
        if (tag == Tag::Unknown || tag == Tag::Plist || tag == Tag::Key)
            return failAt(token.offset, "Unexpected element <" + quotedForMessage(token.text) + ">");
        return startScalar(token, tag);
    }
    const size_t depth = stack_.size() - (!stack_.empty() && stack_.front().tag == Tag::Plist);
    if (depth >= kMaxNestingDepth)
        return failAt(token.offset, "Containers nested more than " + std::to_string(kMaxNestingDepth) + " deep");
    if (tag == Tag::Dict && references_ == ReferenceForm::UID) {
        if (const std::optional<uint64_t> reference = tokens_.takeReferenceDictionary()) {
            items_.push_back(KeyedArchiverUID::uidWithValue(*reference));
            return true;
        }
    }
    stack_.push_back({tag, true, false, items_.size(), keyHashes_.size(), token.offset});
    return true;
}

bool Reader::startScalar(const XMLToken& token, Tag tag)
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
void Reader::addText(const XMLToken& token)
{
    const auto append = [&](std::string_view piece, bool cdata) {
        if (auto problem = appendCharacterData(scratch_, piece, cdata))
            failAt(static_cast<size_t>(problem->at - document_.data()), problem->message);
    };
    if (++pieces_ == 1) {
        firstPiece_ = token.text;
        firstIsCData_ = token.kind == XMLToken::CData;
        return;
    }
    if (pieces_ == 2) {
        scratch_.clear();
        append(firstPiece_, firstIsCData_);
    }
    append(token.text, token.kind == XMLToken::CData);
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
        std::optional<uint64_t> reference;
        if (references_ == ReferenceForm::UID && items.size() == 2)
            reference = referenceIndexOfEntry(items[0].get(), items[1].get());
        if (reference)
            container = KeyedArchiverUID::uidWithValue(*reference);
        else
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
        if (auto number = parseInteger(trimmed(text)))
            value = std::move(*number);
        else
            return failAt(at, "Invalid integer \"" + quotedForMessage(text) + "\"");
        break;
    case Tag::Real:
        if (auto real = parseReal(trimmed(text)))
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
        if (auto seconds = parseDate(trimmed(text)))
            value = Date::dateWithTimeIntervalSinceReferenceDate(*seconds);
        else
            return failAt(at, "Invalid date \"" + quotedForMessage(text) + "\"");
        break;
    case Tag::Data:
        if (!base64::decode(text, bytes_))
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

Ref<Object> readXMLPropertyList(
    std::span<const uint8_t> bytes, Mutability mutability, ReferenceForm references, std::string& error)
{
    const std::string_view document(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const size_t bodyOffset = document.starts_with("\xEF\xBB\xBF"sv) ? 3 : 0;
    return Reader(document, bodyOffset, mutability, references).read(error);
}

} // namespace zon::plist
