#include "platform/values/MutableString.h"

#include "platform/runtime/Class.h"
#include "platform/values/StringInternal.h"
#include "platform/values/UTF.h"

namespace zon {

ZON_DEFINE_CLASS(MutableString, "NSMutableString")

MutableString::MutableString(std::u16string units) : String(nullptr, 0), buffer_(std::move(units)) { didChange(); }

MutableString::~MutableString() = default;

Ref<MutableString> MutableString::string() { return makeObject<MutableString>(std::u16string()); }

Ref<MutableString> MutableString::stringWithCapacity(size_t capacity)
{
    std::u16string buffer;
    buffer.reserve(capacity);
    return makeObject<MutableString>(std::move(buffer));
}

Ref<MutableString> MutableString::stringWithString(const String* text)
{
    return text ? stringWithCharacters(text->view()) : nullptr;
}

Ref<MutableString> MutableString::stringWithCharacters(const char16_t* units, size_t length)
{
    return makeObject<MutableString>(std::u16string(units, length));
}

Ref<MutableString> MutableString::stringWithUTF8String(std::string_view utf8)
{
    return initWithBytes_length_encoding(utf8.data(), utf8.size(), NSUTF8StringEncoding);
}

Ref<MutableString> MutableString::initWithBytes_length_encoding(const void* bytes, size_t length,
    StringEncoding encoding)
{
    const std::string_view input(static_cast<const char*>(bytes), length);
    const size_t units = text::decodedLength(input, encoding);
    if (units == utf::kInvalid)
        return nullptr;
    std::u16string buffer(units, u'\0');
    text::decodeInto(input, encoding, buffer.data());
    return makeObject<MutableString>(std::move(buffer));
}

std::u16string_view MutableString::argumentUnits(const String* text, std::u16string& holder) const
{
    if (!text)
        return {};
    if (text != this)
        return text->view();
    holder = buffer_;
    return holder;
}

void MutableString::appendString(const String* text)
{
    std::u16string holder;
    buffer_.append(argumentUnits(text, holder));
    didChange();
}

void MutableString::appendCharacters(const char16_t* units, size_t length)
{
    if (!length)
        return;
    // The units may point into this string's own buffer.
    if (units >= buffer_.data() && units < buffer_.data() + buffer_.size()) {
        const std::u16string copy(units, length);
        buffer_.append(copy);
    } else {
        buffer_.append(units, length);
    }
    didChange();
}

void MutableString::insertString_atIndex(const String* text, size_t index)
{
    text::checkIndex(index, buffer_.size(), "insertString:atIndex:");
    std::u16string holder;
    buffer_.insert(index, argumentUnits(text, holder));
    didChange();
}

void MutableString::deleteCharactersInRange(Range range)
{
    text::checkRange(range, buffer_.size(), "deleteCharactersInRange:");
    buffer_.erase(range.location, range.length);
    didChange();
}

void MutableString::replaceCharactersInRange_withString(Range range, const String* text)
{
    text::checkRange(range, buffer_.size(), "replaceCharactersInRange:withString:");
    std::u16string holder;
    buffer_.replace(range.location, range.length, argumentUnits(text, holder));
    didChange();
}

void MutableString::setString(const String* text)
{
    if (text == this)
        return;
    buffer_.assign(text ? text->view() : std::u16string_view {});
    didChange();
}

size_t MutableString::replaceOccurrencesOfString_withString_options_range(const String* target,
    const String* replacement, StringCompareOptions options, Range range)
{
    text::checkRange(range, buffer_.size(), "replaceOccurrencesOfString:withString:options:range:");
    const std::vector<Range> matches = text::findOccurrences(this, target, options, range);
    std::u16string holder;
    const std::u16string_view with = argumentUnits(replacement, holder);
    // From the back, so that the earlier locations stay valid.
    for (auto match = matches.rbegin(); match != matches.rend(); ++match)
        buffer_.replace(match->location, match->length, with);
    didChange();
    return matches.size();
}

} // namespace zon
