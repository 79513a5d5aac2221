#include "platform/values/HeldBytes.h"

#include "platform/values/String.h"

namespace zon {

HeldBytes::HeldBytes(Ref<Data> data)
    : bytes_(data ? data->span() : std::span<const uint8_t>())
    , owner_(std::move(data))
    , ownerIsData_(owner_ && !owner_->isKindOfClass(MutableData::staticClass()))
{
}

Ref<Data> HeldBytes::data() const
{
    if (!owner_)
        return nullptr;
    if (Data* exact = exactData())
        return Ref<Data>(exact);
    return Data::dataWithBytes(bytes_);
}

HeldBytes HeldBytes::utf8OfString(const String* string)
{
    const char* ascii = string ? string->asciiCharacters() : nullptr;
    if (!ascii || dynamicCast<Data>(string->asciiOwner()))
        return Data::dataWithUTF8OfString(string); // gives back the data a string refers to
    const std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t*>(ascii), string->length());
    return HeldBytes(bytes, Ref<Object>(const_cast<String*>(string)));
}

} // namespace zon
