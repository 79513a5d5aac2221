#include "platform/runtime/Class.h"

#include "platform/runtime/MethodSignature.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <mutex>
#include <shared_mutex>

namespace zon {

namespace {

struct ClassRegistry {
    std::shared_mutex mutex;
    std::unordered_map<std::string_view, Class*> byName;
};

ClassRegistry& registry()
{
    static auto* instance = new ClassRegistry; // classes live as long as the process
    return *instance;
}

// Counts class method additions, so that a lookup cached under an older count is known to be
// stale; starts above the zero of a class that never looked up.
std::atomic<uint64_t> gClassMethodAdditions {1};

} // namespace

Class::Class(std::string name, Class* superclass)
    : Object(ImmortalTag {})
    , name_(std::move(name))
    , superclass_(superclass)
{
}

Class* Class::staticClass()
{
    static Class* const cls = defineClass("Class", nullptr);
    return cls;
}

Class* Class::objectClass() const { return staticClass(); }

Class* Class::named(std::string_view name)
{
    auto& r = registry();
    std::shared_lock lock(r.mutex);
    auto it = r.byName.find(name);
    return it == r.byName.end() ? nullptr : it->second;
}

Class* Class::defineClass(std::string_view name, Class* superclass)
{
    auto& r = registry();
    std::unique_lock lock(r.mutex);
    if (auto it = r.byName.find(name); it != r.byName.end())
        return it->second;
    auto* cls = new Class(std::string(name), superclass);
    r.byName.emplace(cls->name(), cls);
    return cls;
}

bool Class::isSubclassOfClass(const Class* other) const
{
    for (const Class* cls = this; cls; cls = cls->superclass_) {
        if (cls == other)
            return true;
    }
    return false;
}

const Method* Class::MethodTable::find(SEL sel) const
{
    const Snapshot* methods = snapshot.load(std::memory_order_acquire);
    if (!methods)
        return nullptr;
    auto it = methods->find(sel);
    return it == methods->end() ? nullptr : it->second;
}

bool Class::MethodTable::add(SEL sel, std::string_view types, Implementation implementation)
{
    auto signature = MethodSignature::signatureWithObjCTypes(types);
    if (!signature) {
        raisePlatformException(NSInvalidArgumentException,
            "invalid method type encoding '" + std::string(types) + "' for " + sel->name());
    }
    std::lock_guard lock(writerMutex);
    const Snapshot* current = snapshot.load(std::memory_order_relaxed);
    if (current && current->contains(sel))
        return false;
    const unsigned numberOfArguments = signature->numberOfArguments();
    methods.push_back(std::make_unique<const Method>(
        Method {sel, std::string(types), numberOfArguments, std::move(implementation), std::move(signature)}));
    auto next = current ? std::make_unique<Snapshot>(*current) : std::make_unique<Snapshot>();
    next->emplace(sel, methods.back().get());
    snapshot.store(next.get(), std::memory_order_release);
    snapshots.push_back(std::move(next));
    return true;
}

bool Class::addMethod(SEL sel, std::string_view types, Implementation implementation)
{
    return instanceMethods_.add(sel, types, std::move(implementation));
}

bool Class::addClassMethod(SEL sel, std::string_view types, Implementation implementation)
{
    bool added = classMethods_.add(sel, types, std::move(implementation));
    if (added)
        gClassMethodAdditions.fetch_add(1, std::memory_order_release);
    return added;
}

const Method* Class::instanceMethod(SEL sel) const
{
    for (const Class* cls = this; cls; cls = cls->superclass_) {
        if (const Method* method = cls->instanceMethods_.find(sel))
            return method;
    }
    return nullptr;
}

const Method* Class::classMethod(SEL sel) const
{
    for (const Class* cls = this; cls; cls = cls->superclass_) {
        if (const Method* method = cls->classMethods_.find(sel))
            return method;
    }
    return nullptr;
}

Ref<Object> Class::createInstance() const { return instanceFactory_ ? instanceFactory_() : nullptr; }

void Class::setInstanceFactory(std::function<Ref<Object>()> factory) { instanceFactory_ = std::move(factory); }

const Method* Class::logCategoryMethod() const
{
    const uint64_t additions = gClassMethodAdditions.load(std::memory_order_acquire);
    if (logCategoryLookupAdditions_.load(std::memory_order_acquire) == additions)
        return logCategoryMethod_.load(std::memory_order_relaxed);

    std::lock_guard lock(logCategoryLookupMutex_);
    // Counted again under the lock: the lookup below sees at least the additions counted here.
    const uint64_t seen = gClassMethodAdditions.load(std::memory_order_acquire);
    static const SEL sel = Selector::named("objectLogCategory");
    const Method* method = classMethod(sel);
    logCategoryMethod_.store(method, std::memory_order_relaxed);
    logCategoryLookupAdditions_.store(seen, std::memory_order_release);
    return method;
}

Ref<String> Class::description() const { return String::stringWithUTF8String(name_); }

} // namespace zon
