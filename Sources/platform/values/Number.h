#pragma once

#include "platform/values/ComparisonResult.h"
#include "platform/values/Value.h"

#include <cstdint>
#include <string>

namespace zon {

// A boxed number that remembers the C type it was made from (objCType "c", "C", "s", "S", "i",
// "I", "q", "Q", "f", "d"; long is "q"). Numbers compare by value across types: 1 equals 1.0,
// UINT64_MAX is greater than -1, and doubles compare exactly against 64-bit integers. The
// booleans are two shared immortal instances of the subclass NSCFBoolean (objCType "c");
// numberWithInt(1) is a different object from Number::yes() but equal to it.
//
// Conversions to a narrower type wrap as C integer conversions do; a floating value first
// saturates to the 64-bit range (NaN reads as 0). Immutable and safe to share between threads.
// Run-time class NSNumber, a subclass of NSValue.
class ZON_EXPORT Number : public Value {
    ZON_OBJECT(Number, Value)
public:
    // How the value is held; the encoding says which C type it came from.
    enum class Storage : uint8_t { Signed, Unsigned, Floating };

    // Exports the comparisons that sort descriptors call by selector ("compare:").
    static void exportMethods(Class& cls);

    static Ref<Number> numberWithChar(char value);
    static Ref<Number> numberWithUnsignedChar(unsigned char value);
    static Ref<Number> numberWithShort(short value);
    static Ref<Number> numberWithUnsignedShort(unsigned short value);
    static Ref<Number> numberWithInt(int value);
    static Ref<Number> numberWithUnsignedInt(unsigned int value);
    static Ref<Number> numberWithLong(long value);
    static Ref<Number> numberWithUnsignedLong(unsigned long value);
    static Ref<Number> numberWithLongLong(long long value);
    static Ref<Number> numberWithUnsignedLongLong(unsigned long long value);
    static Ref<Number> numberWithFloat(float value);
    static Ref<Number> numberWithDouble(double value);
    static Ref<Number> numberWithBool(bool value);
    static Ref<Number> numberWithInteger(long value);
    static Ref<Number> numberWithUnsignedInteger(unsigned long value);

    // The shared booleans.
    static Number* yes();
    static Number* no();

    // A number of any encoding: 'c', 'C', 's', 'S', 'i', 'I', 'q', 'Q' (signed kinds take the
    // value modulo their width), 'f', 'd'. Other encodings raise NSInvalidArgumentException.
    static Ref<Number> numberWithSigned(long long value, char encoding);
    static Ref<Number> numberWithUnsigned(unsigned long long value, char encoding);
    static Ref<Number> numberWithFloating(double value, char encoding);

    const char* objCType() const override { return encoding_; }
    void getValue(void* buffer, size_t size) const override;
    Storage storage() const { return storage_; }
    bool isBoolean() const;

    char charValue() const { return static_cast<char>(longLongValue()); }
    unsigned char unsignedCharValue() const { return static_cast<unsigned char>(unsignedLongLongValue()); }
    short shortValue() const { return static_cast<short>(longLongValue()); }
    unsigned short unsignedShortValue() const { return static_cast<unsigned short>(unsignedLongLongValue()); }
    int intValue() const { return static_cast<int>(longLongValue()); }
    unsigned int unsignedIntValue() const { return static_cast<unsigned int>(unsignedLongLongValue()); }
    long longValue() const { return static_cast<long>(longLongValue()); }
    unsigned long unsignedLongValue() const { return static_cast<unsigned long>(unsignedLongLongValue()); }
    long long longLongValue() const;
    unsigned long long unsignedLongLongValue() const;
    float floatValue() const { return static_cast<float>(doubleValue()); }
    double doubleValue() const;
    bool boolValue() const;
    long integerValue() const { return longValue(); }
    unsigned long unsignedIntegerValue() const { return unsignedLongValue(); }
    Ref<String> stringValue() const { return description(); }

