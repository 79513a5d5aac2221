#pragma once

// Marks the classes, functions and constants that form the library's public ABI; everything
// else is hidden (the library builds with -fvisibility=hidden).
#define ZON_EXPORT __attribute__((visibility("default")))

#define ZON_CONCAT_INNER(a, b) a##b
#define ZON_CONCAT(a, b) ZON_CONCAT_INNER(a, b)
