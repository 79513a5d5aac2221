#include "platform/values/String.h"

#include "platform/runtime/Class.h"
#include "platform/values/CharacterSet.h"
#include "platform/values/Exception.h"
#include "platform/values/MutableString.h"
#include "platform/values/StringInternal.h"
#include "platform/values/UTF.h"

#include <cstring>
#include <memory>
#include <new>
#include <ostream>

namespace zon {

ZON_DEFINE_CLASS(String, "NSString")

void String::exportMethods(Class& cls)
{
    cls.exportMethod("compare:", &String::compare);
    cls.exportMethod("caseInsensitiveCompare:", &String::caseInsensitiveCompare);
}

// The flag shares the word of the reference count, so keeping ASCII costs no space.
static_assert(sizeof(String) == 32);

String::~String()
{
    if (asciiForm_ == ASCIIForm::None)
        return;
    ::operator delete(const_cast<char16_t*>(units_.load(std::memory_order_relaxed)));
    if (asciiForm_ == ASCIIForm::InOwner)
        borrowedASCII()->owner->release();
}

Ref<String> String::allocate(size_t length, char16_t** units)
{
    void* block = ::operator new(sizeof(String) + length * sizeof(char16_t));
    auto* storage = reinterpret_cast<char16_t*>(static_cast<char*>(block) + sizeof(String));
    *units = storage;
    return adoptRef(new (block) String(storage, length));
}

Ref<String> String::allocateASCII(size_t length, char** bytes)
{
    void* block = ::operator new(sizeof(String) + length);
    *bytes = static_cast<char*>(block) + sizeof(String);
    String* text = new (block) String(nullptr, length);
    text->asciiForm_ = ASCIIForm::AfterObject;
    return adoptRef(text);
}

Ref<String> String::stringBorrowingASCII(std::string_view bytes, const Object* owner)
{
    if (!utf::isASCII(bytes))
        return nullptr;
    void* block = ::operator new(sizeof(String) + sizeof(BorrowedASCII));
    String* text = new (block) String(nullptr, bytes.size());
    text->asciiForm_ = ASCIIForm::InOwner;
    owner->retain();
    new (static_cast<char*>(block) + sizeof(String)) BorrowedASCII {bytes.data(), owner};
    return adoptRef(text);
}

const char16_t* String::widenASCII() const
{
    auto* units = static_cast<char16_t*>(::operator new(length_ * sizeof(char16_t)));
    utf::widenASCII({asciiCharacters(), length_}, units);
    // Threads that widen at the same moment race to publish; the losers free their copies.
    const char16_t* published = nullptr;
    if (units_.compare_exchange_strong(published, units, std::memory_order_acq_rel, std::memory_order_acquire))
        return units;
    ::operator delete(units);
    return published;
}

Ref<String> String::string() { return Ref<String>(ZSTR("")); }

Ref<String> String::stringWithCharacters(const char16_t* units, size_t length)
{
    return StringBuilder::build(length, [&](char16_t* storage) {
        if (length)
            std::memcpy(storage, units, length * sizeof(char16_t));
    });
}

Ref<String> String::stringWithUTF8String(std::string_view utf8)
{
    // Long ASCII text is kept as it came, checked and copied in one pass. Text that turns out not
    // to be ASCII has cost the copy up to its first non-ASCII byte, at most one more pass at
    // copying speed before the decoding below.
    if (utf8.size() >= kASCIIFormMinLength) {
        char* bytes;
        Ref<String> ascii = allocateASCII(utf8.size(), &bytes);
        if (utf::copyIfASCII(utf8, bytes))
            return ascii;
    }
    // One pass that checks and decodes, then a copy into an exactly sized string when the text
    // did not fill its room: cheaper than counting first, and no slack is kept. Short text
    // decodes on the stack. Long text decodes straight into a string of one unit per byte, the
    // most it can need and exactly what ASCII text needs, so that ASCII takes no copy at all.
    constexpr size_t kStackUnits = 512;
    if (utf8.size() <= kStackUnits) {
        char16_t scratch[kStackUnits];
        const size_t units = utf::convertUTF8ToUTF16(utf8, scratch);
        return units == utf::kInvalid ? nullptr : stringWithCharacters(scratch, units);
    }
    size_t units = 0;
    Ref<String> decoded
        = StringBuilder::build(utf8.size(), [&](char16_t* storage) { units = utf::convertUTF8ToUTF16(utf8, storage); });
    if (units == utf::kInvalid)
        return nullptr;
    return units == utf8.size() ? decoded : stringWithCharacters(decoded->characters(), units);
}

Ref<String> String::stringWithString(const String* text)
{
    if (!text)
        return nullptr;
    if (const char* ascii = text->asciiCharacters()) {
        // Known to be ASCII: copied without being checked again.
        char* bytes;
        Ref<String> copy = allocateASCII(text->length_, &bytes);
        std::memcpy(bytes, ascii, text->length_);
        return copy;
    }
    return stringWithCharacters(text->characters(), text->length_);
}

char16_t String::characterAtIndex(size_t index) const
{
    if (index >= length_) {
        raisePlatformException(NSRangeException,
            "-[NSString characterAtIndex:]: Range or index out of bounds");
    }
    return characters()[index];
}

std::string String::UTF8String() const
{
    if (const char* ascii = asciiCharacters())
        return std::string(ascii, length_);
    return utf::utf16ToUTF8(view());
}

Ref<String> String::description() const { return Ref<String>(const_cast<String*>(this)); }

bool String::isEqualToString(const String* other) const
{
    if (!other || other->length_ != length_)
        return false;
    const char* ascii = asciiCharacters();
    const char* otherASCII = other->asciiCharacters();
    if (ascii && otherASCII)
        return std::memcmp(ascii, otherASCII, length_) == 0;
    if (ascii || otherASCII) // compared unit by unit, without making the UTF-16 form
        return utf::equalsASCII(ascii ? other->view() : view(), ascii ? ascii : otherASCII);
    return view() == other->view();
}

bool String::isEqual(const Object* other) const
{
    if (this == other)
        return true;
    auto* text = dynamicCast<String>(other);
    return text && isEqualToString(text);
}

// Contents only, so a string and a mutable string with the same units hash alike.
size_t String::hash() const { return std::hash<std::u16string_view>()(view()); }

Ref<Object> String::copy() const
{
    if (!isKindOfClass(MutableString::staticClass()))
        return Ref<Object>(const_cast<String*>(this));
    return stringWithString(this);
}

Ref<String> String::immutableSelf() const { return staticRefCast<String>(copy()); }

Ref<Object> String::mutableCopy() const { return MutableString::stringWithString(this); }

// MARK: Substrings and building

namespace text {

void checkIndex(size_t index, size_t length, const char* operation)
{
    if (index > length) {
        raisePlatformException(NSRangeException,
            "-[NSString " + std::string(operation) + "]: Index " + std::to_string(index)
                + " out of bounds; string length " + std::to_string(length));
    }
}

void checkRange(Range range, size_t length, const char* operation)
{
    if (range.location > length || range.length > length - range.location) {
        raisePlatformException(NSRangeException,
            "-[NSString " + std::string(operation) + "]: Range {" + std::to_string(range.location) + ", "
                + std::to_string(range.length) + "} out of bounds; string length " + std::to_string(length));
    }
}

} // namespace text

Ref<String> String::substringFromIndex(size_t from) const
{
    text::checkIndex(from, length_, "substringFromIndex:");
    return StringBuilder::fromView(view().substr(from));
}

Ref<String> String::substringToIndex(size_t to) const
{
    text::checkIndex(to, length_, "substringToIndex:");
    return StringBuilder::fromView(view().substr(0, to));
}

Ref<String> String::substringWithRange(Range range) const
{
    text::checkRange(range, length_, "substringWithRange:");
    return StringBuilder::fromView(view().substr(range.location, range.length));
}

Ref<String> String::stringByAppendingString(const String* tail) const
{
    const size_t tailLength = tail ? tail->length_ : 0;
    return StringBuilder::build(length_ + tailLength, [&](char16_t* out) {
        std::copy_n(characters(), length_, out);
        if (tailLength)
            std::copy_n(tail->characters(), tailLength, out + length_);
    });
}

Ref<String> String::stringByReplacingCharactersInRange_withString(Range range, const String* replacement) const
{
    text::checkRange(range, length_, "stringByReplacingCharactersInRange:withString:");
    std::u16string_view with = replacement ? replacement->view() : std::u16string_view {};
    return StringBuilder::build(length_ - range.length + with.size(), [&](char16_t* out) {
        const char16_t* units = characters();
        out = std::copy_n(units, range.location, out);
        out = std::copy(with.begin(), with.end(), out);
        std::copy(units + range.end(), units + length_, out);
    });
}

std::vector<Range> text::findOccurrences(const String* text, const String* target, StringCompareOptions options,
    Range range)
{
    std::vector<Range> matches;
    if (!target || !target->length())
        return matches;
    if (options & NSAnchoredSearch) {
        const Range found = text->rangeOfString_options_range(target, options, range);
        if (found.location != NSNotFound)
            matches.push_back(found);
        return matches;
    }
    // Front to back whatever the options say, so that matches never overlap.
    for (Range rest = range;;) {
        const Range found = text->rangeOfString_options_range(target, options & ~NSBackwardsSearch, rest);
        if (found.location == NSNotFound)
            return matches;
        matches.push_back(found);
        rest = {found.end(), range.end() - found.end()};
    }
}

Ref<String> String::stringByReplacingOccurrencesOfString_withString_options_range(const String* target,
    const String* replacement, StringCompareOptions options, Range range) const
{
    text::checkRange(range, length_, "stringByReplacingOccurrencesOfString:withString:options:range:");
    const std::vector<Range> matches = text::findOccurrences(this, target, options, range);
    if (matches.empty())
        return immutableSelf();
    const std::u16string_view with = replacement ? replacement->view() : std::u16string_view {};
    std::u16string out;
    size_t copied = 0;
    for (const Range& match : matches) {
        out.append(view().substr(copied, match.location - copied)).append(with);
        copied = match.end();
    }
    out.append(view().substr(copied));
    return StringBuilder::fromView(out);
}

std::vector<Ref<String>> String::componentsSeparatedByString(const String* separator) const
{
    std::vector<Ref<String>> pieces;
    if (!separator || !separator->length_) {
        pieces.push_back(immutableSelf());
        return pieces;
    }
    const std::u16string_view text = view();
    size_t start = 0;
    for (size_t found; (found = text.find(separator->view(), start)) != text.npos; start = found + separator->length_)
        pieces.push_back(StringBuilder::fromView(text.substr(start, found - start)));
    pieces.push_back(StringBuilder::fromView(text.substr(start)));
    return pieces;
}

std::vector<Ref<String>> String::componentsSeparatedByCharactersInSet(const CharacterSet* set) const
{
    std::vector<Ref<String>> pieces;
    const std::u16string_view text = view();
    size_t start = 0;
    for (size_t i = 0, units; i < text.size(); i += units) {
        const char32_t c = text::codePointAt(text, i, &units);
        if (set && set->longCharacterIsMember(c)) {
            pieces.push_back(StringBuilder::fromView(text.substr(start, i - start)));
            start = i + units;
        }
    }
    pieces.push_back(StringBuilder::fromView(text.substr(start)));
    return pieces;
}

Ref<String> String::stringByTrimmingCharactersInSet(const CharacterSet* set) const
{
    if (!set)
        return immutableSelf();
    const std::u16string_view text = view();
    size_t start = 0, end = text.size(), units;
    while (start < end && set->longCharacterIsMember(text::codePointAt(text, start, &units)))
        start += units;
    while (end > start && set->longCharacterIsMember(text::codePointBefore(text, end, &units)))
        end -= units;
    if (start == 0 && end == text.size())
        return immutableSelf();
    return StringBuilder::fromView(text.substr(start, end - start));
}

std::ostream& operator<<(std::ostream& stream, const String* text)
{
    return text ? stream << text->UTF8String() : stream << "(null)";
}

} // namespace zon
