#pragma once

#include "platform/runtime/Object.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace zon {

// An immutable string of UTF-16 code units. Lengths, indexes and ranges count code units, as the
// library's algorithms expect; lone surrogates are kept as they are. Run-time class NSString.
//
// Text comes in as UTF-8 (strictly checked: invalid bytes answer nil), Latin-1 or UTF-16 in
// either byte order, and leaves as UTF-8 (lone surrogates become U+FFFD there).
class ZON_EXPORT String : public Object {
    ZON_OBJECT(String, Object)
public:
    static Ref<String> string();
    static Ref<String> stringWithCharacters(const char16_t* units, size_t length);
    static Ref<String> stringWithCharacters(std::u16string_view units)
    {
        return stringWithCharacters(units.data(), units.size());
    }
    // Nil when the bytes are not valid UTF-8.
    static Ref<String> stringWithUTF8String(std::string_view utf8);

    size_t length() const { return length_; }
    const char16_t* characters() const { return units_; }
    std::u16string_view view() const { return {units_, length_}; }
    // Raises NSRangeException past the end.
    char16_t characterAtIndex(size_t index) const;

    std::string UTF8String() const;

    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<Object> copy() const override;
    Ref<Object> mutableCopy() const override;

    bool isEqualToString(const String* other) const;

    // Frees tail-allocated strings (the storage lives in the same block as the object).
    static void operator delete(void* pointer) { ::operator delete(pointer); }

protected:
    constexpr String(ImmortalTag tag, const char16_t* units, size_t length) noexcept
        : Object(tag), units_(units), length_(length)
    {
    }
    String(const char16_t* units, size_t length) noexcept : units_(units), length_(length) {}
    ~String() override;

    // Mutable subclasses keep these pointing at their own storage.
    const char16_t* units_;
    size_t length_;

private:
    // Makes a string whose length units follow the object in one allocation; the caller fills them.
    static Ref<String> allocate(size_t length, char16_t** units);
    friend class StringBuilder;
};

// A string made at compile time from a u"" literal; immortal, so it is safe in any static.
class ZON_EXPORT ConstantString final : public String {
public:
    template <size_t N>
    constexpr ConstantString(const char16_t (&literal)[N]) noexcept
        : String(ImmortalTag {}, literal, N - 1)
    {
    }
};

} // namespace zon

// A String* constant for a literal, made at compile time: ZSTR("ZonErrorDomain").
#define ZSTR(literal)                                                                              \
    ([]() -> ::zon::String* {                                                                      \
        static constinit ::zon::ConstantString zonConstant_ {u"" literal};                        \
        return &zonConstant_;                                                                      \
    }())

// Defines an exported String* constant in a .cpp: ZON_STRING_CONSTANT(TXZonErrorDomain, "ZonErrorDomain").
#define ZON_STRING_CONSTANT(name, literal)                                                         \
    namespace {                                                                                    \
    constinit ::zon::ConstantString ZON_CONCAT(name, _storage) {u"" literal};                     \
    }                                                                                              \
    ::zon::String* const name = &ZON_CONCAT(name, _storage)
