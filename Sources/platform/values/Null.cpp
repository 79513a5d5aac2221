#include "platform/values/Null.h"

#include "platform/runtime/Class.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(Null, "NSNull")

Null* Null::null()
{
    static Null* const instance = [] {
        auto* null = new Null();
        null->makeImmortal();
        return null;
    }();
    return instance;
}

Ref<String> Null::description() const { return ZSTR("<null>"); }

Ref<Object> Null::copy() const { return Ref<Object>(const_cast<Null*>(this)); }

} // namespace zon
