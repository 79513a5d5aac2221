#include "platform/io/ResourceFile.h"

namespace zon {

std::optional<std::vector<Resource>> decodeResourceFile(std::span<const uint8_t>) { return std::nullopt; }

std::vector<uint8_t> encodeResourceFile(const std::vector<Resource>&) { return {}; }

std::string fourCharCodeText(uint32_t) { return {}; }

} // namespace zon
