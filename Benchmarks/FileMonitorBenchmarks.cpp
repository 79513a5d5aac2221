// The file monitor under a burst, against what a program would do instead: a reader that drains
// inotify at every wake-up, and inotifywait -m. Each row's time is the CPU the watching side
// spent on the burst (manual time); the counters say when the first notification came and how many
// came. Then 10,000 monitors on one thread: the memory each takes and the inotify descriptors.
//
// The burst: the watched file is written, then 100,000 files are created and written in its folder
// (about 300,000 events), then the watched file is written again.

#include "RatioReporter.h"
#include "support/InotifyInstances.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/String.h"
#include "systemManagement/fileManagement/TXZonFileMonitor.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <thread>
#include <time.h>
#include <unistd.h>

using namespace zon;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kBurstFiles = 100'000;
constexpr auto kSettle = std::chrono::milliseconds(3500); // quiet time after the burst before stopping

double threadCpuSeconds()
{
    timespec cpu {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
    return double(cpu.tv_sec) + double(cpu.tv_nsec) / 1e9;
}

struct Folder {
    Folder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zon-burst-XXXXXX").string();
        path = ::mkdtemp(pattern.data());
        watched = path + "/watched.txt";
        std::ofstream(watched) << "start\n";
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path;
    std::string watched;
};

// Writes the burst; answers when its first event happened.
Clock::time_point writeBurst(const Folder& folder)
{
    const auto first = Clock::now();
    std::ofstream(folder.watched, std::ios::app) << "first\n";
    for (int i = 0; i < kBurstFiles; ++i)
        std::ofstream(folder.path + "/f" + std::to_string(i)) << "x";
    std::ofstream(folder.watched, std::ios::app) << "last\n";
    return first;
}

class CountingDelegate final : public Object {
    ZON_OBJECT(CountingDelegate, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("monitoredFileDidChangeForMonitor:", &CountingDelegate::changed);
    }
    void changed(TXZonFileMonitor*)
    {
        if (count.fetch_add(1) == 0)
            first = Clock::now();
    }
    std::atomic<int> count {0};
    Clock::time_point first {};
};
ZON_DEFINE_CLASS(CountingDelegate, "BurstCountingDelegate")

void BM_Burst_FileMonitor(benchmark::State& state)
{
    for (auto _ : state) {
        Folder folder;
        auto delegate = makeObject<CountingDelegate>();
        std::atomic<bool> ready {false}, stop {false};
        double cpu = 0;
        std::thread monitorThread([&] {
            AutoreleasePool pool;
            auto monitor = TXZonFileMonitor::monitorForFile(String::stringWithUTF8String(folder.watched).get());
            monitor->setDelegate(delegate.get());
            const double before = threadCpuSeconds();
            ready = true;
            while (!stop)
                RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.05, false);
            cpu = threadCpuSeconds() - before;
        });
        while (!ready)
            std::this_thread::yield();
        const auto first = writeBurst(folder);
        const auto burst = Clock::now() - first;
        std::this_thread::sleep_for(kSettle);
        stop = true;
        monitorThread.join();
        state.SetIterationTime(cpu);
        state.counters["notifications"] = delegate->count.load();
        state.counters["first_after_ms"] = std::chrono::duration<double, std::milli>(delegate->first - first).count();
        state.counters["burst_s"] = std::chrono::duration<double>(burst).count();
    }
}
BENCHMARK(BM_Burst_FileMonitor)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

// What a program that reads inotify at every wake-up spends.
void BM_Burst_DrainEveryWakeup(benchmark::State& state)
{
    for (auto _ : state) {
        Folder folder;
        std::atomic<bool> ready {false}, stop {false};
        double cpu = 0;
        std::thread reader([&] {
            const int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
            ::inotify_add_watch(inotify, folder.path.c_str(),
                IN_CREATE | IN_DELETE | IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO);
            const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
            epoll_event event {};
            event.events = EPOLLIN;
            ::epoll_ctl(epoll, EPOLL_CTL_ADD, inotify, &event);
            const double before = threadCpuSeconds();
            ready = true;
            alignas(inotify_event) char buffer[64 * 1024];
            while (!stop) {
                if (::epoll_wait(epoll, &event, 1, 50) <= 0)
                    continue;
                while (::read(inotify, buffer, sizeof buffer) > 0) {
                }
            }
            cpu = threadCpuSeconds() - before;
            ::close(epoll);
            ::close(inotify);
        });
        while (!ready)
            std::this_thread::yield();
        writeBurst(folder);
        std::this_thread::sleep_for(kSettle);
        stop = true;
        reader.join();
        state.SetIterationTime(cpu);
    }
}
BENCHMARK(BM_Burst_DrainEveryWakeup)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

