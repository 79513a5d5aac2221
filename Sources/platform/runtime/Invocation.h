#pragma once

#include "platform/runtime/MethodSignature.h"
#include "platform/runtime/Object.h"

#include <vector>

namespace zon {

// A call by selector held as an object: target, selector, argument slots from 2 on, and the
// result after invoke. Arguments and target are always held strongly (retainArguments only
// records that the caller asked), so an invocation can be handed to another thread.
class ZON_EXPORT Invocation final : public Object {
    ZON_OBJECT(Invocation, Object)
public:
    // A nil signature raises NSInvalidArgumentException, as the platform does.
    static Ref<Invocation> invocationWithMethodSignature(MethodSignature* signature);

    MethodSignature* methodSignature() const { return signature_.get(); }
    Object* target() const { return target_.get(); }
    void setTarget(Object* target) { target_ = target; }
    SEL selector() const { return selector_; }
    void setSelector(SEL sel) { selector_ = sel; }

    // Index 2 and above are the explicit arguments; an index past the signature raises
    // NSInvalidArgumentException.
    void setArgument_atIndex(Object* argument, long index);
    Object* getArgument_atIndex(long index) const;

    void retainArguments() { argumentsRetained_ = true; }
    bool argumentsRetained() const { return argumentsRetained_; }

    // Calls the target's method under the selector with the argument slots; a nil target does
    // nothing and leaves a nil result.
    void invoke();
    void invokeWithTarget(Object* target);
    Object* returnValue() const { return returnValue_.get(); }

private:
    explicit Invocation(Ref<MethodSignature> signature);

    Ref<MethodSignature> signature_;
    Ref<Object> target_;
    SEL selector_ = nullptr;
    std::vector<Ref<Object>> arguments_;
    Ref<Object> returnValue_;
    bool argumentsRetained_ = false;
};

} // namespace zon
