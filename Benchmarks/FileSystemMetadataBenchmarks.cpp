// Reading the Finder information of 10,000 files against a bare getxattr loop over the same
// files: the store reads the netatalk attribute first, so a file that has one costs one call.

#include "RatioReporter.h"

#include "platform/io/FinderMetadataStore.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/xattr.h>
#include <vector>

namespace {

constexpr int kFiles = 10000;

// The files, each with Finder info written by the library; removed at exit.
struct Files {
    std::filesystem::path folder;
    std::vector<std::string> paths;

    Files()
    {
        folder = std::filesystem::temp_directory_path() / ("zon-finder-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        zon::FinderInfoBytes info {'T', 'E', 'X', 'T', 't', 't', 'x', 't', 0x04, 0x00};
        for (int i = 0; i < kFiles; ++i) {
            paths.push_back((folder / ("file-" + std::to_string(i))).string());
            std::ofstream(paths.back()) << i;
            zon::writeFinderInfo(paths.back(), info);
        }
    }
    ~Files() { std::filesystem::remove_all(folder); }
};

const Files& files()
{
    static const Files instance;
    return instance;
}

void BM_ReadFinderInfo10000(benchmark::State& state)
{
    const auto& paths = files().paths;
    for (auto _ : state)
        for (const auto& path : paths)
            benchmark::DoNotOptimize(zon::readFinderInfo(path));
}
BENCHMARK(BM_ReadFinderInfo10000)->Unit(benchmark::kMillisecond);

void BM_BareGetxattr10000(benchmark::State& state)
{
    const auto& paths = files().paths;
    char buffer[512];
    for (auto _ : state)
        for (const auto& path : paths)
            benchmark::DoNotOptimize(::getxattr(path.c_str(), "user.org.netatalk.Metadata", buffer, sizeof buffer));
}
BENCHMARK(BM_BareGetxattr10000)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    (void)files();
    return zon::bench::runAndCompare(argc, argv, "Speed-up of the library over a bare getxattr loop (above 1: the library is faster):",
        {{"BM_ReadFinderInfo10000", "BM_BareGetxattr10000"}});
}
