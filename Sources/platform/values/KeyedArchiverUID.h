#pragma once

#include "platform/runtime/Object.h"

#include <cstdint>

namespace zon {

// A reference from one object of a keyed archive to another: the index of the referenced object
// in the archive's `$objects` array. Binary property lists hold it as a value type of its own;
// XML property lists have no such type and write it as the one-entry dictionary
// <dict><key>CF$UID</key><integer>N</integer></dict>, which reads back as that dictionary.
// Immutable; equal when the indexes are. Run-time class NSKeyedArchiverUID.
class ZON_EXPORT KeyedArchiverUID final : public Object {
    ZON_OBJECT(KeyedArchiverUID, Object)
public:
    static Ref<KeyedArchiverUID> uidWithValue(uint64_t value);

    uint64_t value() const { return value_; }

    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<Object> copy() const override;

private:
    explicit KeyedArchiverUID(uint64_t value) : value_(value) {}

    const uint64_t value_;
};

} // namespace zon
