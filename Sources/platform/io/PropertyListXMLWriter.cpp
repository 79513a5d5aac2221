#include "platform/io/PropertyListXMLWriterInternal.h"

#include "platform/io/PropertyListSupportInternal.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Base64.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/KeyedArchiverUID.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace zon::plist {

namespace {

using namespace std::string_view_literals;

// The document header. The DOCTYPE is informational: readers (ours included) do not fetch it.
constexpr std::string_view kHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<!DOCTYPE plist PUBLIC \"-//ZonCommon//DTD PLIST 1.0//EN\" "
                                     "\"PropertyList-1.0.dtd\">\n"
                                     "<plist version=\"1.0\">\n"sv;
constexpr std::string_view kFooter = "</plist>\n"sv;

// Base64 lines hold 76 characters at the top level and 8 fewer per level of indentation, down to
// 12 characters from the eighth level on.
constexpr size_t kBase64LineLength = 76;
constexpr size_t kBase64LineShrinkPerLevel = 8;
constexpr size_t kBase64MaxShrinkLevels = 8;

enum class Kind : uint8_t { String, Number, Boolean, Data, Date, Array, Dictionary, UID, Other };

// The run-time classes the writer meets, looked up once; exact matches skip the class-chain walk.
struct Classes {
    Class* string = String::staticClass();
    Class* number = Number::staticClass();
    Class* array = Array::staticClass();
    Class* mutableArray = MutableArray::staticClass();
    Class* dictionary = Dictionary::staticClass();
    Class* mutableDictionary = MutableDictionary::staticClass();
    Class* data = Data::staticClass();
    Class* date = Date::staticClass();
    Class* uid = KeyedArchiverUID::staticClass();
};

Kind kindOf(const Object* object)
{
    static const Classes classes;
    const Class* cls = object->objectClass();
    if (cls == classes.string)
        return Kind::String;
    if (cls == classes.dictionary || cls == classes.mutableDictionary)
        return Kind::Dictionary;
    if (cls == classes.array || cls == classes.mutableArray)
        return Kind::Array;
    if (cls == classes.uid)
        return Kind::UID;
    if (object->isKindOfClass(classes.number))
        return static_cast<const Number*>(object)->isBoolean() ? Kind::Boolean : Kind::Number;
    if (object->isKindOfClass(classes.string))
        return Kind::String;
    if (object->isKindOfClass(classes.date))
        return Kind::Date;
    if (object->isKindOfClass(classes.data))
        return Kind::Data;
    if (object->isKindOfClass(classes.dictionary))
        return Kind::Dictionary;
    if (object->isKindOfClass(classes.array))
        return Kind::Array;
    return Kind::Other;
}

void appendTwoDigits(char*& p, int value)
{
    *p++ = static_cast<char>('0' + value / 10);
    *p++ = static_cast<char>('0' + value % 10);
}

} // namespace

XMLElementWriter::XMLElementWriter(ByteVector& bytes, size_t expectedSize) : bytes_(bytes)
{
    bytes_.resize(expectedSize);
}

void XMLElementWriter::header() { append(kHeader); }

void XMLElementWriter::finish()
{
    append(kFooter);
    bytes_.resize(used_);
}

// Room is made first, then filled through raw pointers.
char* XMLElementWriter::room(size_t count)
{
    if (bytes_.size() - used_ < count)
        bytes_.resize(std::max(bytes_.size() * 2, used_ + count));
    return reinterpret_cast<char*>(bytes_.data()) + used_;
}

void XMLElementWriter::advanceTo(const char* end)
{
    used_ = static_cast<size_t>(end - reinterpret_cast<char*>(bytes_.data()));
}

void XMLElementWriter::append(std::string_view text)
{
    std::memcpy(room(text.size()), text.data(), text.size());
    used_ += text.size();
}

void XMLElementWriter::indent(size_t level)
{
    std::memset(room(level), '\t', level);
    used_ += level;
}

