#pragma once

#include "platform/runtime/MethodSignature.h"
#include "platform/runtime/MethodTypes.h"
#include "platform/runtime/Object.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zon {

// The body of a method callable by selector: the receiver, the selector it was called under and
// the argument objects (missing trailing arguments read as nil).
using Implementation = std::function<Ref<Object>(Object* self, SEL cmd, Arguments arguments)>;

struct Method {
    SEL selector;
    std::string types;
    unsigned numberOfArguments; // receiver and selector included
    Implementation implementation;
    Ref<MethodSignature> signature; // parsed once, shared by every caller
};

// A run-time class: its name, its superclass and a table of methods callable by selector, for
// its instances and for the class itself. Methods may be added at any time from any thread and
// are looked up through the superclass chain; they are never removed, so a Method pointer stays
// valid for the life of the process. Classes are immortal and registered by name.
class ZON_EXPORT Class final : public Object {
public:
    static Class* staticClass();
    Class* objectClass() const override;

    // The class registered under this name (NSClassFromString), or null.
    static Class* named(std::string_view name);

    // Registers the run-time class of the C++ class Self under name and runs
    // Self::exportMethods on it when Self declares one. Used by ZON_DEFINE_CLASS.
    template <class Self>
    static Class* define(std::string_view name);
    // Registers a class with no C++ class of its own (the root classes use this too).
    static Class* defineClass(std::string_view name, Class* superclass);

    const std::string& name() const { return name_; }
    Class* superclass() const { return superclass_; }
    bool isSubclassOfClass(const Class* other) const;

    // Adds an instance method unless this class itself already has one under sel (a base class
    // having it does not matter); answers whether it was added. Unparsable types raise.
    bool addMethod(SEL sel, std::string_view types, Implementation implementation);
    bool addClassMethod(SEL sel, std::string_view types, Implementation implementation);
    // Through the superclass chain; null when no class of the chain has it.
    const Method* instanceMethod(SEL sel) const;
    const Method* classMethod(SEL sel) const;
    bool instancesRespondToSelector(SEL sel) const { return instanceMethod(sel) != nullptr; }

    // Exports a C++ member function for calls by selector; the type encoding follows from its
    // signature. Arguments are checked against the parameter classes (a mismatch raises
    // NSInvalidArgumentException) and scalars travel boxed as numbers.
    template <class T, class R, class... Params>
    bool exportMethod(std::string_view sel, R (T::*function)(Params...));
    template <class T, class R, class... Params>
    bool exportMethod(std::string_view sel, R (T::*function)(Params...) const);
    // Exports a static function as a class method.
    template <class R, class... Params>
    bool exportClassMethod(std::string_view sel, R (*function)(Params...));

    // Makes a new instance with the class's default factory, or nil when it has none.
    Ref<Object> createInstance() const;
    void setInstanceFactory(std::function<Ref<Object>()> factory);

    // The class operation objectLogCategory: "default" unless this class or a base class
    // exports its own, asked again at each call. Defined with the logging extensions.
    String* logCategory() const;
    // classMethod(objectLogCategory). Every log line asks, so the lookup is kept until a class
    // method is added anywhere; the method's answer is never kept.
    const Method* logCategoryMethod() const;
    String* objectLogCategory() const override { return logCategory(); }

    Ref<String> description() const override;
    const Method* methodForSelector(SEL sel) const override { return classMethod(sel); }

private:
    Class(std::string name, Class* superclass);

    // Lookups read an immutable snapshot without locking; an addition copies the snapshot under
    // the writer lock and publishes the copy. Methods are added rarely (mostly when a class is
    // defined), so superseded snapshots are simply kept: no reader can be left holding a freed one.
    struct MethodTable {
        using Snapshot = std::unordered_map<SEL, const Method*>;
        std::mutex writerMutex;
        std::atomic<const Snapshot*> snapshot {nullptr};
        std::vector<std::unique_ptr<const Snapshot>> snapshots; // every one published, under writerMutex
        std::vector<std::unique_ptr<const Method>> methods;     // under writerMutex
        const Method* find(SEL sel) const;
        bool add(SEL sel, std::string_view types, Implementation implementation);
    };

    std::string name_;
    Class* superclass_;
    MethodTable instanceMethods_;
    MethodTable classMethods_;
    std::function<Ref<Object>()> instanceFactory_;
    // logCategoryMethod's last lookup and the count of class method additions it saw; lookups
    // are made under the mutex, so a slower lookup cannot overwrite a newer one.
    mutable std::mutex logCategoryLookupMutex_;
    mutable std::atomic<const Method*> logCategoryMethod_ {nullptr};
    mutable std::atomic<uint64_t> logCategoryLookupAdditions_ {0};
};

template <class Self>
Class* Class::define(std::string_view name)
{
    Class* superclass = nullptr;
    if constexpr (!std::is_same_v<Self, Object>)
        superclass = Self::Super::staticClass();
    Class* cls = defineClass(name, superclass);
    if constexpr (requires { &Self::exportMethods; }) {
        bool own = true;
        if constexpr (requires { &Self::Super::exportMethods; })
            own = &Self::exportMethods != &Self::Super::exportMethods;
        if (own)
            Self::exportMethods(*cls);
    }
    return cls;
}

namespace method_types {

template <class T, class R, class F, class... Params, size_t... I>
Ref<Object> callMember(Object* self, Arguments arguments, F function, std::index_sequence<I...>)
{
    auto* receiver = static_cast<T*>(self);
    if constexpr (std::is_void_v<R>) {
        (receiver->*function)(Traits<Decayed<Params>>::fromObject(argumentAt<I>(arguments))...);
        return nullptr;
    } else {
        return Traits<Decayed<R>>::toObject(
            (receiver->*function)(Traits<Decayed<Params>>::fromObject(argumentAt<I>(arguments))...));
    }
}

template <class R, class... Params, size_t... I>
Ref<Object> callStatic(Arguments arguments, R (*function)(Params...), std::index_sequence<I...>)
{
    if constexpr (std::is_void_v<R>) {
        function(Traits<Decayed<Params>>::fromObject(argumentAt<I>(arguments))...);
        return nullptr;
    } else {
        return Traits<Decayed<R>>::toObject(
            function(Traits<Decayed<Params>>::fromObject(argumentAt<I>(arguments))...));
    }
}

} // namespace method_types

template <class T, class R, class... Params>
bool Class::exportMethod(std::string_view sel, R (T::*function)(Params...))
{
    return addMethod(Selector::named(sel), method_types::encodingOf<R, Params...>(),
        [function](Object* self, SEL, Arguments arguments) {
            return method_types::callMember<T, R, decltype(function), Params...>(
                self, arguments, function, std::index_sequence_for<Params...>());
        });
}

template <class T, class R, class... Params>
bool Class::exportMethod(std::string_view sel, R (T::*function)(Params...) const)
{
    return addMethod(Selector::named(sel), method_types::encodingOf<R, Params...>(),
        [function](Object* self, SEL, Arguments arguments) {
            return method_types::callMember<T, R, decltype(function), Params...>(
                self, arguments, function, std::index_sequence_for<Params...>());
        });
}

template <class R, class... Params>
bool Class::exportClassMethod(std::string_view sel, R (*function)(Params...))
{
    return addClassMethod(Selector::named(sel), method_types::encodingOf<R, Params...>(),
        [function](Object*, SEL, Arguments arguments) {
            return method_types::callStatic(arguments, function, std::index_sequence_for<Params...>());
        });
}

} // namespace zon
