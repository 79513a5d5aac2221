// Reads arbitrary bytes as a ".thumbnailer" file and fills in its command line, as the preview
// service does with the files packages install. Checks that an accepted file has a command and
// that the filled-in arguments come only from the file and the request.

#include "FuzzSupport.h"

#include "platform/graphics/ThumbnailerFilesInternal.h"

#include <cstdint>
#include <string_view>

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::optional<Thumbnailer> thumbnailer = parseThumbnailer(bytes);
    if (!thumbnailer)
        return 0;
    const ThumbnailerRequest request {"file:///a%20b", "/a b", "/tmp/out.png", 256};
    const auto arguments = thumbnailerArguments(*thumbnailer, request);
    if (!arguments)
        return 0;
    fuzz::check(!arguments->empty());
    // Each code adds at most the longest value; the rest comes from the Exec text.
    size_t total = 0;
    for (const std::string& argument : *arguments)
        total += argument.size();
    fuzz::check(total <= thumbnailer->exec.size() * (1 + request.outputPath.size()));
    return 0;
}
