#pragma once

namespace zon {

enum ComparisonResult : long {
    NSOrderedAscending = -1,
    NSOrderedSame = 0,
    NSOrderedDescending = 1,
};

} // namespace zon
