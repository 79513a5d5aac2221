#include "platform/values/Number.h"

#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>

namespace zon {

namespace {

// The two shared booleans; their own class so that type checks can tell them from numbers.
class Boolean final : public Number {
    ZON_OBJECT(Boolean, Number)
public:
    static Boolean* make(bool value)
    {
        auto* boolean = new Boolean(value);
        boolean->makeImmortal();
        return boolean;
    }

private:
    explicit Boolean(bool value) : Number(static_cast<long long>(value), 'c') {}
};

ZON_DEFINE_CLASS(Boolean, "NSCFBoolean")

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

// -1, 0 or 1 as a and b order; NaN sorts before every other value and equals itself.
template <class T>
int order(T a, T b)
{
    return a < b ? -1 : (b < a ? 1 : 0);
}

int compareDoubles(double a, double b)
{
    if (std::isnan(a) || std::isnan(b))
        return std::isnan(a) ? (std::isnan(b) ? 0 : -1) : 1;
    return order(a, b);
}

int compareSignedUnsigned(long long a, unsigned long long b)
{
    return a < 0 ? -1 : order(static_cast<unsigned long long>(a), b);
}

// Exact: the double's integer part is compared as an integer, then its fraction breaks the tie.
int compareDoubleSigned(double a, long long b)
{
    if (std::isnan(a))
        return -1;
    if (a < -kTwoTo63)
        return -1;
    if (a >= kTwoTo63)
        return 1;
    double whole = std::trunc(a);
    if (int byWhole = order(static_cast<long long>(whole), b))
        return byWhole;
    return order(a, whole);
}

int compareDoubleUnsigned(double a, unsigned long long b)
{
    if (std::isnan(a) || a < 0)
        return -1;
    if (a >= kTwoTo64)
        return 1;
    double whole = std::trunc(a);
    if (int byWhole = order(static_cast<unsigned long long>(whole), b))
        return byWhole;
    return order(a, whole);
}

size_t mix(uint64_t bits)
{
    bits ^= bits >> 33;
    bits *= 0xff51afd7ed558ccdULL;
    bits ^= bits >> 33;
    return static_cast<size_t>(bits);
}

bool isSignedEncoding(char encoding) { return std::strchr("csiq", encoding) && encoding; }
bool isUnsignedEncoding(char encoding) { return std::strchr("CSIQ", encoding) && encoding; }

// Keeps a value as the C type of its encoding would hold it.
long long narrowSigned(long long value, char encoding)
{
    switch (encoding) {
    case 'c': return static_cast<signed char>(value);
    case 's': return static_cast<short>(value);
    case 'i': return static_cast<int>(value);
    default: return value;
    }
}

unsigned long long narrowUnsigned(unsigned long long value, char encoding)
{
    switch (encoding) {
    case 'C': return static_cast<unsigned char>(value);
    case 'S': return static_cast<unsigned short>(value);
    case 'I': return static_cast<unsigned int>(value);
    default: return value;
    }
}

[[noreturn]] void raiseBadEncoding(char encoding)
{
    raisePlatformException(NSInvalidArgumentException,
        std::string("*** -[NSNumber initWithBytes:objCType:]: unsupported type encoding '") + encoding + "'");
}

// Lays out the digits and decimal exponent of a shortest representation the way %.17g does:
// fixed notation for exponents from -5 to 16, scientific with at least two exponent digits
// otherwise.
std::string layOutLikeG(bool negative, std::string_view digits, int exponent)
{
    std::string text = negative ? "-" : "";
    const int count = static_cast<int>(digits.size());
    if (exponent < -4 || exponent >= 17) {
        text += digits[0];
        if (count > 1) {
            text += '.';
            text.append(digits.substr(1));
        }
        char tail[16];
        std::snprintf(tail, sizeof tail, "e%c%02d", exponent < 0 ? '-' : '+', std::abs(exponent));
        return text + tail;
    }
    if (exponent < 0) {
        text += "0.";
        text.append(static_cast<size_t>(-exponent - 1), '0');
        text.append(digits);
    } else if (exponent + 1 >= count) {
        text.append(digits);
        text.append(static_cast<size_t>(exponent + 1 - count), '0');
    } else {
        text.append(digits.substr(0, static_cast<size_t>(exponent + 1)));
        text += '.';
        text.append(digits.substr(static_cast<size_t>(exponent + 1)));
    }
    return text;
}

template <class F>
std::string shortestText(F value)
{
    if (std::isnan(value))
        return "nan";
    if (std::isinf(value))
        return value < 0 ? "-inf" : "inf";
    if (value == 0)
        return std::signbit(value) ? "-0" : "0";
    // to_chars gives the shortest scientific form that reads back exactly: "1.5e+00".
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value), std::chars_format::scientific);
    std::string_view text(buffer, static_cast<size_t>(result.ptr - buffer));
    size_t e = text.find('e');
    std::string digits;
    for (char c : text.substr(0, e))
        if (c != '.')
            digits += c;
    int exponent = 0;
    std::from_chars(text.data() + e + 1 + (text[e + 1] == '+'), text.data() + text.size(), exponent);
    return layOutLikeG(std::signbit(value), digits, exponent);
}

} // namespace

