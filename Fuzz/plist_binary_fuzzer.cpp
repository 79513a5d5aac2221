// Arbitrary bytes after the binary property-list magic: the reader must check every offset,
// count and reference, refuse cycles, deep nesting and exploding shared objects, and never crash.
// A document it accepts must convert to XML (unless a date is not finite) and read back as the
// same XML.

#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace zon;
    Ref<MutableData> bytes = MutableData::dataWithBytes("bplist00", 8);
    bytes->appendBytes_length(data, size);
    Ref<Error> error;
    Ref<Object> plist = PropertyListSerialization::propertyListWithData(bytes, &error);
    if (!plist) {
        if (!error || !error->localizedDescription())
            std::abort();
        return 0;
    }
    Ref<Data> xml = PropertyListSerialization::dataWithPropertyList(plist, NSPropertyListXMLFormat_v1_0, nullptr);
    if (!xml)
        return 0;
    Ref<Object> back = PropertyListSerialization::propertyListWithData(xml, nullptr);
    Ref<Data> again = back ? PropertyListSerialization::dataWithPropertyList(back, NSPropertyListXMLFormat_v1_0, nullptr) : nullptr;
    if (!again || !again->isEqualToData(xml))
        std::abort();
    return 0;
}
