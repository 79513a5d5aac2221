#include "platform/runtime/Class.h"
#include "platform/runtime/Proxy.h"

namespace zon {

// Answered by the proxy's own class, never forwarded to the object it stands for.
String* Proxy::objectLogCategory() const { return objectClass()->logCategory(); }

} // namespace zon