ZON_DEFINE_CLASS(Number, "NSNumber")

void Number::exportMethods(Class& cls) { cls.exportMethod("compare:", &Number::compare); }

std::string shortestDoubleText(double value) { return shortestText(value); }
std::string shortestFloatText(float value) { return shortestText(value); }

Number::Number(long long value, char encoding)
    : signed_(narrowSigned(value, encoding)), storage_(Storage::Signed), encoding_ {encoding, 0}
{
}

Number::Number(unsigned long long value, char encoding)
    : unsigned_(narrowUnsigned(value, encoding)), storage_(Storage::Unsigned), encoding_ {encoding, 0}
{
}

Number::Number(double value, char encoding)
    : floating_(encoding == 'f' ? static_cast<double>(static_cast<float>(value)) : value)
    , storage_(Storage::Floating)
    , encoding_ {encoding, 0}
{
}

Ref<Number> Number::numberWithSigned(long long value, char encoding)
{
    if (isSignedEncoding(encoding))
        return makeObject<Number>(value, encoding);
    if (isUnsignedEncoding(encoding))
        return makeObject<Number>(static_cast<unsigned long long>(value), encoding);
    if (encoding == 'f' || encoding == 'd')
        return makeObject<Number>(static_cast<double>(value), encoding);
    raiseBadEncoding(encoding);
}

Ref<Number> Number::numberWithUnsigned(unsigned long long value, char encoding)
{
    if (isSignedEncoding(encoding))
        return makeObject<Number>(static_cast<long long>(value), encoding);
    if (isUnsignedEncoding(encoding))
        return makeObject<Number>(value, encoding);
    if (encoding == 'f' || encoding == 'd')
        return makeObject<Number>(static_cast<double>(value), encoding);
    raiseBadEncoding(encoding);
}

Ref<Number> Number::numberWithFloating(double value, char encoding)
{
    if (encoding == 'f' || encoding == 'd')
        return makeObject<Number>(value, encoding);
    Ref<Number> converted = makeObject<Number>(value, 'd');
    if (isSignedEncoding(encoding))
        return makeObject<Number>(converted->longLongValue(), encoding);
    if (isUnsignedEncoding(encoding))
        return makeObject<Number>(converted->unsignedLongLongValue(), encoding);
    raiseBadEncoding(encoding);
}

Ref<Number> Number::numberWithChar(char value) { return makeObject<Number>(static_cast<long long>(value), 'c'); }
Ref<Number> Number::numberWithUnsignedChar(unsigned char value) { return makeObject<Number>(static_cast<unsigned long long>(value), 'C'); }
Ref<Number> Number::numberWithShort(short value) { return makeObject<Number>(static_cast<long long>(value), 's'); }
Ref<Number> Number::numberWithUnsignedShort(unsigned short value) { return makeObject<Number>(static_cast<unsigned long long>(value), 'S'); }
Ref<Number> Number::numberWithInt(int value) { return makeObject<Number>(static_cast<long long>(value), 'i'); }
Ref<Number> Number::numberWithUnsignedInt(unsigned int value) { return makeObject<Number>(static_cast<unsigned long long>(value), 'I'); }
Ref<Number> Number::numberWithLong(long value) { return makeObject<Number>(static_cast<long long>(value), 'q'); }
Ref<Number> Number::numberWithUnsignedLong(unsigned long value) { return makeObject<Number>(static_cast<unsigned long long>(value), 'Q'); }
Ref<Number> Number::numberWithLongLong(long long value) { return makeObject<Number>(value, 'q'); }
Ref<Number> Number::numberWithUnsignedLongLong(unsigned long long value) { return makeObject<Number>(value, 'Q'); }
Ref<Number> Number::numberWithFloat(float value) { return makeObject<Number>(static_cast<double>(value), 'f'); }
Ref<Number> Number::numberWithDouble(double value) { return makeObject<Number>(value, 'd'); }
Ref<Number> Number::numberWithInteger(long value) { return numberWithLong(value); }
Ref<Number> Number::numberWithUnsignedInteger(unsigned long value) { return numberWithUnsignedLong(value); }
Ref<Number> Number::numberWithBool(bool value) { return value ? yes() : no(); }

Number* Number::yes()
{
    static Boolean* const instance = Boolean::make(true);
    return instance;
}

Number* Number::no()
{
    static Boolean* const instance = Boolean::make(false);
    return instance;
}

bool Number::isBoolean() const { return objectClass() == Boolean::staticClass(); }

