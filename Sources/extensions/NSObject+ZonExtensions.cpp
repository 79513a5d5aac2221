#include "extensions/NSObject+ZonExtensions.h"

#include "platform/runtime/Class.h"
#include "platform/values/String.h"

namespace zon {

ZON_STRING_CONSTANT(kLogNetworkCommIdentifier, "networkcomm");

void detail::addLogCategoryClassMethod(Class* root)
{
    root->exportClassMethod("objectLogCategory", +[]() -> String* { return ZSTR("default"); });
}

// The class operation decides, so a class that overrides it changes all its instances.
String* Object::objectLogCategory() const { return objectClass()->logCategory(); }

} // namespace zon
