#pragma once

// NSObject(ZonLoggingExtensions) and NSProxy(ZonExtensions): every object and class answers
// objectLogCategory (Object::objectLogCategory, Class::logCategory), "default" unless a class
// overrides its class operation. This header adds the log stream identifiers of the library.

#include "platform/Export.h"

namespace zon {

class Class;
class String;

// "networkcomm": the stream of the buffer stream's event and transfer traces.
ZON_EXPORT extern String* const kLogNetworkCommIdentifier;

namespace detail {
// Adds the class operation objectLogCategory, answering "default", to a root class; each root
// (NSObject, NSProxy) calls it once when its class is defined.
void addLogCategoryClassMethod(Class* root);
} // namespace detail

} // namespace zon
