// NSObject(ZonThreadExtensions) and NSObject(ZonThreadLockExtensions): members of Object.

#include "platform/runtime/Object.h"

#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/Invocation.h"
#include "platform/runtime/MethodSignature.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Array.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/String.h"

#include <array>
#include <span>
#include <vector>

namespace zon {

namespace {

// These groups continue the NSObject extensions unit; their log lines and assertion reports name
// that unit.
constexpr const char* kUnitFile = "Sources/extensions/NSObject+ZonExtensions.cpp";

enum class CountCheck { Exact, AtMost };

// The target's signature for sel; a missing one is logged and handed on, and making the
// invocation from it raises.
Ref<MethodSignature> signatureForCall(Object* target, SEL sel, Thread* thread)
{
    Ref<MethodSignature> signature = target->methodSignatureForSelector(sel);
    if (!signature) {
        zon_log_obj(kUnitFile, __LINE__, target, logger::kLevelError, kDefaultLogIdentifier,
            "Error trying to start perform selector %@ on thread %@", sel, thread ? thread->name() : nullptr);
    }
    return signature;
}

void checkArgumentCount(Object* target, unsigned numberOfArguments, Array* objects, CountCheck check, SEL operation)
{
    const long expected = static_cast<long>(numberOfArguments) - 2;
    const long received = objects ? static_cast<long>(objects->count()) : 0;
    if (check == CountCheck::Exact ? received != expected : received > expected) {
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(operation, target, kUnitFile,
            __LINE__, "Performing selector with incorrect argument count, expected: %d, recieved: %d",
            static_cast<int>(expected), static_cast<int>(received));
    }
}

Ref<Invocation> invocationForCall(Object* target, SEL sel, MethodSignature* signature, Array* objects,
    CountCheck check, SEL operation)
{
    auto invocation = Invocation::invocationWithMethodSignature(signature);
    invocation->setTarget(target);
    invocation->setSelector(sel);
    const long slots = static_cast<long>(signature->numberOfArguments());
    const long received = objects ? static_cast<long>(objects->count()) : 0;
    checkArgumentCount(target, signature->numberOfArguments(), objects, check, operation);
    for (long i = 2; i < slots; ++i) {
        if (i - 2 < received)
            invocation->setArgument_atIndex(objects->objectAtIndex(static_cast<size_t>(i - 2)), i);
    }
    invocation->retainArguments();
    return invocation;
}

// The mode names in an array; entries that are not strings are skipped.
std::vector<String*> modeNames(Array* modes)
{
    std::vector<String*> names;
    if (modes) {
        names.reserve(modes->count());
        for (Object* mode : *modes) {
            if (auto* name = dynamicCast<String>(mode))
                names.push_back(name);
        }
    }
    return names;
}

String* const kCommonModes[] = {NSRunLoopCommonModes};

// Runs the invocation on thread's run loop in modes, waiting or not; on the calling thread itself
// a waiting call runs at once.
void invokeOnThread(Ref<Invocation> invocation, Thread* thread, bool waitUntilDone, RunLoopModes modes)
{
    if (!thread)
        return;
    RunLoop* loop = thread->runLoop();
    auto call = [invocation = std::move(invocation)] { invocation->invoke(); };
    if (waitUntilDone)
        loop->performBlockAndWait(modes, std::move(call));
    else
        loop->performBlock(modes, std::move(call));
}

// A queued call to a method the target answers itself, looked up once, with up to four arguments
// carried inline: what an invocation does, without its signature and argument objects. Broadcasts
// queue one per observer (ThreadBenchmarks, BM_QueuedCalls_PerformSelector rows).
struct InlineCall {
    static constexpr size_t kMaxArguments = 4;

    Ref<Object> target;
    const Method* method;
    std::array<Ref<Object>, kMaxArguments> arguments;

