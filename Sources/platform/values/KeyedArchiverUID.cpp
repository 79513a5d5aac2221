#include "platform/values/KeyedArchiverUID.h"

#include "platform/runtime/Class.h"
#include "platform/values/String.h"

#include <functional>

namespace zon {

ZON_DEFINE_CLASS(KeyedArchiverUID, "NSKeyedArchiverUID")

Ref<KeyedArchiverUID> KeyedArchiverUID::uidWithValue(uint64_t value) { return makeObject<KeyedArchiverUID>(value); }

Ref<String> KeyedArchiverUID::description() const
{
    return String::stringWithUTF8String("<UID " + std::to_string(value_) + ">");
}

bool KeyedArchiverUID::isEqual(const Object* other) const
{
    const auto* uid = dynamicCast<KeyedArchiverUID>(other);
    return uid && uid->value_ == value_;
}

size_t KeyedArchiverUID::hash() const { return std::hash<uint64_t>()(value_); }

Ref<Object> KeyedArchiverUID::copy() const { return Ref<Object>(const_cast<KeyedArchiverUID*>(this)); }

} // namespace zon
