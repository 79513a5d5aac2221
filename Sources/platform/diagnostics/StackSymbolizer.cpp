#include "platform/diagnostics/StackSymbolizer.h"

#include <backtrace.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <mutex>

namespace zon {

namespace {

// One libbacktrace state for the process (it is never freed: the library has no call for that).
// The state is made for threads, yet lookups on several threads at once race inside the library
// (ThreadSanitizer shows its allocator and its first reading of the debug information writing the
// same memory), so lookups take turns. Lookups take the address just before each return address,
// the call itself.
class BacktraceSymbolizer final : public StackSymbolizer {
public:
    std::vector<std::string> symbolize(std::span<const uintptr_t> addresses) override
    {
        std::vector<std::string> lines;
        lines.reserve(addresses.size());
        std::lock_guard lock(lookupMutex_);
        backtrace_state* state = this->state();
        for (uintptr_t address : addresses)
            lines.push_back(lineFor(state, address));
        return lines;
    }

private:
    struct Lookup {
        const char* function = nullptr;
        const char* file = nullptr;
        int line = 0;
        uintptr_t symbolStart = 0;
        bool found = false;
    };

    backtrace_state* state()
    {
        std::call_once(once_, [this] { state_ = backtrace_create_state(nullptr, 1, ignoreError, nullptr); });
        return state_;
    }

    static void ignoreError(void*, const char*, int) { }

    // Inlined calls are reported innermost first: the first is the code at the address, and its
    // file and line belong to it.
    static int takeInnermostFrame(void* data, uintptr_t, const char* file, int line, const char* function)
    {
        auto* lookup = static_cast<Lookup*>(data);
        if (!function)
            return 0;
        lookup->function = function;
        lookup->file = file;
        lookup->line = line;
        lookup->found = true;
        return 1;
    }

    static void takeSymbol(void* data, uintptr_t, const char* name, uintptr_t start, uintptr_t)
    {
        auto* lookup = static_cast<Lookup*>(data);
        if (name) {
            lookup->function = name;
            lookup->symbolStart = start;
        }
    }

    static std::string moduleOf(uintptr_t address)
    {
        Dl_info info {};
        if (!::dladdr(reinterpret_cast<void*>(address), &info) || !info.dli_fname || !*info.dli_fname)
            return "???";
        const char* slash = std::strrchr(info.dli_fname, '/');
        return slash ? slash + 1 : info.dli_fname;
    }

    static std::string lineFor(backtrace_state* state, uintptr_t address)
    {
        const uintptr_t call = address ? address - 1 : 0;
        const std::string module = moduleOf(address);
        Lookup lookup;
        if (state)
            backtrace_pcinfo(state, call, takeInnermostFrame, ignoreError, &lookup);
        char text[64];
        if (lookup.found && lookup.file && lookup.line > 0) {
            const char* slash = std::strrchr(lookup.file, '/');
            std::snprintf(text, sizeof text, ":%d)", lookup.line);
            return std::string(lookup.function) + " (in " + module + ") (" + (slash ? slash + 1 : lookup.file) + text;
        }
        lookup = {};
        if (state)
            backtrace_syminfo(state, call, takeSymbol, ignoreError, &lookup);
        if (lookup.function) {
            std::snprintf(text, sizeof text, " + 0x%" PRIxPTR, address - lookup.symbolStart);
            return std::string(lookup.function) + " (in " + module + ")" + text;
        }
        std::snprintf(text, sizeof text, "0x%" PRIxPTR, address);
        return text + (" (in " + module + ")");
    }

    std::mutex lookupMutex_;
    std::once_flag once_;
    backtrace_state* state_ = nullptr;
};

struct CurrentSymbolizer {
    std::mutex mutex;
    bool chosen = false;
    std::shared_ptr<StackSymbolizer> symbolizer;
};

CurrentSymbolizer& currentSymbolizer()
{
    static auto* const current = new CurrentSymbolizer; // lives as long as the process: crash reports use it
    return *current;
}

} // namespace

StackSymbolizer::~StackSymbolizer() = default;

std::shared_ptr<StackSymbolizer> StackSymbolizer::inProcess()
{
    static auto* const shared = new std::shared_ptr<StackSymbolizer>(makeInProcess());
    return *shared;
}

std::shared_ptr<StackSymbolizer> StackSymbolizer::makeInProcess() { return std::make_shared<BacktraceSymbolizer>(); }

std::shared_ptr<StackSymbolizer> StackSymbolizer::current()
{
    auto& current = currentSymbolizer();
    std::lock_guard lock(current.mutex);
    if (!current.chosen) {
        current.symbolizer = inProcess();
        current.chosen = true;
    }
    return current.symbolizer;
}

void StackSymbolizer::setCurrent(std::shared_ptr<StackSymbolizer> symbolizer)
{
    auto& current = currentSymbolizer();
    std::lock_guard lock(current.mutex);
    current.symbolizer = std::move(symbolizer);
    current.chosen = true;
}

} // namespace zon
