#pragma once

#include <climits>
#include <cstddef>

namespace zon {

// "Not found" for indexes and range locations, as the platform defines it.
inline constexpr size_t NSNotFound = static_cast<size_t>(LONG_MAX);

// A run of UTF-16 units, bytes or elements: where it starts and how long it is.
struct Range {
    size_t location = 0;
    size_t length = 0;

    constexpr size_t end() const { return location + length; }
    constexpr bool operator==(const Range&) const = default;
};

constexpr Range makeRange(size_t location, size_t length) { return Range {location, length}; }

} // namespace zon
