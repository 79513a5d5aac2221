#pragma once

#include "platform/runtime/Object.h"

namespace zon {

class String;

// The keyed coder that an object's exported encodeWithCoder: ("v@:@") and initWithCoder: ("@@:@")
// receive (run-time class NSCoder). An object archives itself by encoding its values under keys
// of its choosing; it is read back by making an instance of its class with the class's default
// factory and sending it initWithCoder:, which answers the object to use (itself, another object,
// or nil for a failure). Property-list values (strings, numbers, data, dates, arrays,
// dictionaries, sets, the null marker) archive themselves.
//
// Scalars (booleans, integers, reals) are kept as numbers in the object's own record rather than
// as objects of their own; decoding a key that is absent, or holds no number, answers 0 / false.
//
// This base class holds no values: every encode raises NSInvalidArgumentException and every
// decode answers nil or 0. The keyed archiver and unarchiver are its subclasses.
class ZON_EXPORT Coder : public Object {
    ZON_OBJECT(Coder, Object)
public:
    virtual bool allowsKeyedCoding() const { return true; }

    virtual void encodeObject_forKey(Object* object, String* key);
    virtual Ref<Object> decodeObjectForKey(String* key);
    virtual bool containsValueForKey(String* key) const;

    virtual void encodeBool_forKey(bool value, String* key);
    virtual void encodeInteger_forKey(long value, String* key);
    virtual void encodeDouble_forKey(double value, String* key);
    virtual bool decodeBoolForKey(String* key);
    virtual long decodeIntegerForKey(String* key);
    virtual double decodeDoubleForKey(String* key);

protected:
    Coder() = default;
};

// The codes of keyed-archive errors in NSCocoaErrorDomain: an archive that cannot be read (malformed,
// refused, or failed while decoding), and an object graph that cannot be archived.
inline constexpr long NSCoderReadCorruptError = 4864;
inline constexpr long NSCoderInvalidValueError = 4866;

// Whether the keyed archiver can write object: a property-list value, or an object whose class
// exports encodeWithCoder:. Nil cannot be archived by itself.
ZON_EXPORT bool supportsKeyedArchiving(const Object* object);

} // namespace zon
