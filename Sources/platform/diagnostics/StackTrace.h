#pragma once

// Call stacks as the exception handler records them: up to 128 return addresses, innermost
// first, written "0x%lx" and joined by two spaces. That text travels in an exception's user info
// under NSStackTraceKey.

#include "platform/Export.h"
#include "platform/runtime/Ref.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace zon {

class String;

inline constexpr size_t kMaximumStackFrames = 128;
// The longest stack text: 128 addresses of at most 18 characters and their separators.
inline constexpr size_t kMaximumStackTraceLength = kMaximumStackFrames * 20;

ZON_EXPORT extern String* const NSStackTraceKey;

// Loads the unwinder now, so that later captures (also one on the fatal-signal path) neither load
// a library nor allocate.
ZON_EXPORT void loadUnwinder();
// The return addresses of the caller's stack, innermost first (this function's own frame left
// out); answers how many were written.
ZON_EXPORT size_t captureReturnAddresses(std::span<void*> frames) noexcept;
// Writes the stack text of frames into out without allocating; answers its length. Addresses that
// do not fit whole are left out.
ZON_EXPORT size_t formatStackTrace(std::span<void* const> frames, std::span<char> out) noexcept;
// The stack text of the caller's stack.
ZON_EXPORT Ref<String> currentStackTraceText();
// The addresses of a stack text: each blank-separated token that is a whole hexadecimal number
// (with or without "0x"); other tokens are skipped.
ZON_EXPORT std::vector<uintptr_t> returnAddressesOfStackTrace(std::string_view text);

} // namespace zon
