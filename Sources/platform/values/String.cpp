#include "platform/values/String.h"

#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/UTF.h"

#include <cstring>
#include <new>

namespace zon {

ZON_DEFINE_CLASS(String, "NSString")

String::~String() = default;

Ref<String> String::allocate(size_t length, char16_t** units)
{
    void* block = ::operator new(sizeof(String) + length * sizeof(char16_t));
    auto* storage = reinterpret_cast<char16_t*>(static_cast<char*>(block) + sizeof(String));
    *units = storage;
    return adoptRef(new (block) String(storage, length));
}

Ref<String> String::string() { return Ref<String>(ZSTR("")); }

Ref<String> String::stringWithCharacters(const char16_t* units, size_t length)
{
    char16_t* storage;
    Ref<String> result = allocate(length, &storage);
    if (length)
        std::memcpy(storage, units, length * sizeof(char16_t));
    return result;
}

Ref<String> String::stringWithUTF8String(std::string_view utf8)
{
    // UTF-16 never needs more units than UTF-8 has bytes; shrink-free: the block keeps the slack
    // only when the text is not pure ASCII.
    const size_t units = utf::utf16LengthOfUTF8(utf8);
    if (units == utf::kInvalid)
        return nullptr;
    char16_t* storage;
    Ref<String> result = allocate(units, &storage);
    utf::convertValidUTF8ToUTF16(utf8, storage);
    return result;
}

char16_t String::characterAtIndex(size_t index) const
{
    if (index >= length_) {
        raisePlatformException(NSRangeException,
            "-[NSString characterAtIndex:]: Range or index out of bounds");
    }
    return units_[index];
}

std::string String::UTF8String() const { return utf::utf16ToUTF8(view()); }

Ref<String> String::description() const { return Ref<String>(const_cast<String*>(this)); }

bool String::isEqualToString(const String* other) const { return other && view() == other->view(); }

bool String::isEqual(const Object* other) const
{
    if (this == other)
        return true;
    auto* text = dynamicCast<String>(other);
    return text && isEqualToString(text);
}

size_t String::hash() const { return std::hash<std::u16string_view>()(view()); }

Ref<Object> String::copy() const
{
    if (isMemberOfClass(String::staticClass()))
        return Ref<Object>(const_cast<String*>(this));
    return stringWithCharacters(units_, length_);
}

// Replaced by the mutable string's unit.
Ref<Object> String::mutableCopy() const { return copy(); }

} // namespace zon
