#include "extensions/NSObject+ZonExtensions.h"

#include "platform/runtime/Class.h"
#include "platform/runtime/Proxy.h"
#include "platform/runtime/RootClassInternal.h"
#include "platform/values/String.h"

namespace zon {

ZON_STRING_CONSTANT(kLogNetworkCommIdentifier, "networkcomm");

namespace {
ZON_STRING_CONSTANT(kDefaultLogCategory, "default");
} // namespace

void detail::addRootClassMethods(Class* root)
{
    root->exportClassMethod("objectLogCategory", +[]() -> String* { return kDefaultLogCategory; });
}

namespace {
SEL logCategorySelector()
{
    static const SEL sel = Selector::named("objectLogCategory");
    return sel;
}

// Whether method is a root's own objectLogCategory, which answers "default" and so need not be
// called. A root's own method is never replaced, so its pointer stays the same.
bool answersDefaultCategory(const Method* method)
{
    static const Method* const rootMethods[] = {
        Object::staticClass()->classMethod(logCategorySelector()),
        Proxy::staticClass()->classMethod(logCategorySelector()),
    };
    return method == rootMethods[0] || method == rootMethods[1];
}
} // namespace

// Asked at every call, so an override whose answer changes, or one added after the class has
// logged, takes effect on the next line. An answer that is not a string reads as "default".
String* Class::logCategory() const
{
    const Method* method = logCategoryMethod();
    if (!method || answersDefaultCategory(method))
        return kDefaultLogCategory;
    Ref<Object> answer = method->implementation(const_cast<Class*>(this), logCategorySelector(), {});
    auto* category = dynamicCast<String>(answer.get());
    if (!category)
        return kDefaultLogCategory;
    // Constant strings need no owner; a computed one lives until the thread's pool drains.
    if (!category->isImmortal())
        answer.leakRef()->autorelease();
    return category;
}

// The class operation decides, so a class that overrides it changes all its instances.
String* Object::objectLogCategory() const { return objectClass()->logCategory(); }

} // namespace zon
