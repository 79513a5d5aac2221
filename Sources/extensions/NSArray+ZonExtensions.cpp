// NSArray(ZonExtensions): sorting by one descriptor, shuffled and reversed copies, and indexing
// the elements by a key each one answers.

#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/SortDescriptor.h"

#include <algorithm>

namespace zon {

namespace {
// The line the suite's logs give for a selector the elements do not answer.
constexpr int kLineCannotFetch = 48;
} // namespace

Ref<Array> Array::sortedArrayUsingDescriptor(SortDescriptor* descriptor) const
{
    return sortedArrayUsingDescriptors(descriptor ? Array::arrayWithObject(descriptor).get() : nullptr);
}

Ref<Array> Array::shuffledArray() const
{
    Ref<MutableArray> shuffled = MutableArray::arrayWithArray(this);
    shuffled->shuffle();
    return makeObject<Array>(std::move(shuffled->objects_)); // the copy is ours alone: take its elements
}

Ref<Array> Array::reverseArray() const
{
    return makeObject<Array>(std::vector<Ref<Object>>(objects_.rbegin(), objects_.rend()));
}

Ref<Dictionary> Array::dictionaryKeyWithSelector(SEL sel) const
{
    if (isEmpty())
        return Dictionary::dictionary();
    if (!firstObject()->respondsToSelector(sel)) {
        zon_log_obj(__FILE__, kLineCannotFetch, this, logger::kLevelError, kDefaultLogIdentifier,
            "Cannot fetch with %@", sel);
        return nullptr;
    }
    Ref<MutableDictionary> byKey = MutableDictionary::dictionaryWithCapacity(count());
    for (Object* element : *this)
        byKey->setObject_forKey(element, element->performSelector(sel).get());
    return Dictionary::dictionaryWithDictionary(byKey.get());
}

} // namespace zon
