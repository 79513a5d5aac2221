#include "platform/runtime/Invocation.h"

#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"

namespace zon {

ZON_DEFINE_CLASS(Invocation, "NSInvocation")

Invocation::Invocation(Ref<MethodSignature> signature)
    : signature_(std::move(signature))
    , arguments_(signature_->numberOfArguments() - 2)
{
}

Ref<Invocation> Invocation::invocationWithMethodSignature(MethodSignature* signature)
{
    if (!signature) {
        raisePlatformException(NSInvalidArgumentException,
            "+[NSInvocation invocationWithMethodSignature:]: method signature argument cannot be nil");
    }
    return makeObject<Invocation>(Ref(signature));
}

void Invocation::setArgument_atIndex(Object* argument, long index)
{
    const long count = static_cast<long>(signature_->numberOfArguments());
    if (index < 2 || index >= count) {
        if (index == 0) {
            setTarget(argument);
            return;
        }
        raisePlatformException(NSInvalidArgumentException,
            "-[NSInvocation setArgument:atIndex:]: index (" + std::to_string(index) + ") out of bounds [-1, "
                + std::to_string(count - 1) + "]");
    }
    arguments_[static_cast<size_t>(index - 2)] = argument;
}

Object* Invocation::getArgument_atIndex(long index) const
{
    const long count = static_cast<long>(signature_->numberOfArguments());
    if (index == 0)
        return target_.get();
    if (index < 2 || index >= count) {
        raisePlatformException(NSInvalidArgumentException,
            "-[NSInvocation getArgument:atIndex:]: index (" + std::to_string(index) + ") out of bounds [-1, "
                + std::to_string(count - 1) + "]");
    }
    return arguments_[static_cast<size_t>(index - 2)].get();
}

void Invocation::invoke() { invokeWithTarget(target_.get()); }

void Invocation::invokeWithTarget(Object* target)
{
    returnValue_ = nullptr;
    if (!target)
        return;
    Ref protectTarget(target);
    std::vector<Object*> arguments;
    arguments.reserve(arguments_.size());
    for (const auto& argument : arguments_)
        arguments.push_back(argument.get());
    returnValue_ = target->performSelectorWithArguments(selector_, arguments);
}

} // namespace zon
