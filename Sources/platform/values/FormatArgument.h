#pragma once

// The arguments of the printf-style formatting engine. A variadic template captures each
// argument into a small tagged FormatArgument; the engine itself (Format.h) is not a template.
//
// Captured kinds: signed and unsigned integers with their width (bool, char, enums included),
// double (float widens), long double (by address: it lives for the duration of the call),
// UTF-8 text (const char*, std::string, std::string_view), UTF-16 text (const char16_t*,
// std::u16string, std::u16string_view), objects (T* or Ref<T> of any Object class; nil and
// nullptr allowed), selectors, and any other pointer as a raw address.

#include "platform/runtime/Object.h"
#include "platform/runtime/Selector.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace zon {

struct FormatArgument {
    enum class Kind : uint8_t { Signed, Unsigned, Double, LongDouble, UTF8, UTF16, Object, Pointer, Selector };

    struct UTF8Text {
        const char* data; // null for a null C string
        size_t length;
    };
    struct UTF16Text {
        const char16_t* data; // null for a null C string
        size_t length;
    };

    Kind kind;
    uint8_t size; // bytes of an integer's type
    union {
        long long signedValue;
        unsigned long long unsignedValue;
        double doubleValue;
        const long double* longDoubleValue;
        UTF8Text utf8;
        UTF16Text utf16;
        const Object* object;
        const void* pointer;
        SEL selector;
    };
};

namespace detail {

template <class T>
inline constexpr bool kUnsupportedFormatArgument = false;

template <class T>
constexpr FormatArgument captureFormatArgument(const T& value) noexcept
{
    using D = std::decay_t<T>;
    FormatArgument argument {};
    if constexpr (std::is_enum_v<D>) {
        return captureFormatArgument(static_cast<std::underlying_type_t<D>>(value));
    } else if constexpr (std::is_integral_v<D>) {
        argument.size = sizeof(D);
        if constexpr (std::is_signed_v<D>) {
            argument.kind = FormatArgument::Kind::Signed;
            argument.signedValue = value;
        } else {
            argument.kind = FormatArgument::Kind::Unsigned;
            argument.unsignedValue = value;
        }
    } else if constexpr (std::is_same_v<D, long double>) {
        argument.kind = FormatArgument::Kind::LongDouble;
        argument.longDoubleValue = &value;
    } else if constexpr (std::is_floating_point_v<D>) {
        argument.kind = FormatArgument::Kind::Double;
        argument.doubleValue = value;
    } else if constexpr (std::is_null_pointer_v<D>) {
        argument.kind = FormatArgument::Kind::Object;
        argument.object = nullptr;
    } else if constexpr (std::is_same_v<D, const char*> || std::is_same_v<D, char*>) {
        const char* text = value;
        argument.kind = FormatArgument::Kind::UTF8;
        argument.utf8 = {text, text ? std::strlen(text) : 0};
    } else if constexpr (std::is_same_v<D, const char16_t*> || std::is_same_v<D, char16_t*>) {
        const char16_t* text = value;
        argument.kind = FormatArgument::Kind::UTF16;
        argument.utf16 = {text, text ? std::char_traits<char16_t>::length(text) : 0};
    } else if constexpr (std::is_same_v<D, SEL>) {
        argument.kind = FormatArgument::Kind::Selector;
        argument.selector = value;
    } else if constexpr (std::is_pointer_v<D> && std::is_base_of_v<Object, std::remove_cv_t<std::remove_pointer_t<D>>>) {
        argument.kind = FormatArgument::Kind::Object;
        argument.object = value;
    } else if constexpr (std::is_pointer_v<D>) {
        argument.kind = FormatArgument::Kind::Pointer;
        if constexpr (std::is_function_v<std::remove_pointer_t<D>>)
            argument.pointer = reinterpret_cast<const void*>(value);
        else
            argument.pointer = static_cast<const void*>(value);
    } else if constexpr (std::is_convertible_v<const D&, const Object*>) { // Ref<T>
        argument.kind = FormatArgument::Kind::Object;
        argument.object = static_cast<const Object*>(value);
    } else if constexpr (std::is_convertible_v<const D&, std::string_view>) {
        const std::string_view text = value;
        argument.kind = FormatArgument::Kind::UTF8;
        argument.utf8 = {text.data(), text.size()};
    } else if constexpr (std::is_convertible_v<const D&, std::u16string_view>) {
        const std::u16string_view text = value;
        argument.kind = FormatArgument::Kind::UTF16;
        argument.utf16 = {text.data(), text.size()};
    } else {
        static_assert(kUnsupportedFormatArgument<D>, "this type cannot be a format argument");
    }
    return argument;
}

} // namespace detail

// Captures the arguments of one formatting call. The result borrows strings, objects and long
// doubles from the arguments: use it within the full expression or the caller's scope.
template <class... Args>
std::array<FormatArgument, sizeof...(Args)> makeFormatArguments(const Args&... args) noexcept
{
    return {detail::captureFormatArgument(args)...};
}

} // namespace zon