// UTF-8 of UTF-16 units (or of ASCII bytes) with &, < and > escaped and everything else (control
// characters included) as it is; a lone surrogate has no UTF-8 form and becomes U+FFFD.
template <class Unit>
void XMLElementWriter::appendEscapedUnits(const Unit* at, size_t length)
{
    const Unit* const end = at + length;
    // Worst case per unit: "&amp;" (5 bytes); non-ASCII takes at most 3 bytes per unit.
    char* p = room(length * 5);
    while (at < end) {
        const char16_t unit = static_cast<std::make_unsigned_t<Unit>>(*at++);
        if (unit < 0x80) {
            switch (unit) {
            case '&':
                std::memcpy(p, "&amp;", 5);
                p += 5;
                break;
            case '<':
                std::memcpy(p, "&lt;", 4);
                p += 4;
                break;
            case '>':
                std::memcpy(p, "&gt;", 4);
                p += 4;
                break;
            default:
                *p++ = static_cast<char>(unit);
            }
            continue;
        }
        char32_t code = unit;
        if (unit >= 0xD800 && unit <= 0xDFFF) {
            if (unit <= 0xDBFF && at < end && *at >= 0xDC00 && *at <= 0xDFFF)
                code = 0x10000 + ((unit - 0xD800) << 10) + (*at++ - 0xDC00);
            else
                code = 0xFFFD;
        }
        p = utf::encodeUTF8(code, p);
    }
    advanceTo(p);
}

void XMLElementWriter::appendEscaped(const String* text)
{
    if (const char* ascii = text->asciiCharacters())
        appendEscapedUnits(ascii, text->length());
    else
        appendEscapedUnits(text->characters(), text->length());
}

void XMLElementWriter::appendInteger(int64_t value)
{
    char* p = room(24);
    advanceTo(std::to_chars(p, p + 24, value).ptr);
}

void XMLElementWriter::appendReal(double value)
{
    if (value == 0) {
        append(std::signbit(value) ? "-0.0"sv : "0.0"sv);
    } else if (std::isinf(value)) {
        append(value > 0 ? "+infinity"sv : "-infinity"sv);
    } else if (std::isnan(value)) {
        append("nan"sv);
    } else {
        // Exactly printf's %.17g.
        char* p = room(32);
        advanceTo(std::to_chars(p, p + 32, value, std::chars_format::general, 17).ptr);
    }
}

void XMLElementWriter::markup(size_t level, std::string_view text)
{
    indent(level);
    append(text);
}

void XMLElementWriter::key(size_t level, const String* key)
{
    markup(level, "<key>"sv);
    appendEscaped(key);
    append("</key>\n"sv);
}

void XMLElementWriter::string(size_t level, const String* text)
{
    markup(level, "<string>"sv);
    appendEscaped(text);
    append("</string>\n"sv);
}

void XMLElementWriter::number(size_t level, const Number* number)
{
    if (number->isBoolean()) {
        boolean(level, number->boolValue());
        return;
    }
    switch (number->storage()) {
    case Number::Storage::Signed:
        integer(level, number->longLongValue());
        break;
    case Number::Storage::Unsigned: {
        markup(level, "<integer>"sv);
        char* p = room(24);
        advanceTo(std::to_chars(p, p + 24, number->unsignedLongLongValue()).ptr);
        append("</integer>\n"sv);
        break;
    }
    case Number::Storage::Floating:
        real(level, number->doubleValue());
        break;
    }
}

void XMLElementWriter::integer(size_t level, int64_t value)
{
    markup(level, "<integer>"sv);
    appendInteger(value);
    append("</integer>\n"sv);
}

void XMLElementWriter::real(size_t level, double value)
{
    markup(level, "<real>"sv);
    appendReal(value);
    append("</real>\n"sv);
}

void XMLElementWriter::boolean(size_t level, bool value) { markup(level, value ? "<true/>\n"sv : "<false/>\n"sv); }

