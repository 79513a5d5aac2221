#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/Geometry.h"

#include <cstddef>

namespace zon {

// A boxed C value with its type encoding: points, sizes, ranges and rectangles, plain pointers,
// objects held without a reference, selectors and classes. Immutable; run-time class NSValue.
//
// Encodings: "{_NSPoint=ff}", "{_NSSize=ff}", "{_NSRange=II}",
// "{_NSRect={_NSPoint=ff}{_NSSize=ff}}", "^v" (pointer), "@" (non-retained object),
// ":" (selector), "#" (class). The accessors read the stored bytes whatever the encoding (as the
// platform does, nothing checks that the value holds what is asked for); bytes the value does not
// have read as zero. Numbers are the subclass Number.
class ZON_EXPORT Value : public Object {
    ZON_OBJECT(Value, Object)
public:
    static Ref<Value> valueWithPoint(Point point);
    static Ref<Value> valueWithSize(Size size);
    static Ref<Value> valueWithRange(Range range);
    static Ref<Value> valueWithRect(Rect rect);
    static Ref<Value> valueWithPointer(const void* pointer);
    // Holds the object's address only: the caller keeps the object alive.
    static Ref<Value> valueWithNonretainedObject(const Object* object);
    static Ref<Value> valueWithSelector(SEL sel);
    static Ref<Value> valueWithClass(const Class* cls);

    // The type encoding, a C string that lives as long as the value.
    virtual const char* objCType() const = 0;
    // Copies the value's bytes into buffer: at most size bytes, the rest of buffer zeroed.
    virtual void getValue(void* buffer, size_t size) const = 0;

    Point pointValue() const { return read<Point>(); }
    Size sizeValue() const { return read<Size>(); }
    Range rangeValue() const { return read<Range>(); }
    Rect rectValue() const { return read<Rect>(); }
    void* pointerValue() const { return read<void*>(); }
    Object* nonretainedObjectValue() const { return read<Object*>(); }
    SEL selectorValue() const { return read<SEL>(); }
    Class* classValue() const { return read<Class*>(); }

    // The same encoding and the same bytes.
    bool isEqualToValue(const Value* other) const;

    // "NSPoint: {1, 2}", "NSSize: {w, h}", "NSRange: {loc, len}", "NSRect: {{x, y}, {w, h}}";
    // other kinds print their bytes in hexadecimal: "<00a0c1f2ff7f0000>".
    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    // Values are immutable: a copy is the value itself.
    Ref<Object> copy() const override;

protected:
    Value() = default;

private:
    template <class T>
    T read() const
    {
        T result {};
        getValue(&result, sizeof result);
        return result;
    }
};

} // namespace zon
