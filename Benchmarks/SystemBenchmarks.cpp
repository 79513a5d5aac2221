// The machine facts beside the bare reads a user would write instead: the resident memory
// against one open-read-parse-close of /proc/self/statm (target: within 1.5x), the processor
// count against sched_getaffinity alone, and the MAC address against reading the first
// interface's address file (which may well pick a virtual interface, unlike ours).

#include "RatioReporter.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "systemManagement/TXZonSystemUtilities.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace {

using zon::TXZonSystemUtilities;

void BM_ZonResidentMemoryUsageBytes(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(ZonResidentMemoryUsageBytes());
}
BENCHMARK(BM_ZonResidentMemoryUsageBytes);

void BM_BareStatmRead(benchmark::State& state)
{
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    for (auto _ : state) {
        const int fd = ::open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
        char text[128];
        const ssize_t length = ::read(fd, text, sizeof text - 1);
        ::close(fd);
        text[length > 0 ? length : 0] = '\0';
        unsigned long long size = 0, resident = 0;
        std::sscanf(text, "%llu %llu", &size, &resident);
        benchmark::DoNotOptimize(resident * pageSize);
    }
}
BENCHMARK(BM_BareStatmRead);

void BM_NumberOfCores(benchmark::State& state)
{
    for (auto _ : state) {
        zon::AutoreleasePool pool;
        benchmark::DoNotOptimize(TXZonSystemUtilities::sharedSystem()->numberOfCores());
    }
}
BENCHMARK(BM_NumberOfCores);

void BM_BareSchedGetaffinity(benchmark::State& state)
{
    for (auto _ : state) {
        cpu_set_t set;
        ::sched_getaffinity(0, sizeof set, &set);
        benchmark::DoNotOptimize(CPU_COUNT(&set));
    }
}
BENCHMARK(BM_BareSchedGetaffinity);

void BM_PrimaryMacAddress(benchmark::State& state)
{
    for (auto _ : state) {
        zon::AutoreleasePool pool;
        benchmark::DoNotOptimize(TXZonSystemUtilities::sharedSystem()->primaryMacAddress());
    }
}
BENCHMARK(BM_PrimaryMacAddress);

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv, "Machine facts against bare reads:",
        {{"BM_ZonResidentMemoryUsageBytes", "BM_BareStatmRead"}, {"BM_NumberOfCores", "BM_BareSchedGetaffinity"}});
}
