// The daemon helper's isDaemonLoaded: against the shell pipeline it stands for,
// `sh -c 'systemctl --user list-units ... | grep LABEL'` read to its end through popen. Both run
// programs, so both are timed by wall time. The user manager is the session's own, or a private
// one started for the run as the tests start it (root without one).

#include "RatioReporter.h"

#include "platform/values/String.h"
#include "support/PrivateUserManager.h"
#include "systemManagement/processManagement/TXZonDaemonHelper.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

using namespace zon;

namespace {

// A unit that sleeps, loaded for the run, so the search finds one line among the manager's.
struct LoadedUnit {
    std::string label = "zon-bench-" + std::to_string(::getpid()) + "-sleeper";
    std::string path;
};

std::unique_ptr<test::PrivateUserManager>& userManager()
{
    static std::unique_ptr<test::PrivateUserManager> manager;
    return manager;
}

LoadedUnit& loadedUnit()
{
    static LoadedUnit unit;
    return unit;
}

void loadUnit()
{
    userManager() = std::make_unique<test::PrivateUserManager>();
    if (!userManager()->available()) {
        std::fprintf(stderr, "no systemd user manager: %s\n", userManager()->reason().c_str());
        return;
    }
    LoadedUnit& unit = loadedUnit();
    unit.path = userManager()->writeSleeperUnit(unit.label + ".service");
    TXZonDaemonHelper::init()->restartDaemon(String::stringWithUTF8String(unit.path).get());
}

void unloadUnit()
{
    if (!loadedUnit().path.empty())
        test::disableUnitFile(loadedUnit().path);
    userManager().reset();
}

void BM_IsDaemonLoaded(benchmark::State& state)
{
    if (loadedUnit().path.empty())
        return state.SkipWithError("no user manager");
    Ref<TXZonDaemonHelper> helper = TXZonDaemonHelper::init();
    Ref<String> label = String::stringWithUTF8String(loadedUnit().label);
    for (auto _ : state)
        if (!helper->isDaemonLoaded(label.get()))
            return state.SkipWithError("the unit is not loaded");
}
BENCHMARK(BM_IsDaemonLoaded)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ShellPipeline(benchmark::State& state)
{
    if (loadedUnit().path.empty())
        return state.SkipWithError("no user manager");
    const std::string command = "/usr/bin/systemctl --user list-units --all --full --plain --no-legend --no-pager"
                                " | /usr/bin/grep " + loadedUnit().label;
    for (auto _ : state) {
        FILE* pipeline = ::popen(command.c_str(), "r");
        std::string output;
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipeline)) > 0;)
            output.append(buffer, n);
        ::pclose(pipeline);
        if (output.empty())
            return state.SkipWithError("the unit is not loaded");
    }
}
BENCHMARK(BM_ShellPipeline)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    bench::RatioReporter reporter(bench::RatioReporter::realTime);
    const int status = bench::runAndReport(
        argc, argv, reporter,
        [](bench::RatioReporter& ran) {
            std::printf("\nisDaemonLoaded: against the shell pipeline (wall time; above 1: ours took longer):\n");
            ran.printRatio("BM_IsDaemonLoaded/real_time", "BM_ShellPipeline/real_time");
        },
        loadUnit);
    unloadUnit();
    return status;
}
