#pragma once

// Turns return addresses into symbol lines, one per address, in the form of an address-to-symbol
// tool:
//
//     function (in module) (file:line)    with line data
//     function (in module) + 0x1f         with a symbol only (offset from its start)
//     0x7f12ab34 (in module)              without a symbol
//
// Function names are as the binary holds them (mangled); readers demangle. The process has one
// current symboliser, replaceable at any time: the in-process one (libbacktrace, symbols of this
// executable and every loaded library) unless one was set; nil means none.

#include "platform/Export.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace zon {

class ZON_EXPORT StackSymbolizer {
public:
    virtual ~StackSymbolizer();
    // Safe to call from several threads at once.
    virtual std::vector<std::string> symbolize(std::span<const uintptr_t> addresses) = 0;

    // The in-process symboliser, made on first use. Its first use reads the debug information
    // (tens of milliseconds); later ones take microseconds. It maps files rather than allocating,
    // so the fatal-signal report can use it.
    static std::shared_ptr<StackSymbolizer> inProcess();
    // A new in-process symboliser that reads the debug information again on first use (for
    // measuring that first use; each one keeps its tables until the process ends).
    static std::shared_ptr<StackSymbolizer> makeInProcess();
    static std::shared_ptr<StackSymbolizer> current();
    static void setCurrent(std::shared_ptr<StackSymbolizer> symbolizer);
};

} // namespace zon
