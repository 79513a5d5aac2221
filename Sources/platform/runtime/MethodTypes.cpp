#include "platform/runtime/MethodTypes.h"

#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"

namespace zon::method_types {

// Interim definitions until the number and value classes land.
Ref<Object> boxSigned(long long, char) { raisePlatformException(NSInternalInconsistencyException, "numbers not built yet"); }
Ref<Object> boxUnsigned(unsigned long long, char) { raisePlatformException(NSInternalInconsistencyException, "numbers not built yet"); }
Ref<Object> boxDouble(double, char) { raisePlatformException(NSInternalInconsistencyException, "numbers not built yet"); }
long long unboxSigned(Object*) { return 0; }
unsigned long long unboxUnsigned(Object*) { return 0; }
double unboxDouble(Object*) { return 0; }
Ref<Object> boxSelector(SEL) { return nullptr; }
SEL unboxSelector(Object*) { return nullptr; }

void raiseArgumentClassMismatch(Object* argument, const Class* expected)
{
    raisePlatformException(NSInvalidArgumentException,
        "argument of class " + argument->objectClass()->name() + " where " + expected->name() + " is expected");
}

} // namespace zon::method_types
