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

// Codes in NSCocoaErrorDomain used by the buffer stream: the write end ended before the data source
// finished (0xBB00), and a write-end event the stream does not know (0xBB01).
inline constexpr int kZonBufferPrematureClosureError = 47872;
inline constexpr int kZonBufferUnknownError = 47873;

} // namespace zon