// The CPU seconds (user and system) of a child process, from /proc.
double processCpuSeconds(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(in, line);
    const size_t close = line.rfind(')');
    if (close == std::string::npos)
        return 0;
    std::istringstream fields(line.substr(close + 2));
    std::string field;
    unsigned long long user = 0, system = 0;
    for (int i = 3; fields >> field; ++i) {
        if (i == 14)
            user = std::stoull(field);
        if (i == 15) {
            system = std::stoull(field);
            break;
        }
    }
    return double(user + system) / double(::sysconf(_SC_CLK_TCK));
}

void BM_Burst_Inotifywait(benchmark::State& state)
{
    if (std::system("command -v inotifywait >/dev/null 2>&1") != 0) {
        state.SkipWithError("inotifywait is not installed (scripts/bootstrap bench installs inotify-tools)");
        return;
    }
    for (auto _ : state) {
        Folder folder;
        const pid_t child = ::fork();
        if (child == 0) {
            std::freopen("/dev/null", "w", stdout);
            std::freopen("/dev/null", "w", stderr);
            ::execlp("inotifywait", "inotifywait", "-m", "-q", folder.path.c_str(), nullptr);
            ::_exit(127);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500)); // until its watch is set
        writeBurst(folder);
        std::this_thread::sleep_for(kSettle);
        const double cpu = processCpuSeconds(child);
        ::kill(child, SIGTERM);
        ::waitpid(child, nullptr, 0);
        state.SetIterationTime(cpu);
    }
}
BENCHMARK(BM_Burst_Inotifywait)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

// 10,000 monitors on one thread, on files in 100 folders: heap bytes each and inotify instances.
void BM_TenThousandMonitors(benchmark::State& state)
{
    constexpr int kMonitors = 10'000, kFolders = 100;
    Folder folder;
    for (int f = 0; f < kFolders; ++f)
        std::filesystem::create_directory(folder.path + "/d" + std::to_string(f));
    std::vector<std::string> files;
    for (int i = 0; i < kMonitors; ++i)
        files.push_back(folder.path + "/d" + std::to_string(i % kFolders) + "/file" + std::to_string(i));
    for (auto _ : state) {
        AutoreleasePool pool;
        const size_t instancesBefore = test::openInotifyInstances();
        const size_t heapBefore = ::mallinfo2().uordblks;
        std::vector<Ref<TXZonFileMonitor>> monitors;
        monitors.reserve(kMonitors);
        const auto start = Clock::now();
        for (const std::string& file : files)
            monitors.push_back(TXZonFileMonitor::monitorForFile(String::stringWithUTF8String(file).get()));
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count() / kMonitors);
        const size_t heapAfter = ::mallinfo2().uordblks;
        state.counters["bytes_each"] = double(heapAfter - heapBefore - kMonitors * sizeof(Ref<TXZonFileMonitor>)) / kMonitors;
        state.counters["inotify_fds"] = double(test::openInotifyInstances() - instancesBefore);
    }
}
BENCHMARK(BM_TenThousandMonitors)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    zon::bench::RatioReporter reporter(zon::bench::RatioReporter::realTime);
    return zon::bench::runAndReport(argc, argv, reporter, [](zon::bench::RatioReporter& ran) {
        std::printf("\nCPU of the watching side during the burst (above 1: the monitor spends less)\n");
        const std::string suffix = "/iterations:1/manual_time";
        ran.printSpeedup("BM_Burst_FileMonitor" + suffix, "BM_Burst_DrainEveryWakeup" + suffix);
        ran.printSpeedup("BM_Burst_FileMonitor" + suffix, "BM_Burst_Inotifywait" + suffix);
    });
}
