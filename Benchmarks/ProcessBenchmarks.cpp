// The process table with 500 extra parked processes: TXZonProcess's listing against a bare /proc
// reader of the same fields (the floor), libproc2's reap of them (when built in), `ps -e e -o
// pid,args` and psutil's process_iter; the run state against a bare read of the stat file.
// In-process rows compare CPU time, which counts the kernel's work for our reads and is steady on
// a shared machine; `ps` runs in a process of its own, so it is compared by wall time with a wall
// time row of the listing.

#include "RatioReporter.h"

#include "platform/io/ProcessTableInternal.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Array.h"
#include "support/PeerProcess.h"
#include "systemManagement/processManagement/TXZonProcess.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#ifdef ZON_BENCH_HAVE_LIBPROC2
#include <libproc2/pids.h>
#endif

using namespace zon;

namespace {

constexpr int kParkedProcesses = 500;

// The parked processes live for the whole run; the benchmark's exit takes them down with it.
std::vector<std::unique_ptr<test::PeerProcess>>& parkedProcesses()
{
    static std::vector<std::unique_ptr<test::PeerProcess>> processes;
    return processes;
}

void parkProcesses()
{
    for (int i = 0; i < kParkedProcesses; ++i) {
        auto process = std::make_unique<test::PeerProcess>();
        process->runInChild([] {
            for (;;)
                ::pause();
            return 0;
        });
        parkedProcesses().push_back(std::move(process));
    }
}

// The fields the process table reads, kept only long enough to be counted.
struct BareProcess {
    int pid;
    std::string stat, executable, commandLine, environment;
};

bool readWhole(const char* path, std::string& out)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    out.clear();
    char buffer[16384];
    ssize_t count;
    while ((count = ::read(fd, buffer, sizeof buffer)) > 0)
        out.append(buffer, static_cast<size_t>(count));
    ::close(fd);
    return count == 0;
}

// The floor: readdir of /proc and, per process, its stat line, exe link, cmdline and environ by
// path, with no objects made.
std::vector<BareProcess> bareListing()
{
    std::vector<BareProcess> processes;
    DIR* proc = ::opendir("/proc");
    char path[64];
    while (const dirent* entry = ::readdir(proc)) {
        const int pid = std::atoi(entry->d_name);
        if (pid <= 0)
            continue;
        BareProcess process {pid, {}, {}, {}, {}};
        std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
        if (!readWhole(path, process.stat))
            continue;
        char link[4096];
        std::snprintf(path, sizeof path, "/proc/%d/exe", pid);
        const ssize_t length = ::readlink(path, link, sizeof link);
        if (length > 0) {
            process.executable.assign(link, static_cast<size_t>(length));
            std::snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
            readWhole(path, process.commandLine);
            std::snprintf(path, sizeof path, "/proc/%d/environ", pid);
            readWhole(path, process.environment);
        }
        processes.push_back(std::move(process));
    }
    ::closedir(proc);
    return processes;
}

void BM_AllRunningProcesses(benchmark::State& state)
{
    size_t count = 0;
    for (auto _ : state) {
        AutoreleasePool pool;
        count = TXZonProcess::allRunningProcesses()->count();
    }
    state.counters["processes"] = static_cast<double>(count);
}
BENCHMARK(BM_AllRunningProcesses)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AllRunningProcesses)->Unit(benchmark::kMillisecond)->UseRealTime();

// The platform piece alone: the same reads through one folder descriptor per process, no objects.
void BM_ProcessTableRead(benchmark::State& state)
{
    size_t count = 0;
    for (auto _ : state) {
        count = 0;
        ProcessTable::forEachProcess(ProcessDetail::withArgumentArea, [&](const ProcessRecord&) { ++count; });
    }
    state.counters["processes"] = static_cast<double>(count);
}
BENCHMARK(BM_ProcessTableRead)->Unit(benchmark::kMillisecond);

void BM_BareProcReader(benchmark::State& state)
{
    size_t count = 0;
    for (auto _ : state)
        count = bareListing().size();
    state.counters["processes"] = static_cast<double>(count);
}
BENCHMARK(BM_BareProcReader)->Unit(benchmark::kMillisecond);

