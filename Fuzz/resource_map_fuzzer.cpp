// The resource fork reader: any bytes give resources or nullopt; what it reads writes back to
// bytes that read as the same resources.

#include "FuzzSupport.h"

#include "platform/io/ResourceFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    auto resources = zon::decodeResourceFile({data, size});
    if (!resources)
        return 0;
    auto again = zon::decodeResourceFile(zon::encodeResourceFile(*resources));
    zon::fuzz::check(again && again->size() == resources->size());
    for (size_t i = 0; i < again->size(); ++i) {
        // Written grouped by type, so compare each resource with its own kind.
        size_t matches = 0;
        for (const auto& other : *resources)
            matches += other.type == (*again)[i].type && other.id == (*again)[i].id && other.data == (*again)[i].data;
        zon::fuzz::check(matches > 0);
    }
    return 0;
}
