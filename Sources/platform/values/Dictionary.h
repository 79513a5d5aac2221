#pragma once

#include "platform/runtime/Object.h"

namespace zon {

// Placeholder; the full dictionary is built in its own change.
class ZON_EXPORT Dictionary : public Object {
    ZON_OBJECT(Dictionary, Object)
};

} // namespace zon
