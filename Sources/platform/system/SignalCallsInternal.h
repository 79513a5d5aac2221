#pragma once

// Fatal signals and the memory and timer calls around them. The calls marked async-signal-safe
// are the only ones the fatal-signal handler itself makes: they take no lock, allocate nothing and
// report failure by their result alone.

#include "platform/system/SystemResult.h"

#include <csignal>
#include <cstddef>

namespace zon {

using SignalHandler = void (*)(int signal, siginfo_t* info, void* context);

// sigaction(2) with SA_SIGINFO added to flags and every signal unblocked during the handler.
ZON_EXPORT SystemResult<> installSignalHandler(int signal, SignalHandler handler, int flags);
// Anonymous read-write memory for an alternate signal stack, and its release.
ZON_EXPORT SystemResult<void*> mapSignalStack(size_t bytes);
ZON_EXPORT void unmapSignalStack(void* base, size_t bytes) noexcept;
// sigaltstack(2) for the calling thread; a null base disables it.
ZON_EXPORT SystemResult<> setAlternateSignalStack(void* base, size_t bytes);

// Async-signal-safe: the default action back for signal.
ZON_EXPORT void restoreDefaultSignalAction(int signal) noexcept;
// Async-signal-safe: sends signal to the calling thread; it arrives once unblocked.
ZON_EXPORT void raiseSignal(int signal) noexcept;
// Async-signal-safe: lets signal through to the calling thread.
ZON_EXPORT void unblockSignal(int signal) noexcept;
// Async-signal-safe: SIGALRM after seconds (0 cancels).
ZON_EXPORT void armAlarm(unsigned seconds) noexcept;
// Async-signal-safe: writes what it can of text to standard error.
ZON_EXPORT void writeToStandardError(const char* text, size_t length) noexcept;

} // namespace zon
