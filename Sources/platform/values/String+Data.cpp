#include "platform/values/Data.h"

#include "platform/values/String.h"
#include "platform/values/UTF.h"

namespace zon {

// Bridges between strings and their UTF-8 bytes.

Ref<Data> Data::dataWithUTF8OfString(const String* string)
{
    if (!string)
        return nullptr;
    ByteVector bytes;
    utf::appendUTF16ToUTF8(string->view(), bytes);
    return dataWithVector(std::move(bytes));
}

Ref<String> stringWithUTF8Data(const Data* data)
{
    if (!data)
        return nullptr;
    auto bytes = data->span();
    return String::stringWithUTF8String(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

} // namespace zon
