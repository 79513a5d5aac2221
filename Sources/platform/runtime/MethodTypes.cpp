#include "platform/runtime/MethodTypes.h"

#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/Value.h"

namespace zon::method_types {

Ref<Object> boxSigned(long long value, char encoding) { return Number::numberWithSigned(value, encoding); }

Ref<Object> boxUnsigned(unsigned long long value, char encoding) { return Number::numberWithUnsigned(value, encoding); }

Ref<Object> boxDouble(double value, char encoding) { return Number::numberWithFloating(value, encoding); }

namespace {

// A scalar argument must come as a number; nil reads as 0, as a message to nil answers 0.
const Number* numberArgument(Object* object)
{
    if (!object)
        return nullptr;
    const Number* number = dynamicCast<Number>(object);
    if (!number)
        raiseArgumentClassMismatch(object, Number::staticClass());
    return number;
}

} // namespace

long long unboxSigned(Object* object)
{
    const Number* number = numberArgument(object);
    return number ? number->longLongValue() : 0;
}

unsigned long long unboxUnsigned(Object* object)
{
    const Number* number = numberArgument(object);
    return number ? number->unsignedLongLongValue() : 0;
}

double unboxDouble(Object* object)
{
    const Number* number = numberArgument(object);
    return number ? number->doubleValue() : 0;
}

Ref<Object> boxSelector(SEL sel) { return Value::valueWithSelector(sel); }

SEL unboxSelector(Object* object)
{
    if (!object)
        return nullptr;
    const Value* value = dynamicCast<Value>(object);
    if (!value)
        raiseArgumentClassMismatch(object, Value::staticClass());
    return value->selectorValue();
}

void raiseArgumentClassMismatch(Object* argument, const Class* expected)
{
    raisePlatformException(NSInvalidArgumentException,
        "argument of class " + argument->objectClass()->name() + " where " + expected->name() + " is expected");
}

} // namespace zon::method_types
