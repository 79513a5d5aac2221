#include "platform/values/SortDescriptor.h"

#include "platform/runtime/Class.h"
#include "platform/runtime/MethodTypes.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(SortDescriptor, "NSSortDescriptor")

SortDescriptor::SortDescriptor(Ref<String> key, bool ascending, SEL comparison)
    : key_(std::move(key)), ascending_(ascending), selector_(comparison)
{
}

Ref<SortDescriptor> SortDescriptor::sortDescriptorWithKey_ascending(String* key, bool ascending)
{
    return sortDescriptorWithKey_ascending_selector(key, ascending, zon::selector("compare:"));
}

Ref<SortDescriptor> SortDescriptor::sortDescriptorWithKey_ascending_selector(String* key, bool ascending, SEL comparison)
{
    return makeObject<SortDescriptor>(String::stringWithString(key), ascending, comparison);
}

Ref<SortDescriptor> SortDescriptor::reversedSortDescriptor() const
{
    return makeObject<SortDescriptor>(key_, !ascending_, selector_);
}

ComparisonResult SortDescriptor::compareObject_toObject(Object* first, Object* second) const
{
    Ref<Object> a = key_ && first ? first->valueForKey(key_.get()) : Ref<Object>(first);
    Ref<Object> b = key_ && second ? second->valueForKey(key_.get()) : Ref<Object>(second);
    long long order; // below, at or above zero as a comes before, with or after b
    if (!a || !b)
        order = (a ? 1 : 0) - (b ? 1 : 0);
    else
        order = method_types::unboxSigned(a->performSelector(selector_, b.get()).get());
    if (!ascending_)
        order = -order;
    return order < 0 ? NSOrderedAscending : order > 0 ? NSOrderedDescending : NSOrderedSame;
}

Ref<String> SortDescriptor::description() const
{
    return String::stringWithFormat("(%@, %s, %@)", key_.get(), ascending_ ? "ascending" : "descending", selector_);
}

} // namespace zon