    void operator()() const
    {
        const size_t count = method->numberOfArguments - 2;
        std::array<Object*, kMaxArguments> slots;
        for (size_t i = 0; i < count; ++i)
            slots[i] = arguments[i].get();
        method->implementation(target.get(), method->selector, std::span(slots.data(), count));
    }
};

// performSelector:onThread:withObjects:waitUntilDone:modes:, which the other queued forms share.
void queueCall(Object* target, SEL sel, Thread* thread, Array* objects, bool waitUntilDone, RunLoopModes modes)
{
    static const SEL operation = selector("performSelector:onThread:withObjects:waitUntilDone:modes:");
    const Method* method = sel ? target->methodForSelector(sel) : nullptr;
    if (!method || method->numberOfArguments - 2 > InlineCall::kMaxArguments) {
        // Forwarded and unknown selectors, and long argument lists, take the invocation.
        Ref<MethodSignature> signature = signatureForCall(target, sel, thread);
        auto invocation = invocationForCall(target, sel, signature, objects, CountCheck::AtMost, operation);
        invokeOnThread(std::move(invocation), thread, waitUntilDone, modes);
        return;
    }
    checkArgumentCount(target, method->numberOfArguments, objects, CountCheck::AtMost, operation);
    if (!thread)
        return;
    InlineCall call {Ref<Object>(target), method, {}};
    for (size_t i = 0; objects && i < objects->count(); ++i)
        call.arguments[i] = objects->objectAtIndex(i);
    RunLoop* loop = thread->runLoop();
    if (waitUntilDone)
        loop->performBlockAndWait(modes, std::move(call));
    else
        loop->performBlock(modes, std::move(call));
}

// performSelectorWithExpectedReturn:onThread:withObjects:modes:, which the other result forms share.
Ref<Object> resultOfCall(Object* target, SEL sel, Thread* thread, Array* objects, RunLoopModes modes)
{
    static const SEL operation = selector("performSelectorWithExpectedReturn:onThread:withObjects:modes:");
    Ref<MethodSignature> signature = signatureForCall(target, sel, thread);
    // Already there: one direct call with the whole array as its argument, and no queue to wait on.
    if (thread == Thread::currentThread())
        return target->performSelector(sel, objects);

    auto invocation = invocationForCall(target, sel, signature, objects, CountCheck::Exact, operation);
    invokeOnThread(invocation, thread, true, modes);
    switch (signature->methodReturnType()[0]) {
    case '@':
        return invocation->returnValue();
    case 'v':
        return nullptr;
    default:
        zon_log_obj(kUnitFile, __LINE__, target, logger::kLevelWarning, kDefaultLogIdentifier,
            "Returning nil, return type not handled");
        return nullptr;
    }
}

} // namespace

Ref<Object> Object::performSelector_withObjects(SEL sel, Array* objects)
{
    static const SEL operation = selector("performSelector:withObjects:");
    Ref<MethodSignature> signature = signatureForCall(this, sel, Thread::currentThread());
    auto invocation = invocationForCall(this, sel, signature, objects, CountCheck::Exact, operation);
    invocation->invoke();
    // Scalar results come back boxed as numbers.
    if (signature->methodReturnType()[0] != 'v')
        return invocation->returnValue();
    return nullptr;
}

void Object::performSelector_onThread_withObjects_waitUntilDone_modes(
    SEL sel, Thread* thread, Array* objects, bool waitUntilDone, Array* modes)
{
    queueCall(this, sel, thread, objects, waitUntilDone, modeNames(modes));
}

void Object::performSelector_onThread_withObjects_waitUntilDone(SEL sel, Thread* thread, Array* objects, bool waitUntilDone)
{
    queueCall(this, sel, thread, objects, waitUntilDone, kCommonModes);
}

void Object::performSelectorOnMainThread_withObjects_waitUntilDone_modes(
    SEL sel, Array* objects, bool waitUntilDone, Array* modes)
{
    queueCall(this, sel, Thread::mainThread(), objects, waitUntilDone, modeNames(modes));
}

void Object::performSelectorOnMainThread_withObjects_waitUntilDone(SEL sel, Array* objects, bool waitUntilDone)
{
    queueCall(this, sel, Thread::mainThread(), objects, waitUntilDone, kCommonModes);
}

void Object::performSelectorOnThreadWithObjectList(SEL sel, Thread* thread, bool waitUntilDone, Array* modes, Arguments objects)
{
    Ref<MethodSignature> signature = signatureForCall(this, sel, thread);
    auto invocation = Invocation::invocationWithMethodSignature(signature);
    invocation->setTarget(this);
    invocation->setSelector(sel);
    if (!objects.empty() && objects[0]) {
        const long slots = static_cast<long>(signature->numberOfArguments());
        for (long i = 2; i < slots; ++i) {
            const size_t index = static_cast<size_t>(i - 2);
            invocation->setArgument_atIndex(index < objects.size() ? objects[index] : nullptr, i);
        }
    }
    invocation->retainArguments();
    if (modes)
        invokeOnThread(std::move(invocation), thread, waitUntilDone, modeNames(modes));
    else
        invokeOnThread(std::move(invocation), thread, waitUntilDone, kCommonModes);
}

Ref<Object> Object::performSelectorWithExpectedReturn_onThread_withObjects_modes(
    SEL sel, Thread* thread, Array* objects, Array* modes)
{
    return resultOfCall(this, sel, thread, objects, modeNames(modes));
}

Ref<Object> Object::performSelectorWithExpectedReturn_onThread_withObjects(SEL sel, Thread* thread, Array* objects)
{
    return resultOfCall(this, sel, thread, objects, kCommonModes);
}

Ref<Object> Object::performSelectorWithExpectedReturn_onThread_withObject(SEL sel, Thread* thread, Object* object)
{
    auto objects = object ? Array::arrayWithObject(object) : Array::array();
    return resultOfCall(this, sel, thread, objects, kCommonModes);
}

} // namespace zon
