#pragma once

#include "platform/Export.h"

namespace zon {

class String;

// The exception key-value coding raises for a key no method serves, and the keys of its user
// information (the receiver and the key).
ZON_EXPORT extern String* const NSUndefinedKeyException;
ZON_EXPORT extern String* const NSTargetObjectUserInfoKey;
ZON_EXPORT extern String* const NSUnknownUserInfoKey;

// The keys of a key-value observing change dictionary.
ZON_EXPORT extern String* const NSKeyValueChangeKindKey;
ZON_EXPORT extern String* const NSKeyValueChangeNewKey;
ZON_EXPORT extern String* const NSKeyValueChangeOldKey;
ZON_EXPORT extern String* const NSKeyValueChangeNotificationIsPriorKey;

} // namespace zon
