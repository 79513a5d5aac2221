#include "platform/io/FinderMetadataStore.h"

namespace zon {

// No store is read yet: every file answers that it has no Finder information.
std::optional<FinderInfoBytes> readFinderInfo(const std::string&)
{
    return std::nullopt;
}

} // namespace zon