// Base64 lines hold 76 characters at the top level and 8 fewer per level of indentation, down to
// 12 characters from the eighth level on; each is indented like the tag.
void XMLElementWriter::data(size_t level, std::span<const uint8_t> bytes)
{
    markup(level, "<data>\n"sv);
    const size_t lineLength =
        kBase64LineLength - kBase64LineShrinkPerLevel * std::min(level, kBase64MaxShrinkLevels);
    const size_t bytesPerLine = lineLength / 4 * 3;
    for (size_t start = 0; start < bytes.size(); start += bytesPerLine) {
        const size_t count = std::min(bytesPerLine, bytes.size() - start);
        indent(level);
        char* p = room(lineLength + 1);
        p = base64::encode(bytes.subspan(start, count), p);
        *p++ = '\n';
        advanceTo(p);
    }
    markup(level, "</data>\n"sv);
}

bool XMLElementWriter::date(size_t level, double secondsSinceReferenceDate)
{
    const std::optional<CivilTime> time = civilTimeFromReferenceSeconds(secondsSinceReferenceDate);
    if (!time)
        return false;
    markup(level, "<date>"sv);
    char* p = room(48);
    if (time->year < 0)
        *p++ = '-';
    const uint64_t year = time->year < 0 ? -static_cast<uint64_t>(time->year) : static_cast<uint64_t>(time->year);
    for (uint64_t scale = 1000; scale > 1 && year < scale; scale /= 10)
        *p++ = '0';
    p = std::to_chars(p, p + 24, year).ptr;
    *p++ = '-';
    appendTwoDigits(p, time->month);
    *p++ = '-';
    appendTwoDigits(p, time->day);
    *p++ = 'T';
    appendTwoDigits(p, time->hour);
    *p++ = ':';
    appendTwoDigits(p, time->minute);
    *p++ = ':';
    appendTwoDigits(p, time->second);
    *p++ = 'Z';
    advanceTo(p);
    append("</date>\n"sv);
    return true;
}

void XMLElementWriter::uid(size_t level, uint64_t value)
{
    markup(level, "<dict>\n"sv);
    markup(level + 1, "<key>CF$UID</key>\n"sv);
    markup(level + 1, "<integer>"sv);
    char* p = room(24);
    advanceTo(std::to_chars(p, p + 24, value).ptr);
    append("</integer>\n"sv);
    markup(level, "</dict>\n"sv);
}

namespace {

// A quick estimate of the document's size (text taken as ASCII, numbers at typical lengths), so
// that the output is usually allocated once rather than grown through copies of a large buffer.
// Bounded in depth and in values visited, since a container may hold itself.
size_t estimatedSize(const Object* root)
{
    constexpr size_t kPerValue = 24; // tags, line end, a number's digits
    constexpr size_t kMaxVisits = size_t {1} << 22;
    size_t total = kHeader.size() + kFooter.size();
    std::vector<std::pair<const Object*, size_t>> pending {{root, 0}};
    for (size_t visits = 0; !pending.empty() && visits < kMaxVisits; ++visits) {
        const auto [object, level] = pending.back();
        pending.pop_back();
        total += level + kPerValue;
        switch (kindOf(object)) {
        case Kind::String:
            total += static_cast<const String*>(object)->length();
            break;
        case Kind::UID:
            total += 3 * level + 2 * kPerValue; // three more lines than a plain value
            break;
        case Kind::Data: {
            const size_t characters = static_cast<const Data*>(object)->length() / 3 * 4 + 4;
            total += characters + (characters / 12 + 2) * (level + 1);
            break;
        }
        case Kind::Array:
            if (level < kMaxNestingDepth) {
                for (const Object* item : *static_cast<const Array*>(object))
                    pending.emplace_back(item, level + 1);
            }
            break;
        case Kind::Dictionary:
            if (level < kMaxNestingDepth) {
                for (const auto [key, value] : *static_cast<const Dictionary*>(object)) {
                    const auto* text = dynamicCast<String>(key);
                    total += level + kPerValue + (text ? text->length() : 0);
                    pending.emplace_back(value, level + 1);
                }
            }
            break;
        default:
            break;
        }
    }
    return total;
}

// Writes the containers depth first with an explicit stack of open containers.
class Writer {
public:
    Writer(ByteVector& bytes, size_t expectedSize) : out_(bytes, expectedSize) {}

