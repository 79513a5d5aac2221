// The formatting engine on two typical log lines, to UTF-8 (the logger path) and to a String,
// against snprintf of the same lines with the strings already in UTF-8 (what a C caller would
// write instead).

#include "RatioReporter.h"
#include "platform/values/Format.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <cstdio>

using namespace zon;

namespace {

constexpr const char* kStarted = "IPC Service Started with name: %@";
constexpr const char* kWrote = "%@ *| Buffer Stream Wrote %d of %u from %@";

void BM_FormatUTF8StartedLine(benchmark::State& state)
{
    Ref<String> name = String::stringWithUTF8String("com.example.mediaserver");
    for (auto _ : state)
        benchmark::DoNotOptimize(formatUTF8(kStarted, name));
}
BENCHMARK(BM_FormatUTF8StartedLine);

void BM_SnprintfStartedLine(benchmark::State& state)
{
    const char* name = "com.example.mediaserver";
    for (auto _ : state) {
        char buffer[256];
        std::snprintf(buffer, sizeof buffer, "IPC Service Started with name: %s", name);
        benchmark::DoNotOptimize(std::string(buffer));
    }
}
BENCHMARK(BM_SnprintfStartedLine);

void BM_FormatUTF8WroteLine(benchmark::State& state)
{
    Ref<String> stream = String::stringWithUTF8String("<TXZonBufferStream: 0x5581>");
    Ref<String> source = String::stringWithUTF8String("stream-1");
    for (auto _ : state)
        benchmark::DoNotOptimize(formatUTF8(kWrote, stream, 512, 4096u, source));
}
BENCHMARK(BM_FormatUTF8WroteLine);

void BM_StringWithFormatWroteLine(benchmark::State& state)
{
    Ref<String> stream = String::stringWithUTF8String("<TXZonBufferStream: 0x5581>");
    Ref<String> source = String::stringWithUTF8String("stream-1");
    for (auto _ : state)
        benchmark::DoNotOptimize(String::stringWithFormat(kWrote, stream, 512, 4096u, source));
}
BENCHMARK(BM_StringWithFormatWroteLine);

void BM_SnprintfWroteLine(benchmark::State& state)
{
    const char* stream = "<TXZonBufferStream: 0x5581>";
    const char* source = "stream-1";
    for (auto _ : state) {
        char buffer[256];
        std::snprintf(buffer, sizeof buffer, "%s *| Buffer Stream Wrote %d of %u from %s", stream, 512, 4096u, source);
        benchmark::DoNotOptimize(std::string(buffer));
    }
}
BENCHMARK(BM_SnprintfWroteLine);

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv, "Speed-up over snprintf of the same line (above 1: the engine is faster):",
        {
            {"BM_FormatUTF8StartedLine", "BM_SnprintfStartedLine"},
            {"BM_FormatUTF8WroteLine", "BM_SnprintfWroteLine"},
            {"BM_StringWithFormatWroteLine", "BM_SnprintfWroteLine"},
        });
}
