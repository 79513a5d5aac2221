#include "platform/runtime/Proxy.h"

#include "platform/runtime/Class.h"
#include "platform/runtime/RootClassInternal.h"
#include "platform/values/String.h"

namespace zon {

Class* Proxy::staticClass()
{
    static Class* const cls = [] {
        Class* root = Class::defineClass("NSProxy", nullptr);
        detail::addRootClassMethods(root);
        return root;
    }();
    return cls;
}

Class* Proxy::objectClass() const { return staticClass(); }

Proxy::Proxy(Ref<Object> target) : target_(std::move(target)) {}

Ref<Proxy> Proxy::proxyForObject(Object* target) { return makeObject<Proxy>(Ref(target)); }

Ref<String> Proxy::description() const
{
    return target_ ? target_->description() : Object::description();
}

} // namespace zon
