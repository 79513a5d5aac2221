#pragma once

#include "platform/runtime/Object.h"

namespace zon {

// The null marker for collections, distinct from nil: one shared immortal instance whose
// description is "<null>". Run-time class NSNull.
class ZON_EXPORT Null final : public Object {
    ZON_OBJECT(Null, Object)
public:
    static Null* null();

    Ref<String> description() const override;
    Ref<Object> copy() const override;

private:
    Null() = default;
};

} // namespace zon
