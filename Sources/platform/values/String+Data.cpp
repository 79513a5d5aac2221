#include "platform/values/Data.h"

#include "platform/values/String.h"
#include "platform/values/StringInternal.h"
#include "platform/values/UTF.h"

namespace zon {

// Bridges between strings and their UTF-8 bytes. Long ASCII text made from all of an immutable
// data object's bytes refers to that object, and gives it back as its UTF-8: text that passes
// through unchanged (an echo, a relay) is never copied.

Ref<Data> Data::dataWithUTF8OfString(const String* string)
{
    if (!string)
        return nullptr;
    const char* ascii = string->asciiCharacters();
    if (auto* owner = dynamicCast<Data>(string->asciiOwner());
        owner && owner->bytes() == ascii && owner->length() == string->length())
        return Ref<Data>(const_cast<Data*>(owner));
    ByteVector bytes;
    if (ascii)
        bytes.assign(ascii, ascii + string->length());
    else
        utf::appendUTF16ToUTF8(string->view(), bytes);
    return dataWithVector(std::move(bytes));
}

Ref<String> stringWithUTF8Data(const Data* data)
{
    if (!data)
        return nullptr;
    const std::string_view bytes(static_cast<const char*>(data->bytes()), data->length());
    if (!data->isKindOfClass(MutableData::staticClass())) {
        if (auto borrowing = StringBuilder::borrowingLongASCII(bytes, data))
            return borrowing;
    }
    return String::stringWithUTF8String(bytes);
}

} // namespace zon
