#pragma once

#include "platform/runtime/Object.h"

namespace zon {

// A stand-in for another object: every selector it has no method of its own for is answered by
// the object it stands for. Its run-time class, NSProxy, is a root of its own.
class ZON_EXPORT Proxy : public Object {
    ZON_OBJECT(Proxy, Object)
public:
    static Ref<Proxy> proxyForObject(Object* target);

    Object* target() const { return target_.get(); }

    // NSProxy(ZonExtensions): answered by the proxy itself, never forwarded.
    String* objectLogCategory() const override;
    Ref<String> description() const override;

protected:
    explicit Proxy(Ref<Object> target);
    Object* forwardingTargetForSelector(SEL) const override { return target_.get(); }

private:
    Ref<Object> target_;
};

} // namespace zon
