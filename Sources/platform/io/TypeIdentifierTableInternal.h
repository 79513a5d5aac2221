#pragma once

#include <string_view>

namespace zon {

// The text of TypeIdentifiers.tsv, compiled in by the build.
extern const std::string_view kTypeIdentifierTable;

} // namespace zon
