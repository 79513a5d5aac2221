// The preview service end to end on a 24-megapixel photo (6000 x 4000, JPEG quality 92): the
// 256-pixel preview, the 1024-pixel album art and the 109-pixel desktop thumbnail, each made by the
// zon tool in a child process with a private, empty thumbnail cache, against the desktop's own
// thumbnailers run the same way in the same run. A row's time is the child's CPU time (user and
// system, steadier than wall time on a shared machine); its wall time and peak resident size are
// counters. The cache hit is timed in-process.

#include "RatioReporter.h"

#include "platform/graphics/CGImage.h"
#include "platform/graphics/PreviewService.h"
#include "platform/io/FileManager.h"
#include "platform/io/PathTextInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessCallsInternal.h"
#include "platform/values/String.h"

#include <chrono>
#include <fcntl.h>
#include <cstdlib>
#include <string>
#include <vector>

using namespace zon;

namespace {

const std::string kPhoto = ZON_BENCH_DATA_DIR "/photo-6000x4000-q92.jpg";
const std::string kOutput = ZON_BENCH_DATA_DIR "/out.png";
// The photo: a fractal landscape with grain, so that it compresses like a real one (about 12 MB).
const std::vector<std::string> kMakePhoto = {"/usr/bin/convert", "-size", "6000x4000", "plasma:fractal", "-attenuate",
    "0.25", "+noise", "Gaussian", "-quality", "92", kPhoto};

// The targets the rows are held to.
constexpr double kWithinFastestAnchor = 1.1;
constexpr double kFasterThanConvert = 2.0;
constexpr double kPeakMegabytes = 48;
constexpr double kCacheHitMilliseconds = 3;

double seconds(const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; }

// A folder for one run's thumbnail cache, removed afterwards.
struct PrivateCache {
    std::string path;
    PrivateCache()
    {
        if (auto made = makeTemporaryDirectory(ZON_BENCH_DATA_DIR "/cache-XXXXXX"))
            path = made.value();
        ::setenv("XDG_CACHE_HOME", path.c_str(), 1);
    }
    ~PrivateCache() { FileManager::defaultManager()->removeItemAtPath_error(String::stringWithUTF8String(path).get(), nullptr); }
};

// Runs a program to its end; its CPU time is the iteration's time.
void runChildRows(benchmark::State& state, const std::vector<std::string>& arguments)
{
    auto nothing = openFile("/dev/null", O_WRONLY | O_CLOEXEC);
    if (!nothing) {
        state.SkipWithError("no /dev/null");
        return;
    }
    double peakKilobytes = 0, wallSeconds = 0;
    for (auto _ : state) {
        PrivateCache cache;
        const auto start = std::chrono::steady_clock::now();
        auto child = spawnProcess(arguments, ProgramLookup::exactPath, {-1, nothing.value().get(), -1});
        auto ended = child ? waitForProcessWithUsage(child.value()) : SystemResult<ProcessUsage>(child.error());
        wallSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (!ended || !WIFEXITED(ended.value().status) || WEXITSTATUS(ended.value().status) != 0) {
            state.SkipWithError((arguments[0] + " failed").c_str());
            return;
        }
        state.SetIterationTime(seconds(ended.value().resources.ru_utime) + seconds(ended.value().resources.ru_stime));
        peakKilobytes = std::max(peakKilobytes, double(ended.value().resources.ru_maxrss));
    }
    state.counters["peak_MB"] = peakKilobytes / 1024;
    state.counters["wall_ms"] = wallSeconds * 1000 / double(state.iterations());
}

void zon(benchmark::State& state, const std::vector<std::string>& command)
{
    std::vector<std::string> arguments {ZON_TOOL_PATH, "image"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    runChildRows(state, arguments);
}

void Ours_Preview256(benchmark::State& state) { zon(state, {"preview", kPhoto, kOutput, "--size", "256"}); }
void Ours_AlbumArt1024(benchmark::State& state) { zon(state, {"albumart", kPhoto, kOutput}); }
void Ours_Desktop109(benchmark::State& state) { zon(state, {"desktop", kPhoto, kOutput}); }
void GdkPixbufThumbnailer256(benchmark::State& state)
{
    runChildRows(state, {"/usr/bin/gdk-pixbuf-thumbnailer", "-s", "256", kPhoto, kOutput});
}
void Vipsthumbnail256(benchmark::State& state) { runChildRows(state, {"/usr/bin/vipsthumbnail", "-s", "256", kPhoto, "-o", kOutput}); }
void Convert256(benchmark::State& state) { runChildRows(state, {"/usr/bin/convert", kPhoto, "-thumbnail", "256x256", kOutput}); }
// The entropy-decoding floor: libjpeg's smallest DCT scale, writing nothing.
void DjpegEighth(benchmark::State& state) { runChildRows(state, {"/usr/bin/djpeg", "-scale", "1/8", "-outfile", "/dev/null", kPhoto}); }

// A hit in the cache, in-process: the entry's chunks checked and its PNG decoded. Timed on the
// wall clock; the CPU column beside it is the steadier figure on a loaded machine.
void Ours_CacheHit256(benchmark::State& state)
{
    PrivateCache cache;
    if (!previewOfFile(kPhoto, 256, 256)) {
        state.SkipWithError("no preview");
        return;
    }
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const auto hit = previewOfFile(kPhoto, 256, 256);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        if (!hit || hit->source != PreviewSource::cache)
            state.SkipWithError("not a cache hit");
    }
}

constexpr int kChildRuns = 5;
// How Google Benchmark names the rows below.
std::string childRow(const char* name) { return std::string(name) + "/iterations:5/manual_time"; }
const std::string kCacheHitRow = "Ours_CacheHit256/manual_time";
BENCHMARK(Ours_Preview256)->UseManualTime()->Iterations(kChildRuns)->Unit(benchmark::kMillisecond);
BENCHMARK(Ours_AlbumArt1024)->UseManualTime()->Iterations(kChildRuns)->Unit(benchmark::kMillisecond);
BENCHMARK(Ours_Desktop109)->UseManualTime()->Iterations(kChildRuns)->Unit(benchmark::kMillisecond);
BENCHMARK(GdkPixbufThumbnailer256)->UseManualTime()->Iterations(kChildRuns)->Unit(benchmark::kMillisecond);
BENCHMARK(Vipsthumbnail256)->UseManualTime()->Iterations(kChildRuns)->Unit(benchmark::kMillisecond);
BENCHMARK(Convert256)->UseManualTime()->Iterations(kChildRuns)->Unit(benchmark::kMillisecond);
BENCHMARK(DjpegEighth)->UseManualTime()->Iterations(kChildRuns)->Unit(benchmark::kMillisecond);
BENCHMARK(Ours_CacheHit256)->UseManualTime()->Unit(benchmark::kMillisecond);

void preparePhoto()
{
    (void)makeDirectoryWithParents(ZON_BENCH_DATA_DIR, 0755);
    if (pathStatus(kPhoto))
        return;
    std::printf("making %s once (half a minute)\n", kPhoto.c_str());
    auto child = spawnProcess(kMakePhoto, ProgramLookup::exactPath);
    if (!child || !waitForProcess(child.value()))
        std::printf("could not make the photo: %s\n", child ? "convert failed" : child.error().text().c_str());
}

void report(const bench::RatioReporter& ran)
{
    const double fastestAnchor = std::min(ran.nanoseconds(childRow("GdkPixbufThumbnailer256")), ran.nanoseconds(childRow("Vipsthumbnail256")));
    const double convert = ran.nanoseconds(childRow("Convert256"));
    std::printf("\nCPU time of ours / the faster of gdk-pixbuf-thumbnailer and vipsthumbnail (target <= %.1f), "
                "convert's / ours (target >= %.1f):\n", kWithinFastestAnchor, kFasterThanConvert);
    for (const char* ours : {"Ours_Preview256", "Ours_AlbumArt1024", "Ours_Desktop109"}) {
        const double time = ran.nanoseconds(childRow(ours));
        if (time > 0 && fastestAnchor > 0 && convert > 0)
            std::printf("%-20s %6.2fx the fastest anchor   %6.2fx faster than convert\n", ours, time / fastestAnchor,
                convert / time);
    }
    std::printf("peak memory target: <= %.0f MB (the peak_MB counters); cache hit target: <= %.0f ms (%.2f ms wall)\n",
        kPeakMegabytes, kCacheHitMilliseconds, ran.nanoseconds(kCacheHitRow) / 1e6);
}

} // namespace

int main(int argc, char** argv)
{
    // Every row sets its own time (a child's CPU time, the cache hit's wall time).
    bench::RatioReporter reporter(bench::RatioReporter::realTime);
    return bench::runAndReport(argc, argv, reporter, report, preparePhoto);
}
