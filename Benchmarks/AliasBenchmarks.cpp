// Writing one alias file: the record made from the target, the 'alis' resource written into the
// file's resource fork, and the Finder information set. The target is 300 µs on ext4. The anchor
// is the bare I/O the same result needs: a new file, a sidecar written through a temporary file
// and renamed, and one extended attribute. Runs in the working folder's file system (run it from
// an ext4 folder), or in ZON_BENCH_FOLDER when set.

#include "RatioReporter.h"

#include "extensions/fileSystem/ZonAlias.h"
#include "platform/io/AliasLocatorInternal.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

using namespace zon;

class BenchFolder {
public:
    BenchFolder()
    {
        const char* base = std::getenv("ZON_BENCH_FOLDER");
        std::string pattern = (base ? std::string(base) : std::filesystem::temp_directory_path().string()) + "/zon-alias-bench-XXXXXX";
        path = ::mkdtemp(pattern.data()) ? pattern : std::string();
        target = path + "/Music/song.mp3";
        std::filesystem::create_directories(path + "/Music");
        writeFile(target, "x");
    }
    ~BenchFolder() { std::filesystem::remove_all(path); }

    static void writeFile(const std::string& file, std::string_view bytes)
    {
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd >= 0) {
            benchmark::DoNotOptimize(::write(fd, bytes.data(), bytes.size()));
            ::close(fd);
        }
    }

    std::string path;
    std::string target;
};

void removeAliasFile(const std::string& file, const std::string& sidecar)
{
    ::unlink(file.c_str());
    ::unlink(sidecar.c_str());
}

void BM_AliasFile_Write(benchmark::State& state)
{
    BenchFolder folder;
    AutoreleasePool pool;
    Ref<ZonAlias> alias = ZonAlias::initWithPath(String::stringWithUTF8String(folder.target));
    const std::string file = folder.path + "/alias";
    Ref<String> path = String::stringWithUTF8String(file);
    for (auto _ : state) {
        state.PauseTiming();
        removeAliasFile(file, folder.path + "/._alias");
        state.ResumeTiming();
        AutoreleasePool iteration;
        benchmark::DoNotOptimize(alias->writeAliasToPath_error(path, nullptr));
    }
}
BENCHMARK(BM_AliasFile_Write)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_AliasRecord_Make(benchmark::State& state)
{
    BenchFolder folder;
    for (auto _ : state)
        benchmark::DoNotOptimize(makeAliasRecord(folder.target, nullptr));
}
BENCHMARK(BM_AliasRecord_Make)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_AliasFile_BareWrites(benchmark::State& state)
{
    BenchFolder folder;
    const std::string file = folder.path + "/alias";
    const std::string sidecar = folder.path + "/._alias";
    const std::string temporary = folder.path + "/._alias.tmp";
    const std::string fork(1024, 'r');
    const std::string header(402, 'h');
    for (auto _ : state) {
        state.PauseTiming();
        removeAliasFile(file, sidecar);
        state.ResumeTiming();
        BenchFolder::writeFile(file, "");
        BenchFolder::writeFile(temporary, fork);
        ::rename(temporary.c_str(), sidecar.c_str());
        benchmark::DoNotOptimize(::setxattr(file.c_str(), "user.org.netatalk.Metadata", header.data(), header.size(), 0));
    }
}
BENCHMARK(BM_AliasFile_BareWrites)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    // CPU time (the process's, system time included): the I/O here is all done by the calling
    // thread, and wall time on a shared machine mostly measures the other builders.
    zon::bench::RatioReporter reporter;
    return zon::bench::runAndReport(argc, argv, reporter, [](zon::bench::RatioReporter& ran) {
        std::printf("\nWriting one alias file (target 300 us): %.1f us of CPU\n", ran.nanoseconds("BM_AliasFile_Write/real_time") / 1000);
        std::printf("Time against the bare I/O it needs (above 1: ours is slower):\n");
        ran.printRatio("BM_AliasFile_Write/real_time", "BM_AliasFile_BareWrites/real_time");
    });
}
