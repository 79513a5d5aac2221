#pragma once

// A broken promise stops the fuzzer with a crash it reports and keeps the input of.

#include <cstdlib>

namespace zon::fuzz {

inline void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace zon::fuzz