    // ---- NSNumber(ZonExplicitSizeExtensions): numbers that keep their width --------------------
    // objCType is "c", "s", "i", "q" for the signed widths and "C", "S", "I", "Q" for the
    // unsigned ones. The initialisers make an instance of Self: a subclass that inherits Number's
    // constructors writes Sub::numberWithInt8<Sub>(value) to get one of its own kind.
    template <class Self = Number> static Ref<Self> initWithInt8(int8_t value) { return makeObject<Self>(static_cast<long long>(value), 'c'); }
    template <class Self = Number> static Ref<Self> initWithInt16(int16_t value) { return makeObject<Self>(static_cast<long long>(value), 's'); }
    template <class Self = Number> static Ref<Self> initWithInt32(int32_t value) { return makeObject<Self>(static_cast<long long>(value), 'i'); }
    template <class Self = Number> static Ref<Self> initWithInt64(int64_t value) { return makeObject<Self>(static_cast<long long>(value), 'q'); }
    template <class Self = Number> static Ref<Self> initWithUnsignedInt8(uint8_t value) { return makeObject<Self>(static_cast<unsigned long long>(value), 'C'); }
    template <class Self = Number> static Ref<Self> initWithUnsignedInt16(uint16_t value) { return makeObject<Self>(static_cast<unsigned long long>(value), 'S'); }
    template <class Self = Number> static Ref<Self> initWithUnsignedInt32(uint32_t value) { return makeObject<Self>(static_cast<unsigned long long>(value), 'I'); }
    template <class Self = Number> static Ref<Self> initWithUnsignedInt64(uint64_t value) { return makeObject<Self>(static_cast<unsigned long long>(value), 'Q'); }
    template <class Self = Number> static Ref<Self> numberWithInt8(int8_t value) { return initWithInt8<Self>(value); }
    template <class Self = Number> static Ref<Self> numberWithInt16(int16_t value) { return initWithInt16<Self>(value); }
    template <class Self = Number> static Ref<Self> numberWithInt32(int32_t value) { return initWithInt32<Self>(value); }
    template <class Self = Number> static Ref<Self> numberWithInt64(int64_t value) { return initWithInt64<Self>(value); }
    template <class Self = Number> static Ref<Self> numberWithUnsignedInt8(uint8_t value) { return initWithUnsignedInt8<Self>(value); }
    template <class Self = Number> static Ref<Self> numberWithUnsignedInt16(uint16_t value) { return initWithUnsignedInt16<Self>(value); }
    template <class Self = Number> static Ref<Self> numberWithUnsignedInt32(uint32_t value) { return initWithUnsignedInt32<Self>(value); }
    template <class Self = Number> static Ref<Self> numberWithUnsignedInt64(uint64_t value) { return initWithUnsignedInt64<Self>(value); }
    int8_t int8Value() const { return static_cast<int8_t>(longLongValue()); }
    int16_t int16Value() const { return static_cast<int16_t>(longLongValue()); }
    int32_t int32Value() const { return static_cast<int32_t>(longLongValue()); }
    int64_t int64Value() const { return static_cast<int64_t>(longLongValue()); }
    uint8_t unsignedInt8Value() const { return static_cast<uint8_t>(unsignedLongLongValue()); }
    uint16_t unsignedInt16Value() const { return static_cast<uint16_t>(unsignedLongLongValue()); }
    uint32_t unsignedInt32Value() const { return static_cast<uint32_t>(unsignedLongLongValue()); }
    uint64_t unsignedInt64Value() const { return static_cast<uint64_t>(unsignedLongLongValue()); }

    // ---- NSNumber(ZonExtensions) ----------------------------------------------------------------
    // A time interval in seconds, kept as a double.
    static Ref<Number> numberWithTimeInterval(double seconds);
    double timeInterval() const { return doubleValue(); }

    // Raises NSInvalidArgumentException for a nil argument.
    ComparisonResult compare(const Number* other) const;
    bool isEqualToNumber(const Number* other) const;

    // Integers in decimal (unsigned kinds as unsigned), floats and doubles in their shortest
    // round-trip form ("1.5", "0.1", "3", "1e+20"), booleans "1" and "0".
    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    size_t hash() const override;

protected:
    Number(long long value, char encoding);
    Number(unsigned long long value, char encoding);
    Number(double value, char encoding);

private:
    union {
        long long signed_;
        unsigned long long unsigned_;
        double floating_;
    };
    Storage storage_;
    char encoding_[2];
};

// The shortest text that reads back as the same double, laid out as printf's %.17g lays it out:
// "1.5", "0.1", "3", "1e+17", "1e-05", "inf", "-inf", "nan".
ZON_EXPORT std::string shortestDoubleText(double value);
// The same for the float that value holds.
ZON_EXPORT std::string shortestFloatText(float value);

} // namespace zon
