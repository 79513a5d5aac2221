#include "platform/runtime/Object.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/MethodSignature.h"
#include "platform/runtime/ObjectSideTablesInternal.h"
#include "platform/runtime/PageMemoryInternal.h"
#include "platform/runtime/ReleaseBatchInternal.h"
#include "platform/runtime/RootClassInternal.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace zon {

namespace {

// Destroying an object releases what it holds, which may destroy more objects. Up to this many
// destructions nest on the stack; deeper ones wait in a per-thread list that the outermost
// destruction drains, so a million nested arrays are freed in constant stack depth.
constexpr unsigned kMaxNestedDestruction = 16;

// A stack of object pointers: a few slots of its own, then page memory (see PageMemoryInternal.h), so
// that growing it while many objects are being freed does not make malloc merge their blocks.
// Destruction must work when no memory is left: a push that finds no room answers false and the
// caller does the work at once instead. A refused growth is not tried again until the stack has
// emptied, so running out costs one failed request, not one per object.
struct PointerStack {
    static constexpr size_t kOwnSlots = 32; // enough for any chain of single children

    const Object* own[kOwnSlots];
    const Object** pages;
    size_t count;
    size_t capacity; // of pages
    bool refused;

    bool push(const Object* object) noexcept
    {
        if (count < kOwnSlots) {
            own[count++] = object;
            return true;
        }
        const size_t paged = count - kOwnSlots;
        if (paged == capacity && !grow())
            return false;
        pages[paged] = object;
        ++count;
        return true;
    }
    const Object* at(size_t index) const noexcept { return index < kOwnSlots ? own[index] : pages[index - kOwnSlots]; }
    const Object* pop() noexcept { return at(--count); }
    // Gives the memory back once the stack is empty, and lets it try to grow again.
    void trim() noexcept
    {
        if (count)
            return;
        detail::freePages(pages, capacity * sizeof(Object*));
        pages = nullptr;
        capacity = 0;
        refused = false;
    }

private:
    bool grow() noexcept
    {
        if (refused)
            return false;
        const size_t grown = capacity ? capacity * 2 : 4096 / sizeof(Object*);
        try {
            pages = static_cast<const Object**>(capacity
                    ? detail::reallocatePages(pages, capacity * sizeof(Object*), grown * sizeof(Object*))
                    : detail::allocatePages(grown * sizeof(Object*)));
        } catch (const std::bad_alloc&) {
            refused = true;
            return false;
        }
        capacity = grown;
        return true;
    }
};

struct DestructionState {
    unsigned depth;
    PointerStack pending;  // objects to delete, deferred by depth
    PointerStack releases; // references held by release batches
};

// Plain data, so it is usable during thread exit; initial-exec keeps each access a plain
// thread-pointer load instead of a call into the dynamic linker.
__attribute__((tls_model("initial-exec"))) thread_local DestructionState destruction {};

} // namespace

Class* Object::staticClass()
{
    static Class* const cls = [] {
        Class* root = Class::defineClass("NSObject", nullptr);
        detail::addRootClassMethods(root);
        return root;
    }();
    return cls;
}

Class* Object::objectClass() const { return staticClass(); }

Object::~Object() = default;

void Object::retain() const noexcept
{
    if (refCount_.load(std::memory_order_relaxed) != kImmortal)
        refCount_.fetch_add(1, std::memory_order_relaxed);
}

void Object::release() const noexcept
{
    const uint32_t count = refCount_.load(std::memory_order_acquire);
    if (count == kImmortal)
        return;
    // The last reference needs no atomic decrement: no other thread holds one to retain it with,
    // and the acquire load has seen every other thread's release. A marked object never takes
    // this path, since its weak references may still retain it.
    if (count == 1) {
        destroy(this);
        return;
    }
    const uint32_t before = refCount_.fetch_sub(1, std::memory_order_acq_rel);
    if (before == 1) {
        destroy(this);
    } else if (before == (kSideTableFlag | 1)) {
        // From here on weak loads fail (they see a count of zero); the side tables forget the
        // object before it is freed.
        ObjectSideTables::objectWillDie(this);
        destroy(this);
    }
}

uint32_t Object::retainCount() const noexcept
{
    const uint32_t count = refCount_.load(std::memory_order_relaxed);
    return count == kImmortal ? count : count & ~kSideTableFlag;
}

void Object::markSideTableEntries() const noexcept
{
    if (refCount_.load(std::memory_order_relaxed) != kImmortal)
        refCount_.fetch_or(kSideTableFlag, std::memory_order_relaxed);
}

