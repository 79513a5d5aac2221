#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zon::bench {

// A console reporter that also remembers each benchmark's time per iteration, so that a program's
// main can print how its own code compares with the alternative run beside it. The time kept is
// CPU time by default (steadier on a shared machine); a program whose benchmarks wait on another
// thread or process chooses wall time for those.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    using Clock = std::function<double(const Run&)>;

    // Nanoseconds per iteration, whatever unit the benchmark reports in.
    static double cpuTime(const Run& run) { return run.GetAdjustedCPUTime() / unitsPerSecond(run) * 1e9; }
    static double realTime(const Run& run) { return run.GetAdjustedRealTime() / unitsPerSecond(run) * 1e9; }

    explicit RatioReporter(Clock clock = cpuTime) : clock_(std::move(clock)) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (!run.error_occurred)
                nanoseconds_[withoutRepeats(run.benchmark_name())] = clock_(run);
    }

    // Nanoseconds per iteration of the benchmark named so (its median when it was repeated), or 0.
    double nanoseconds(const std::string& name) const
    {
        if (auto median = nanoseconds_.find(name + "_median"); median != nanoseconds_.end())
            return median->second;
        auto it = nanoseconds_.find(name);
        return it == nanoseconds_.end() ? 0 : it->second;
    }

    // Prints how many times faster ours ran than theirs (above 1: ours is faster).
    void printSpeedup(const std::string& ours, const std::string& theirs) const
    {
        const double a = nanoseconds(ours), b = nanoseconds(theirs);
        if (a > 0 && b > 0)
            std::printf("%-44s vs %-40s %.2fx\n", ours.c_str(), theirs.c_str(), b / a);
    }

    // Prints how many times as long ours took as theirs (above 1: ours is slower).
    void printRatio(const std::string& ours, const std::string& theirs) const
    {
        const double a = nanoseconds(ours), b = nanoseconds(theirs);
        if (a > 0 && b > 0)
            std::printf("%-52s / %-40s %6.2fx\n", ours.c_str(), theirs.c_str(), a / b);
    }

private:
    // A repeated benchmark's runs are named "Name/repeats:5_median"; they are kept as "Name_median".
    static std::string withoutRepeats(std::string name)
    {
        if (const size_t at = name.find("/repeats:"); at != std::string::npos)
            name.erase(at, name.find_first_not_of("0123456789", at + 9) - at);
        return name;
    }
    static double unitsPerSecond(const Run& run) { return benchmark::GetTimeUnitMultiplier(run.time_unit); }

    Clock clock_;
    std::map<std::string, double> nanoseconds_;
};

// (ours, theirs) benchmark names whose speed-up a program prints after its run.
using Comparisons = std::vector<std::pair<std::string, std::string>>;

// The main of a benchmark program: runs the benchmarks the command line selects through reporter,
// then calls report(reporter) to print what the program compares. prepare runs between reading
// the command line and the first benchmark.
template <class Report, class Prepare = void (*)()>
int runAndReport(int argc, char** argv, RatioReporter& reporter, Report report, Prepare prepare = [] {})
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    prepare();
    benchmark::RunSpecifiedBenchmarks(&reporter);
    report(reporter);
    benchmark::Shutdown();
    return 0;
}

// The same, printing the speed-up of each comparison under the heading.
inline int runAndCompare(int argc, char** argv, const char* heading, const Comparisons& comparisons)
{
    RatioReporter reporter;
    return runAndReport(argc, argv, reporter, [&](RatioReporter& ran) {
        std::printf("\n%s\n", heading);
        for (const auto& [ours, theirs] : comparisons)
            ran.printSpeedup(ours, theirs);
    });
}

} // namespace zon::bench
