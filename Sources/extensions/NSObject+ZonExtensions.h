#pragma once

// NSObject(ZonLoggingExtensions) and NSProxy(ZonExtensions): every object and class answers
// objectLogCategory (Object::objectLogCategory, Class::logCategory), "default" unless a class
// overrides its class operation; the instance asks its class each time. This header adds the log
// stream identifiers of the library.

#include "platform/Export.h"

namespace zon {

class String;

// "networkcomm": the stream of the buffer stream's event and transfer traces.
ZON_EXPORT extern String* const kLogNetworkCommIdentifier;

} // namespace zon
