// Raising with and without the exception handler watching (it records the raising stack), and
// symbolising a 35-frame stack in process: cold (the first use reads the debug information) and
// warm, against libdw (elfutils) and eu-addr2line started per trace, when they are installed
// (`scripts/bootstrap bench`).

#include "RatioReporter.h"

#include "exceptions/TXZonBaseException.h"
#include "logger/Logger.h"
#include "platform/diagnostics/ExceptionHandler.h"
#include "platform/diagnostics/StackSymbolizer.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <execinfo.h>
#include <string>
#include <unistd.h>
#include <vector>

#ifdef ZON_BENCH_HAVE_LIBDW
#include <elfutils/libdwfl.h>
#endif

using namespace zon;

namespace {

constexpr int kFrames = 35;

__attribute__((noinline)) void captureAtDepth(int depth, std::vector<uintptr_t>& out)
{
    if (depth > 0) {
        captureAtDepth(depth - 1, out);
        benchmark::DoNotOptimize(depth);
        return;
    }
    void* frames[kFrames];
    const int count = ::backtrace(frames, kFrames);
    for (int i = 0; i < count; ++i)
        out.push_back(reinterpret_cast<uintptr_t>(frames[i]));
}

// A stack of exactly 35 return addresses, most of them in captureAtDepth.
const std::vector<uintptr_t>& stack35()
{
    static const std::vector<uintptr_t> stack = [] {
        std::vector<uintptr_t> out;
        captureAtDepth(kFrames, out);
        return out;
    }();
    return stack;
}

void raiseAndCatch(benchmark::State& state, unsigned mask)
{
    ExceptionHandler::defaultExceptionHandler()->setExceptionHandlingMask(mask);
    auto exception = TXZonBaseException::exceptionWithReason(ZSTR("measured"));
    for (auto _ : state) {
        try {
            exception->raise();
        } catch (const TXZonBaseException& caught) {
            benchmark::DoNotOptimize(caught.userInfo());
        }
    }
    ExceptionHandler::defaultExceptionHandler()->setExceptionHandlingMask(0);
}

void BM_RaiseCatch(benchmark::State& state) { raiseAndCatch(state, 0); }
// Watching top-level exceptions only: each raise records its stack, nothing is reported.
void BM_RaiseCatchWatched(benchmark::State& state) { raiseAndCatch(state, NSLogTopLevelExceptionMask); }
BENCHMARK(BM_RaiseCatch);
BENCHMARK(BM_RaiseCatchWatched);

void BM_SymbolizeWarm(benchmark::State& state)
{
    auto symbolizer = StackSymbolizer::inProcess();
    benchmark::DoNotOptimize(symbolizer->symbolize(stack35()));
    for (auto _ : state)
        benchmark::DoNotOptimize(symbolizer->symbolize(stack35()));
}
BENCHMARK(BM_SymbolizeWarm)->Unit(benchmark::kMicrosecond);

void BM_SymbolizeCold(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(StackSymbolizer::makeInProcess()->symbolize(stack35()));
}
BENCHMARK(BM_SymbolizeCold)->Unit(benchmark::kMillisecond)->Iterations(5);

#ifdef ZON_BENCH_HAVE_LIBDW
const Dwfl_Callbacks kProcessCallbacks = { dwfl_linux_proc_find_elf, dwfl_standard_find_debuginfo, nullptr, nullptr };

Dwfl* reportProcess()
{
    Dwfl* dwfl = dwfl_begin(&kProcessCallbacks);
    dwfl_linux_proc_report(dwfl, ::getpid());
    dwfl_report_end(dwfl, nullptr, nullptr);
    return dwfl;
}

std::vector<std::string> symbolizeWithLibdw(Dwfl* dwfl, const std::vector<uintptr_t>& stack)
{
    std::vector<std::string> lines;
    for (uintptr_t address : stack) {
        const Dwarf_Addr call = address - 1;
        Dwfl_Module* module = dwfl_addrmodule(dwfl, call);
        const char* name = module ? dwfl_module_addrname(module, call) : nullptr;
        int line = 0;
        const char* file = nullptr;
        if (Dwfl_Line* source = module ? dwfl_module_getsrc(module, call) : nullptr)
            file = dwfl_lineinfo(source, nullptr, &line, nullptr, nullptr, nullptr);
        lines.push_back(std::string(name ? name : "?") + " (" + (file ? file : "?") + ":" + std::to_string(line) + ")");
    }
    return lines;
}

void BM_SymbolizeLibdwWarm(benchmark::State& state)
{
    Dwfl* dwfl = reportProcess();
    benchmark::DoNotOptimize(symbolizeWithLibdw(dwfl, stack35()));
    for (auto _ : state)
        benchmark::DoNotOptimize(symbolizeWithLibdw(dwfl, stack35()));
    dwfl_end(dwfl);
}
BENCHMARK(BM_SymbolizeLibdwWarm)->Unit(benchmark::kMicrosecond);
#endif

#ifdef ZON_BENCH_EU_ADDR2LINE
// The address-to-symbol tool's way: a process per trace that reads this one's memory map.
void BM_SymbolizeAddr2lineTool(benchmark::State& state)
{
    std::string command = ZON_BENCH_EU_ADDR2LINE " -f -C --pid=" + std::to_string(::getpid());
    char hex[32];
    for (uintptr_t address : stack35()) {
        std::snprintf(hex, sizeof hex, " 0x%lx", static_cast<unsigned long>(address - 1));
        command += hex;
    }
    for (auto _ : state) {
        FILE* pipe = ::popen(command.c_str(), "r");
        if (!pipe) {
            state.SkipWithError("popen failed");
            break;
        }
        std::string output;
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            output.append(buffer, n);
        ::pclose(pipe);
        if (output.find("captureAtDepth") == std::string::npos) {
            state.SkipWithError("eu-addr2line did not name the frames");
            break;
        }
    }
}
BENCHMARK(BM_SymbolizeAddr2lineTool)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();
#endif

} // namespace

int main(int argc, char** argv)
{
    AutoreleasePool pool;
    // The tool runs in another process, so it is timed by the wall clock; the rest by the CPU.
    bench::RatioReporter reporter([](const benchmark::BenchmarkReporter::Run& run) {
        return run.benchmark_name().find("Addr2line") != std::string::npos ? bench::RatioReporter::realTime(run)
                                                                           : bench::RatioReporter::cpuTime(run);
    });
    auto report = [](bench::RatioReporter& ran) {
        const double added = ran.nanoseconds("BM_RaiseCatchWatched") - ran.nanoseconds("BM_RaiseCatch");
        std::printf(
            "a watched raise costs %.2f us more (35-frame stacks: %zu frames here)\n", added / 1e3, stack35().size());
        ran.printSpeedup("BM_SymbolizeWarm", "BM_SymbolizeLibdwWarm");
        ran.printSpeedup("BM_SymbolizeWarm", "BM_SymbolizeAddr2lineTool/iterations:10/real_time");
    };
    return bench::runAndReport(argc, argv, reporter, report, [] {
        for (const auto& sink : logger::sinks()) // the "created" lines are not what is measured
            logger::removeSink(sink);
        stack35();
    });
}
