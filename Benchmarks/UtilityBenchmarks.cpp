// Random numbers, the suite's shuffle and the file tail, each beside what a user would pick
// instead: std::uniform_int_distribution over std::mt19937, std::shuffle, an in-process reader
// that maps the file and searches it with memrchr, and tail(1).
//
// The tail benchmarks read a 1 GiB log made once under the build folder (next to this program)
// and removed afterwards. Its first 7/8 are a hole, since only the end is ever read; the last
// 128 MiB are real lines of a sync log.

#include "RatioReporter.h"

#include "extensions/NSFileHandle+ZonTail.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Array.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "utilities/math/TXZonRandom.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using zon::Ref;

constexpr off_t kLogSize = off_t(1) << 30;
constexpr off_t kWrittenTail = off_t(128) << 20;
std::string gLogPath;

// The hole, then lines like "2026-11-24 03:12:45.123 sync[4] device 2: wrote 912 tracks (album
// 17), queue 88" until the file is 1 GiB.
void makeLog(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || ::ftruncate(fd, kLogSize - kWrittenTail) != 0 || ::lseek(fd, 0, SEEK_END) < 0)
        std::abort();
    std::string lines;
    lines.reserve(size_t(kWrittenTail) + 256);
    lines += '\n';
    std::mt19937 generator(1);
    auto below = [&generator](unsigned bound) { return unsigned(generator() % bound); };
    for (unsigned i = 0; lines.size() < size_t(kWrittenTail);) {
        char line[160];
        const int length = std::snprintf(line, sizeof line,
            "2026-11-24 %02u:%02u:%02u.%03u sync[%u] device %u: wrote %u tracks (album %u), queue %u\n",
            i / 3600000 % 24, i / 60000 % 60, i / 1000 % 60, i % 1000, below(8), below(4), below(1000),
            below(100), below(200));
        lines.append(line, size_t(length));
        ++i;
    }
    lines.resize(size_t(kWrittenTail) - 1);
    lines += '\n';
    if (::write(fd, lines.data(), lines.size()) != ssize_t(lines.size()) || ::close(fd) != 0)
        std::abort();
}

void BM_TailLast10Lines(benchmark::State& state)
{
    Ref<zon::FileHandle> handle = zon::FileHandle::fileHandleForReadingAtPath(zon::String::stringWithUTF8String(gLogPath).get());
    for (auto _ : state) {
        zon::AutoreleasePool pool;
        benchmark::DoNotOptimize(handle->readLastLines(10));
    }
}
BENCHMARK(BM_TailLast10Lines)->Unit(benchmark::kMicrosecond);

void BM_TailLastMillionLines(benchmark::State& state)
{
    Ref<zon::FileHandle> handle = zon::FileHandle::fileHandleForReadingAtPath(zon::String::stringWithUTF8String(gLogPath).get());
    for (auto _ : state) {
        Ref<zon::Array> lines = handle->readLastLines(1000000);
        if (lines->count() != 1000000)
            state.SkipWithError("not a million lines");
    }
}
BENCHMARK(BM_TailLastMillionLines)->Unit(benchmark::kMillisecond);

// The same strings (each line with its U+0000, oldest first) from the file mapped whole and
// searched backwards with memrchr.
void BM_MmapMemrchrLastMillionLines(benchmark::State& state)
{
    const int fd = ::open(gLogPath.c_str(), O_RDONLY | O_CLOEXEC);
    for (auto _ : state) {
        void* mapped = ::mmap(nullptr, size_t(kLogSize), PROT_READ, MAP_PRIVATE, fd, 0);
        const char* bytes = static_cast<const char*>(mapped);
        size_t end = size_t(kLogSize) - 1; // the final line feed starts no line
        std::vector<Ref<zon::Object>> lines;
        char line[4096];
        for (int found = 0; found < 1000000; ++found) {
            const char* feed = static_cast<const char*>(::memrchr(bytes, '\n', end));
            const size_t start = size_t(feed - bytes) + 1;
            const size_t length = std::min(end - start, sizeof line - 1);
            std::memcpy(line, bytes + start, length);
            line[length] = '\0';
            lines.push_back(zon::String::stringWithUTF8String({line, length + 1}));
            end = size_t(feed - bytes);
        }
        std::reverse(lines.begin(), lines.end());
        benchmark::DoNotOptimize(zon::Array::arrayWithVector(std::move(lines)));
        ::munmap(mapped, size_t(kLogSize));
    }
    ::close(fd);
}
BENCHMARK(BM_MmapMemrchrLastMillionLines)->Unit(benchmark::kMillisecond);

