// Placeholder body until the preview service lands.
#include "platform/graphics/PreviewService.h"

#include "platform/graphics/CGImage.h"

namespace zon {

std::optional<Preview> previewOfFile(const std::string&, uint32_t, uint32_t)
{
    return std::nullopt;
}

} // namespace zon
