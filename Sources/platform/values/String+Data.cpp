#include "platform/values/Data.h"

#include "platform/values/String.h"

namespace zon {

// Bridges between strings and their UTF-8 bytes.

Ref<Data> Data::dataWithUTF8OfString(const String* string)
{
    if (!string)
        return nullptr;
    std::string utf8 = string->UTF8String();
    return dataWithVector(std::vector<uint8_t>(utf8.begin(), utf8.end()));
}

Ref<String> stringWithUTF8Data(const Data* data)
{
    if (!data)
        return nullptr;
    auto bytes = data->span();
    return String::stringWithUTF8String(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

} // namespace zon
