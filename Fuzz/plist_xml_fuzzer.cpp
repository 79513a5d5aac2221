// Arbitrary bytes as an XML property list: the reader must refuse or accept without crashing, and
// whatever it accepts must write out and read back to the same document (the written form of a
// value read from XML is a fixed point).

#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

zon::Ref<zon::Data> rewrite(zon::Data* bytes, zon::PropertyListFormat* format)
{
    using namespace zon;
    Ref<Error> error;
    Ref<Object> plist = PropertyListSerialization::propertyListWithData(bytes, &error, format);
    if (!plist) {
        if (!error || !error->localizedDescription())
            std::abort(); // a refusal always says why
        return nullptr;
    }
    return PropertyListSerialization::dataWithPropertyList(plist, NSPropertyListXMLFormat_v1_0, nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace zon;
    PropertyListFormat format {};
    Ref<Data> first = rewrite(Data::dataWithBytes(data, size), &format);
    if (!first)
        return 0; // refused, or read but not writable (only a binary date can be)
    Ref<Data> second = rewrite(first, &format);
    if (!second || !second->isEqualToData(first))
        std::abort();
    return 0;
}
