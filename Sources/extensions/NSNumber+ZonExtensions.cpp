// NSNumber(ZonExtensions). The explicit-width numbers of NSNumber(ZonExplicitSizeExtensions) are
// templates in Number.h, so that a subclass can make instances of its own kind.

#include "platform/values/Number.h"
#include "platform/values/String.h"

namespace zon {

Ref<Number> Number::numberWithTimeInterval(double seconds) { return numberWithDouble(seconds); }

} // namespace zon