// The processor time of tail(1) itself (user and system, from the children's usage), so that it
// compares with the processor time of the readers in process.
void BM_TailCommandLastMillionLines(benchmark::State& state)
{
    const std::string command = "exec tail -n 1000000 '" + gLogPath + "' > /dev/null";
    auto childSeconds = [] {
        rusage usage {};
        ::getrusage(RUSAGE_CHILDREN, &usage);
        return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
            + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    };
    for (auto _ : state) {
        const double before = childSeconds();
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("tail failed");
        state.SetIterationTime(childSeconds() - before);
    }
}
BENCHMARK(BM_TailCommandLastMillionLines)->Unit(benchmark::kMillisecond)->UseManualTime();

void BM_ZonRandomNumber(benchmark::State& state)
{
    uint32_t sum = 0;
    for (auto _ : state)
        sum += ZonRandomNumber(1000);
    benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_ZonRandomNumber);

void BM_UniformIntOverMt19937(benchmark::State& state)
{
    std::mt19937 generator(1);
    std::uniform_int_distribution<uint32_t> below(0, 999);
    uint32_t sum = 0;
    for (auto _ : state)
        sum += below(generator);
    benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_UniformIntOverMt19937);

std::vector<Ref<zon::Object>> millionNumbers()
{
    std::vector<Ref<zon::Object>> numbers;
    numbers.reserve(1000000);
    for (int i = 0; i < 1000000; ++i)
        numbers.push_back(zon::Number::numberWithInt(i));
    return numbers;
}

void BM_ShuffleMillion(benchmark::State& state)
{
    Ref<zon::MutableArray> array = zon::MutableArray::arrayWithArray(zon::Array::arrayWithVector(millionNumbers()).get());
    for (auto _ : state)
        array->shuffle();
}
BENCHMARK(BM_ShuffleMillion)->Unit(benchmark::kMillisecond);

void BM_StdShuffleMillion(benchmark::State& state)
{
    std::vector<Ref<zon::Object>> numbers = millionNumbers();
    std::mt19937 generator(1);
    for (auto _ : state)
        std::shuffle(numbers.begin(), numbers.end(), generator);
}
BENCHMARK(BM_StdShuffleMillion)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    gLogPath = (std::filesystem::absolute(argv[0]).parent_path() / "tail-benchmark.log").string();
    makeLog(gLogPath);
    // Processor time throughout: the machine is shared, and tail(1) is measured by its own usage.
    zon::bench::RatioReporter reporter([](const zon::bench::RatioReporter::Run& run) {
        return run.benchmark_name().find("/manual_time") != std::string::npos
            ? zon::bench::RatioReporter::realTime(run)
            : zon::bench::RatioReporter::cpuTime(run);
    });
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::filesystem::remove(gLogPath);

    if (const double last10 = reporter.nanoseconds("BM_TailLast10Lines"); last10 > 0)
        std::printf("\nLast 10 lines of a 1 GiB log: %.1f us (target: under 50 us)\n", last10 / 1000);
    std::printf("Time taken against the alternative (targets: 1.5x, 4x, 3x, 2x):\n");
    reporter.printRatio("BM_TailLastMillionLines", "BM_MmapMemrchrLastMillionLines");
    reporter.printRatio("BM_TailLastMillionLines", "BM_TailCommandLastMillionLines/manual_time");
    reporter.printRatio("BM_ZonRandomNumber", "BM_UniformIntOverMt19937");
    reporter.printRatio("BM_ShuffleMillion", "BM_StdShuffleMillion");
    benchmark::Shutdown();
    return 0;
}
