#pragma once

// An object that counts its live instances, for tests that check each is destroyed exactly once.

#include "platform/runtime/Object.h"

namespace zon::test {

struct CountedObject : Object {
    ZON_OBJECT(CountedObject, Object)
public:
    static inline int alive = 0;
    CountedObject() { ++alive; }
    ~CountedObject() override { --alive; }
};

} // namespace zon::test
