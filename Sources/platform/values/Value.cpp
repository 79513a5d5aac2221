#include "platform/values/Value.h"

#include "platform/runtime/Class.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string_view>

namespace zon {

namespace {

constexpr const char* kPointEncoding = "{_NSPoint=ff}";
constexpr const char* kSizeEncoding = "{_NSSize=ff}";
constexpr const char* kRangeEncoding = "{_NSRange=II}";
constexpr const char* kRectEncoding = "{_NSRect={_NSPoint=ff}{_NSSize=ff}}";

// The value classes' one concrete storage: up to a rectangle's bytes and a static encoding.
// It answers the run-time class NSValue itself, as callers check for that class.
class BoxedValue final : public Value {
public:
    template <class T>
    static Ref<Value> make(const T& value, const char* encoding)
    {
        static_assert(sizeof(T) <= sizeof(Rect) && std::is_trivially_copyable_v<T>);
        return makeObject<BoxedValue>(&value, sizeof(T), encoding);
    }

    Class* objectClass() const override { return Value::staticClass(); }
    const char* objCType() const override { return encoding_; }
    void getValue(void* buffer, size_t size) const override
    {
        std::memset(buffer, 0, size);
        std::memcpy(buffer, bytes_, std::min(size, size_));
    }

private:
    friend class ::zon::ObjectFactory;
    BoxedValue(const void* bytes, size_t size, const char* encoding) : size_(size), encoding_(encoding)
    {
        std::memcpy(bytes_, bytes, size);
    }

    alignas(double) unsigned char bytes_[sizeof(Rect)] {};
    size_t size_;
    const char* encoding_;
};

std::string hexBytes(const Value* value)
{
    unsigned char bytes[sizeof(Rect)];
    value->getValue(bytes, sizeof bytes);
    size_t size = std::string_view(value->objCType()) == kRectEncoding ? sizeof(Rect) : sizeof(void*);
    std::string text = "<";
    char pair[4];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
        text += pair;
    }
    return text + ">";
}

} // namespace

ZON_DEFINE_CLASS(Value, "NSValue")

Ref<Value> Value::valueWithPoint(Point point) { return BoxedValue::make(point, kPointEncoding); }
Ref<Value> Value::valueWithSize(Size size) { return BoxedValue::make(size, kSizeEncoding); }
Ref<Value> Value::valueWithRange(Range range) { return BoxedValue::make(range, kRangeEncoding); }
Ref<Value> Value::valueWithRect(Rect rect) { return BoxedValue::make(rect, kRectEncoding); }
Ref<Value> Value::valueWithPointer(const void* pointer) { return BoxedValue::make(pointer, "^v"); }
Ref<Value> Value::valueWithNonretainedObject(const Object* object) { return BoxedValue::make(object, "@"); }
Ref<Value> Value::valueWithSelector(SEL sel) { return BoxedValue::make(sel, ":"); }
Ref<Value> Value::valueWithClass(const Class* cls) { return BoxedValue::make(cls, "#"); }

bool Value::isEqualToValue(const Value* other) const
{
    if (other == this)
        return true;
    if (!other || std::strcmp(objCType(), other->objCType()) != 0)
        return false;
    unsigned char mine[sizeof(Rect)], theirs[sizeof(Rect)];
    getValue(mine, sizeof mine);
    other->getValue(theirs, sizeof theirs);
    return std::memcmp(mine, theirs, sizeof mine) == 0;
}

bool Value::isEqual(const Object* other) const
{
    const Value* value = dynamicCast<Value>(other);
    return value && isEqualToValue(value);
}

size_t Value::hash() const
{
    unsigned char bytes[sizeof(Rect)];
    getValue(bytes, sizeof bytes);
    return std::hash<std::string_view>()(std::string_view(reinterpret_cast<const char*>(bytes), sizeof bytes));
}

Ref<String> Value::description() const
{
    const std::string_view type = objCType();
    if (type == kPointEncoding)
        return String::stringWithUTF8String("NSPoint: " + NSStringFromPoint(pointValue())->UTF8String());
    if (type == kSizeEncoding)
        return String::stringWithUTF8String("NSSize: " + NSStringFromSize(sizeValue())->UTF8String());
    if (type == kRangeEncoding)
        return String::stringWithUTF8String("NSRange: " + NSStringFromRange(rangeValue())->UTF8String());
    if (type == kRectEncoding)
        return String::stringWithUTF8String("NSRect: " + NSStringFromRect(rectValue())->UTF8String());
    return String::stringWithUTF8String(hexBytes(this));
}

Ref<Object> Value::copy() const { return Ref<Object>(const_cast<Value*>(this)); }

} // namespace zon