#ifdef ZON_BENCH_HAVE_LIBPROC2
void BM_Libproc2Reap(benchmark::State& state)
{
    pids_item items[] = {PIDS_ID_PID, PIDS_CMD, PIDS_STATE, PIDS_TIME_START, PIDS_EXE, PIDS_CMDLINE_V, PIDS_ENVIRON_V};
    pids_info* info = nullptr;
    if (procps_pids_new(&info, items, sizeof items / sizeof *items) < 0) {
        state.SkipWithError("procps_pids_new failed");
        return;
    }
    size_t count = 0;
    for (auto _ : state) {
        pids_fetch* fetched = procps_pids_reap(info, PIDS_FETCH_TASKS_ONLY);
        count = fetched ? static_cast<size_t>(fetched->counts->total) : 0;
        benchmark::DoNotOptimize(fetched);
    }
    procps_pids_unref(&info);
    state.counters["processes"] = static_cast<double>(count);
}
BENCHMARK(BM_Libproc2Reap)->Unit(benchmark::kMillisecond);
#endif

void BM_PsCommand(benchmark::State& state)
{
    for (auto _ : state) {
        FILE* ps = ::popen("ps -e e -o pid,args", "r");
        char buffer[65536];
        while (std::fread(buffer, 1, sizeof buffer, ps) > 0) {
        }
        ::pclose(ps);
    }
}
BENCHMARK(BM_PsCommand)->Unit(benchmark::kMillisecond)->UseRealTime();

Ref<TXZonProcess> parkedProcess()
{
    static Ref<TXZonProcess> process = TXZonProcess::processForPid(parkedProcesses().front()->pid());
    return process;
}

void BM_State(benchmark::State& state)
{
    Ref<TXZonProcess> process = parkedProcess();
    for (auto _ : state)
        benchmark::DoNotOptimize(process->state());
}
BENCHMARK(BM_State);

void BM_BareStatRead(benchmark::State& state)
{
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/stat", parkedProcesses().front()->pid());
    std::string line;
    for (auto _ : state) {
        readWhole(path, line);
        const char* close = std::strrchr(line.c_str(), ')');
        benchmark::DoNotOptimize(close ? close[2] : 0);
    }
}
BENCHMARK(BM_BareStatRead);

// psutil's median listing time in nanoseconds, or 0 when it cannot be run.
double psutilNanoseconds()
{
    double nanoseconds = 0;
    if (FILE* pipe = ::popen("/usr/bin/python3 " ZON_PSUTIL_SCRIPT " 10", "r")) {
        if (std::fscanf(pipe, "%lf", &nanoseconds) != 1)
            nanoseconds = 0;
        ::pclose(pipe);
    }
    return nanoseconds;
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    parkProcesses();
    bench::RatioReporter reporter([](const bench::RatioReporter::Run& run) {
        return run.benchmark_name().find("/real_time") != std::string::npos ? bench::RatioReporter::realTime(run)
                                                            : bench::RatioReporter::cpuTime(run);
    });
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nProcess table with %d parked processes (CPU time, ps by wall time; above 1: ours took longer):\n",
        kParkedProcesses);
    reporter.printRatio("BM_AllRunningProcesses", "BM_BareProcReader");
    reporter.printRatio("BM_ProcessTableRead", "BM_BareProcReader");
    reporter.printRatio("BM_AllRunningProcesses", "BM_Libproc2Reap");
    reporter.printRatio("BM_AllRunningProcesses/real_time", "BM_PsCommand/real_time");
    reporter.printRatio("BM_State", "BM_BareStatRead");
    if (const double ours = reporter.nanoseconds("BM_AllRunningProcesses"); ours > 0) {
        if (const double psutil = psutilNanoseconds(); psutil > 0)
            std::printf("%-52s / %-40s %6.2fx\n", "BM_AllRunningProcesses", "psutil process_iter (median of 10)", ours / psutil);
        else
            std::printf("psutil not installed: its row left out (scripts/bootstrap bench installs it)\n");
    }
    parkedProcesses().clear();
    benchmark::Shutdown();
    return 0;
}