    bool write(const Object* root, std::string& error)
    {
        if (!root) {
            error = "Property list invalid for format: XML (the property list is nil)";
            return false;
        }
        out_.header();
        if (!writeValue(root, 0, error))
            return false;
        while (!stack_.empty()) {
            Frame& frame = stack_.back();
            const size_t level = stack_.size();
            if (frame.kind == Kind::Array) {
                if (frame.nextItem == frame.endItem) {
                    close("</array>\n"sv, level - 1);
                    continue;
                }
                const Object* item = *frame.nextItem++;
                if (!writeValue(item, level, error))
                    return false;
            } else {
                if (frame.nextEntry == frame.endEntry) {
                    close("</dict>\n"sv, level - 1);
                    continue;
                }
                const auto [key, value] = *frame.nextEntry++;
                if (kindOf(key) != Kind::String) {
                    error = "Property list invalid for format: XML (property list dictionaries may only have keys "
                            "which are strings)";
                    return false;
                }
                out_.key(level, static_cast<const String*>(key));
                if (!writeValue(value, level, error))
                    return false;
            }
        }
        out_.finish();
        return true;
    }

private:
    struct Frame {
        Kind kind;
        const Object* container;
        ObjectIterator nextItem, endItem;
        Dictionary::Iterator nextEntry, endEntry;
    };

    void close(std::string_view tag, size_t level)
    {
        stack_.pop_back();
        out_.markup(level, tag);
    }

    // Writes a value that needs no stack, or the opening tag of a non-empty container (pushed).
    bool writeValue(const Object* value, size_t level, std::string& error)
    {
        switch (kindOf(value)) {
        case Kind::String:
            out_.string(level, static_cast<const String*>(value));
            return true;
        case Kind::Number:
        case Kind::Boolean:
            out_.number(level, static_cast<const Number*>(value));
            return true;
        case Kind::Date:
            if (!out_.date(level, static_cast<const Date*>(value)->timeIntervalSinceReferenceDate())) {
                error = "Property list invalid for format: XML (the date is not finite or out of range)";
                return false;
            }
            return true;
        case Kind::Data:
            out_.data(level, static_cast<const Data*>(value)->span());
            return true;
        case Kind::Array: {
            const auto* array = static_cast<const Array*>(value);
            if (!enter(value, level, error))
                return false;
            if (array->isEmpty()) {
                out_.markup(level, "<array/>\n"sv);
                return true;
            }
            out_.markup(level, "<array>\n"sv);
            stack_.push_back({Kind::Array, value, array->begin(), array->end(), {}, {}});
            return true;
        }
        case Kind::Dictionary: {
            const auto* dictionary = static_cast<const Dictionary*>(value);
            if (!enter(value, level, error))
                return false;
            if (dictionary->count() == 0) {
                out_.markup(level, "<dict/>\n"sv);
                return true;
            }
            out_.markup(level, "<dict>\n"sv);
            stack_.push_back({Kind::Dictionary, value, {}, {}, dictionary->begin(), dictionary->end()});
            return true;
        }
        case Kind::UID:
            out_.uid(level, static_cast<const KeyedArchiverUID*>(value)->value());
            return true;
        case Kind::Other:
            error = "Property list invalid for format: XML (property lists cannot contain objects of type '"
                + value->objectClass()->name() + "')";
            return false;
        }
        return false;
    }

    // A container nested too deeply is refused; a container that holds itself would nest without
    // end, so the depth limit is where cycles are found too.
    bool enter(const Object* container, size_t level, std::string& error)
    {
        if (level < kMaxNestingDepth)
            return true;
        for (const Frame& frame : stack_) {
            if (frame.container == container) {
                error = "Property list invalid for format: XML (a container holds itself)";
                return false;
            }
        }
        error = "Property list invalid for format: XML (containers nested more than "
            + std::to_string(kMaxNestingDepth) + " deep)";
        return false;
    }

    XMLElementWriter out_;
    std::vector<Frame> stack_;
};

} // namespace

bool writeXMLPropertyList(const Object* plist, ByteVector& out, std::string& error)
{
    return Writer(out, plist ? estimatedSize(plist) : 0).write(plist, error);
}

} // namespace zon::plist
