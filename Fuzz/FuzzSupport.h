#pragma once

// What several fuzz targets share: how a broken promise stops the run, and how input bytes
// become a string whatever they hold.

#include "platform/values/String.h"

#include <cstdlib>
#include <string_view>

namespace zon::fuzz {

// Stops the run (libFuzzer keeps the input) when a promise does not hold.
inline void check(bool condition)
{
    if (!condition)
        std::abort();
}

// The bytes as UTF-8, or as Latin-1 when they are not UTF-8, so every input makes a string.
inline Ref<String> textOf(std::string_view bytes)
{
    Ref<String> text = String::stringWithUTF8String(bytes);
    return text ? text : String::initWithBytes_length_encoding(bytes.data(), bytes.size(), NSISOLatin1StringEncoding);
}

} // namespace zon::fuzz