void Number::getValue(void* buffer, size_t size) const
{
    // The bytes of the C type the number was made from, in host order.
    union {
        signed char c;
        unsigned char C;
        short s;
        unsigned short S;
        int i;
        unsigned int I;
        long long q;
        unsigned long long Q;
        float f;
        double d;
    } value {};
    size_t length = 0;
    switch (encoding_[0]) {
    case 'c': value.c = static_cast<signed char>(signed_), length = 1; break;
    case 'C': value.C = static_cast<unsigned char>(unsigned_), length = 1; break;
    case 's': value.s = static_cast<short>(signed_), length = 2; break;
    case 'S': value.S = static_cast<unsigned short>(unsigned_), length = 2; break;
    case 'i': value.i = static_cast<int>(signed_), length = 4; break;
    case 'I': value.I = static_cast<unsigned int>(unsigned_), length = 4; break;
    case 'q': value.q = signed_, length = 8; break;
    case 'Q': value.Q = unsigned_, length = 8; break;
    case 'f': value.f = static_cast<float>(floating_), length = 4; break;
    default: value.d = floating_, length = 8; break;
    }
    std::memset(buffer, 0, size);
    std::memcpy(buffer, &value, std::min(size, length));
}

long long Number::longLongValue() const
{
    switch (storage_) {
    case Storage::Signed: return signed_;
    case Storage::Unsigned: return static_cast<long long>(unsigned_);
    case Storage::Floating:
        if (std::isnan(floating_))
            return 0;
        if (floating_ >= kTwoTo63)
            return static_cast<long long>(unsignedLongLongValue());
        return floating_ < -kTwoTo63 ? LLONG_MIN : static_cast<long long>(floating_);
    }
    return 0;
}

unsigned long long Number::unsignedLongLongValue() const
{
    switch (storage_) {
    case Storage::Signed: return static_cast<unsigned long long>(signed_);
    case Storage::Unsigned: return unsigned_;
    case Storage::Floating:
        if (floating_ >= kTwoTo64)
            return ULLONG_MAX;
        if (floating_ >= kTwoTo63)
            return static_cast<unsigned long long>(floating_);
        return static_cast<unsigned long long>(longLongValue());
    }
    return 0;
}

double Number::doubleValue() const
{
    switch (storage_) {
    case Storage::Signed: return static_cast<double>(signed_);
    case Storage::Unsigned: return static_cast<double>(unsigned_);
    case Storage::Floating: return floating_;
    }
    return 0;
}

bool Number::boolValue() const
{
    switch (storage_) {
    case Storage::Signed: return signed_ != 0;
    case Storage::Unsigned: return unsigned_ != 0;
    case Storage::Floating: return floating_ != 0;
    }
    return false;
}

ComparisonResult Number::compare(const Number* other) const
{
    if (!other)
        raisePlatformException(NSInvalidArgumentException, "*** -[NSNumber compare:]: nil argument");
    int result = 0;
    const Storage a = storage_, b = other->storage_;
    if (a == Storage::Floating && b == Storage::Floating)
        result = compareDoubles(floating_, other->floating_);
    else if (a == Storage::Floating)
        result = b == Storage::Signed ? compareDoubleSigned(floating_, other->signed_)
                                      : compareDoubleUnsigned(floating_, other->unsigned_);
    else if (b == Storage::Floating)
        result = -(a == Storage::Signed ? compareDoubleSigned(other->floating_, signed_)
                                        : compareDoubleUnsigned(other->floating_, unsigned_));
    else if (a == Storage::Signed && b == Storage::Signed)
        result = order(signed_, other->signed_);
    else if (a == Storage::Unsigned && b == Storage::Unsigned)
        result = order(unsigned_, other->unsigned_);
    else if (a == Storage::Signed)
        result = compareSignedUnsigned(signed_, other->unsigned_);
    else
        result = -compareSignedUnsigned(other->signed_, unsigned_);
    return static_cast<ComparisonResult>(result);
}

bool Number::isEqualToNumber(const Number* other) const { return other && compare(other) == NSOrderedSame; }

bool Number::isEqual(const Object* other) const
{
    if (other == this)
        return true;
    const Number* number = dynamicCast<Number>(other);
    return number && isEqualToNumber(number);
}

size_t Number::hash() const
{
    // Equal numbers hash alike: every whole value hashes as the integer it is, whatever its type.
    switch (storage_) {
    case Storage::Signed: return mix(static_cast<uint64_t>(signed_));
    case Storage::Unsigned: return mix(unsigned_);
    case Storage::Floating:
        if (std::isnan(floating_))
            return mix(0x7ff8000000000000ULL);
        if (floating_ == std::trunc(floating_) && floating_ >= -kTwoTo63 && floating_ < kTwoTo64)
            return mix(floating_ < 0 ? static_cast<uint64_t>(static_cast<long long>(floating_))
                                     : static_cast<uint64_t>(floating_));
        uint64_t bits;
        std::memcpy(&bits, &floating_, sizeof bits);
        return mix(bits);
    }
    return 0;
}

Ref<String> Number::description() const
{
    char text[32];
    switch (storage_) {
    case Storage::Signed: std::snprintf(text, sizeof text, "%lld", signed_); break;
    case Storage::Unsigned: std::snprintf(text, sizeof text, "%llu", unsigned_); break;
    case Storage::Floating:
        return String::stringWithUTF8String(
            encoding_[0] == 'f' ? shortestFloatText(static_cast<float>(floating_)) : shortestDoubleText(floating_));
    }
    return String::stringWithUTF8String(text);
}

} // namespace zon
