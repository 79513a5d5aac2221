#include "platform/io/FinderMetadataStore.h"

namespace zon {

std::optional<FinderInfoBytes> readFinderInfo(const std::string&) { return std::nullopt; }

bool writeFinderInfo(const std::string&, const FinderInfoBytes&) { return false; }

std::vector<uint8_t> readResourceFork(const std::string&) { return {}; }

bool writeResourceFork(const std::string&, std::span<const uint8_t>) { return false; }

} // namespace zon