bool Object::tryRetain() const noexcept
{
    uint32_t count = refCount_.load(std::memory_order_relaxed);
    do {
        if (count == kImmortal)
            return true;
        if ((count & ~kSideTableFlag) == 0)
            return false;
    } while (!refCount_.compare_exchange_weak(count, count + 1, std::memory_order_acquire, std::memory_order_relaxed));
    return true;
}

void Object::destroy(const Object* object) noexcept
{
    auto& s = destruction;
    if (s.depth >= kMaxNestedDestruction && s.pending.push(object))
        return;
    ++s.depth;
    delete object;
    if (s.depth == 1) {
        while (s.pending.count)
            delete s.pending.pop();
        s.pending.trim();
    }
    --s.depth;
}

namespace detail {

ReleaseBatch::ReleaseBatch() noexcept : start_(destruction.releases.count) {}

ReleaseBatch::~ReleaseBatch()
{
    // Releasing may run nested batches; each ends before its release returns, so the stack is
    // back at this batch's end after every step (though its memory may have moved).
    auto& releases = destruction.releases;
    for (size_t i = start_; i < releases.count; ++i)
        releases.at(i)->release();
    releases.count = start_;
    releases.trim();
}

void ReleaseBatch::add(Ref<Object>&& object) noexcept
{
#if ZON_PLAIN_PAGES
    // The plain fallback, for measuring what batches earn (PropertyListBenchmarks' read rows,
    // which free each document they read): released at once, as the container itself would.
    object = nullptr;
    return;
#endif
    const Object* held = object.leakRef();
    if (held && !destruction.releases.push(held))
        held->release();
}

} // namespace detail

Object* Object::autorelease() const
{
    AutoreleasePool::addObject(this);
    return const_cast<Object*>(this);
}

Ref<String> Object::description() const
{
    char text[64];
    std::snprintf(text, sizeof text, ": %p>", static_cast<const void*>(this));
    return String::stringWithUTF8String("<" + objectClass()->name() + text);
}

bool Object::isEqual(const Object* other) const { return this == other; }

size_t Object::hash() const { return std::hash<const void*>()(this); }

Ref<Object> Object::copy() const
{
    raisePlatformException(NSInvalidArgumentException,
        "-[" + objectClass()->name() + " copyWithZone:]: unrecognized selector sent to instance");
}

Ref<Object> Object::mutableCopy() const
{
    raisePlatformException(NSInvalidArgumentException,
        "-[" + objectClass()->name() + " mutableCopyWithZone:]: unrecognized selector sent to instance");
}

bool Object::isKindOfClass(const Class* cls) const { return cls && objectClass()->isSubclassOfClass(cls); }

bool Object::isMemberOfClass(const Class* cls) const { return objectClass() == cls; }

const Method* Object::methodForSelector(SEL sel) const { return objectClass()->instanceMethod(sel); }

Object* Object::forwardingTargetForSelector(SEL) const { return nullptr; }

bool Object::respondsToSelector(SEL sel) const
{
    if (!sel)
        return false;
    if (methodForSelector(sel))
        return true;
    const Object* target = forwardingTargetForSelector(sel);
    return target && target->respondsToSelector(sel);
}

Ref<MethodSignature> Object::methodSignatureForSelector(SEL sel) const
{
    if (!sel)
        return nullptr;
    if (const Method* method = methodForSelector(sel))
        return method->signature;
    const Object* target = forwardingTargetForSelector(sel);
    return target ? target->methodSignatureForSelector(sel) : nullptr;
}

Ref<Object> Object::performSelectorWithArguments(SEL sel, Arguments arguments)
{
    if (sel) {
        if (const Method* method = methodForSelector(sel))
            return method->implementation(this, sel, arguments);
        if (Object* target = forwardingTargetForSelector(sel))
            return target->performSelectorWithArguments(sel, arguments);
    }
    doesNotRecognizeSelector(sel);
}

void Object::doesNotRecognizeSelector(SEL sel) const
{
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
    const bool isClass = objectClass() == Class::staticClass();
    const std::string& className = isClass ? static_cast<const Class*>(this)->name() : objectClass()->name();
    raisePlatformException(NSInvalidArgumentException,
        std::string(isClass ? "+[" : "-[") + className + " " + (sel ? sel->name() : "(null)")
            + "]: unrecognized selector sent to " + (isClass ? "class " : "instance ") + address);
}

bool objectsEqual(const Object* a, const Object* b)
{
    if (a == b)
        return true;
    return a && b && a->isEqual(b);
}

} // namespace zon
