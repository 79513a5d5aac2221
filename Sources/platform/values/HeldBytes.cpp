#include "platform/values/HeldBytes.h"

#include "platform/values/String.h"

namespace zon {

Data* HeldBytes::exactData() const
{
    auto* data = dynamicCast<Data>(owner_.get());
    if (data && !data->isKindOfClass(MutableData::staticClass()) && data->bytes() == bytes_.data()
        && data->length() == bytes_.size())
        return const_cast<Data*>(data);
    return nullptr;
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
