#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/ComparisonResult.h"

namespace zon {

class String;

// How to order two objects: by the values key-value coding reads under a key (the objects
// themselves when the key is nil), compared by sending the comparison selector to the first
// value with the second as its argument ("compare:" unless told otherwise), the answer reversed
// when descending. A nil value orders before any other. Run-time class NSSortDescriptor;
// immutable.
class ZON_EXPORT SortDescriptor final : public Object {
    ZON_OBJECT(SortDescriptor, Object)
public:
    static Ref<SortDescriptor> sortDescriptorWithKey_ascending(String* key, bool ascending);
    static Ref<SortDescriptor> sortDescriptorWithKey_ascending_selector(String* key, bool ascending, SEL comparison);

    String* key() const { return key_.get(); }
    bool ascending() const { return ascending_; }
    SEL selector() const { return selector_; }
    // A descriptor on the same key and selector with the other direction.
    Ref<SortDescriptor> reversedSortDescriptor() const;

    // A value without the key raises NSUndefinedKeyException; one that does not answer the
    // selector raises NSInvalidArgumentException.
    ComparisonResult compareObject_toObject(Object* first, Object* second) const;

    // "(key, ascending, compare:)", as the platform prints it.
    Ref<String> description() const override;

private:
    SortDescriptor(Ref<String> key, bool ascending, SEL comparison);

    Ref<String> key_;
    bool ascending_;
    SEL selector_;
};

} // namespace zon
