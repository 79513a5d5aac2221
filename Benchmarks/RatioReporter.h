#pragma once

// A console reporter that also remembers each benchmark's CPU time per iteration (the time the
// rate columns use, steadier than wall time on a shared machine), so that a program's main can
// print how its own code compares with the alternative run beside it.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zon::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            nanoseconds_[run.benchmark_name()] = run.GetAdjustedCPUTime();
    }

    // Prints how many times faster ours ran than theirs (above 1: ours is faster).
    void printSpeedup(const std::string& ours, const std::string& theirs) const
    {
        auto a = nanoseconds_.find(ours), b = nanoseconds_.find(theirs);
        if (a != nanoseconds_.end() && b != nanoseconds_.end() && a->second > 0)
            std::printf("%-44s vs %-40s %.2fx\n", ours.c_str(), theirs.c_str(), b->second / a->second);
    }

private:
    std::map<std::string, double> nanoseconds_;
};

// (ours, theirs) benchmark names whose speed-up a program prints after its run.
using Comparisons = std::vector<std::pair<std::string, std::string>>;

// The main of a benchmark program: runs the benchmarks the command line selects, then prints the
// speed-up of each comparison under the heading.
inline int runAndCompare(int argc, char** argv, const char* heading, const Comparisons& comparisons)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n%s\n", heading);
    for (const auto& [ours, theirs] : comparisons)
        reporter.printSpeedup(ours, theirs);
    benchmark::Shutdown();
    return 0;
}

} // namespace zon::bench
