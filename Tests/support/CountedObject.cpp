#include "support/CountedObject.h"

#include "platform/runtime/Class.h"

namespace zon::test {

ZON_DEFINE_CLASS(CountedObject, "CountedObject")

} // namespace zon::test
