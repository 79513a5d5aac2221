#include "extensions/NSStringChompFastEnumerator.h"

#include "platform/runtime/Class.h"

#include "platform/values/StringInternal.h"
#include "platform/values/UTF.h"

#include <cstring>

namespace zon {

ZON_DEFINE_CLASS(NSStringChompFastEnumerator, "NSStringChompFastEnumerator")

Ref<NSStringChompFastEnumerator> NSStringChompFastEnumerator::enumeratorWithString_recordSeparator(
    const String* text, char16_t separator)
{
    Ref<String> copy = text ? staticRefCast<String>(text->copy()) : String::string();
    return makeObject<NSStringChompFastEnumerator>(std::move(copy), separator);
}

Ref<String> NSStringChompFastEnumerator::nextRecord(FastEnumerationState* state) const
{
    const size_t length = string_->length();
    const size_t start = state->state;
    if (start >= length)
        return nullptr;
    size_t end;
    // Text kept as ASCII bytes is scanned and cut as bytes, without making its UTF-16 form.
    if (const char* ascii = string_->asciiCharacters()) {
        if (separator_ < 128) {
            const void* found = std::memchr(ascii + start, separator_, length - start);
            end = found ? size_t(static_cast<const char*>(found) - ascii) : length;
        } else {
            end = length;
        }
        state->state = end < length ? end + 1 : length;
        return StringBuilder::build(end - start, [&](char16_t* out) {
            utf::widenASCII(std::string_view(ascii + start, end - start), out);
        });
    }
    const std::u16string_view units = string_->view();
    end = units.find(separator_, start);
    if (end == std::u16string_view::npos)
        end = length;
    state->state = end < length ? end + 1 : length;
    return String::stringWithCharacters(units.substr(start, end - start));
}

unsigned long NSStringChompFastEnumerator::countByEnumeratingWithState_objects_count(
    FastEnumerationState* state, Object** buffer, unsigned long count)
{
    if (!state->mutationsPtr)
        state->mutationsPtr = state->extra;
    state->itemsPtr = buffer;
    if (!count)
        return 0;
    Ref<String> record = nextRecord(state);
    if (!record)
        return 0;
    buffer[0] = record.leakRef()->autorelease();
    return 1;
}

Ref<Object> NSStringChompFastEnumerator::nextObject() { return nextRecord(&state_); }

} // namespace zon
