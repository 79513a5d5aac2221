#pragma once

// The suite's error domain and user-info keys; the constructors and accessors are members of
// Error (platform/values/Error.h), in its NSError(ZonExtensions) and NSError(TXZonExtensions)
// sections.

#include "platform/values/Error.h"

namespace zon {

// "ZonErrorDomain"
ZON_EXPORT extern String* const TXZonErrorDomain;
// "ZonSystemErrorCode": a number with the operating-system or lower-layer code of a failure.
ZON_EXPORT extern String* const TXZonErrorSystemErrorCodeKey;
// "ZonUserInfoAdditionalContext": a dictionary of free-form context.
ZON_EXPORT extern String* const TXZonErrorAdditionalContextInfoKey;

// Codes in NSCocoaErrorDomain used by the buffer stream.
inline constexpr int kZonBufferUnknownError = 47872;
inline constexpr int kZonBufferPrematureClosureError = 47873;

} // namespace zon
