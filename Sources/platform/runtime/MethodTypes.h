#pragma once

// Conversions between C++ parameter and result types and the object arguments of a call by
// selector, with the type encoding of each type ('@' object, 'v' void, 'c' BOOL and char, 'i'
// int, 'q' long and long long, 'd' double, ':' selector, '#' class, ...).

#include "platform/runtime/Object.h"

#include <string>
#include <type_traits>

namespace zon {

class Class;

namespace method_types {

// Scalars travel boxed as numbers; these live with the number class.
ZON_EXPORT Ref<Object> boxSigned(long long value, char encoding);
ZON_EXPORT Ref<Object> boxUnsigned(unsigned long long value, char encoding);
ZON_EXPORT Ref<Object> boxDouble(double value, char encoding);
ZON_EXPORT long long unboxSigned(Object* object);
ZON_EXPORT unsigned long long unboxUnsigned(Object* object);
ZON_EXPORT double unboxDouble(Object* object);
ZON_EXPORT Ref<Object> boxSelector(SEL sel);
ZON_EXPORT SEL unboxSelector(Object* object);
// Raises NSInvalidArgumentException: an argument is not of the class the method takes.
[[noreturn]] ZON_EXPORT void raiseArgumentClassMismatch(Object* argument, const Class* expected);

template <class T>
struct Traits;

template <class T>
    requires std::is_base_of_v<Object, T>
struct Traits<T*> {
    static constexpr char encoding = std::is_same_v<T, Class> ? '#' : '@';
    static T* fromObject(Object* object)
    {
        if constexpr (std::is_same_v<T, Object>) {
            return object;
        } else {
            if (object && !object->isKindOfClass(T::staticClass()))
                raiseArgumentClassMismatch(object, T::staticClass());
            return static_cast<T*>(object);
        }
    }
    static Ref<Object> toObject(T* value) { return Ref<Object>(value); }
};
template <class T>
    requires std::is_base_of_v<Object, T>
struct Traits<const T*> : Traits<T*> {
    static Ref<Object> toObject(const T* value) { return Ref<Object>(const_cast<T*>(value)); }
};
template <class T>
struct Traits<Ref<T>> {
    static constexpr char encoding = Traits<T*>::encoding;
    static Ref<T> fromObject(Object* object) { return Ref<T>(Traits<T*>::fromObject(object)); }
    static Ref<Object> toObject(Ref<T> value) { return Ref<Object>(std::move(value)); }
};
template <>
struct Traits<void> {
    static constexpr char encoding = 'v';
};
template <>
struct Traits<SEL> {
    static constexpr char encoding = ':';
    static SEL fromObject(Object* object) { return unboxSelector(object); }
    static Ref<Object> toObject(SEL value) { return boxSelector(value); }
};

template <class T>
constexpr char integerEncoding()
{
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, char> || std::is_same_v<T, signed char>)
        return 'c';
    else if constexpr (std::is_same_v<T, unsigned char>)
        return 'C';
    else if constexpr (sizeof(T) == 2)
        return std::is_signed_v<T> ? 's' : 'S';
    else if constexpr (sizeof(T) == 4)
        return std::is_signed_v<T> ? 'i' : 'I';
    else
        return std::is_signed_v<T> ? 'q' : 'Q';
}

template <class T>
    requires std::is_integral_v<T>
struct Traits<T> {
    static constexpr char encoding = integerEncoding<T>();
    static T fromObject(Object* object)
    {
        if constexpr (std::is_signed_v<T> || std::is_same_v<T, bool>)
            return static_cast<T>(unboxSigned(object));
        else
            return static_cast<T>(unboxUnsigned(object));
    }
    static Ref<Object> toObject(T value)
    {
        if constexpr (std::is_signed_v<T> || std::is_same_v<T, bool>)
            return boxSigned(static_cast<long long>(value), encoding);
        else
            return boxUnsigned(static_cast<unsigned long long>(value), encoding);
    }
};
template <class T>
    requires std::is_floating_point_v<T>
struct Traits<T> {
    static constexpr char encoding = sizeof(T) == sizeof(float) ? 'f' : 'd';
    static T fromObject(Object* object) { return static_cast<T>(unboxDouble(object)); }
    static Ref<Object> toObject(T value) { return boxDouble(static_cast<double>(value), encoding); }
};

// Enumerations (ComparisonResult, ...) travel as their underlying integer.
template <class T>
    requires std::is_enum_v<T>
struct Traits<T> {
    using Underlying = std::underlying_type_t<T>;
    static constexpr char encoding = Traits<Underlying>::encoding;
    static T fromObject(Object* object) { return static_cast<T>(Traits<Underlying>::fromObject(object)); }
    static Ref<Object> toObject(T value) { return Traits<Underlying>::toObject(static_cast<Underlying>(value)); }
};

template <class T>
using Decayed = std::remove_cvref_t<T>;

// The encoding of a method: result, receiver '@', selector ':', then each parameter.
template <class R, class... Params>
std::string encodingOf()
{
    std::string types;
    types += Traits<Decayed<R>>::encoding;
    types += "@:";
    (types.push_back(Traits<Decayed<Params>>::encoding), ...);
    return types;
}

template <size_t Index>
Object* argumentAt(Arguments arguments)
{
    return Index < arguments.size() ? arguments[Index] : nullptr;
}

} // namespace method_types
} // namespace zon
