// The image readers against the tools a user would pick, each in a process of its own, timed by
// the CPU time and peak resident size wait4 reports, so that the other builders sharing the
// machine disturb the figures less than wall time would:
// - a 24-megapixel JPEG (6000 x 4000, quality 92) into a 256 box against djpeg -scale 1/8, the
//   entropy-decoding floor;
// - the same image as a PNG against vipsthumbnail -s 256 (target: within 1.2x);
// - the 20000 x 20000 PNG bomb refused (targets: 50 ms, 32 MB resident).
// Then the PNG writer's zlib level and filters on a photo-like thumbnail, in process, which chose
// its settings. The images are made once with ImageMagick and kept in the build folder.

#include "RatioReporter.h"

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/graphics/PNGWriterInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/ProcessCallsInternal.h"

#include <benchmark/benchmark.h>

#include <png.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace zon;

namespace {

const std::string kFolder = ZON_BENCH_IMAGE_FOLDER;

// Runs a shell command that makes target, once: later runs find it in the build folder.
const std::string& made(const std::string& target, const std::string& command)
{
    if (!std::filesystem::exists(target)) {
        std::filesystem::create_directories(kFolder);
        const std::string partial = target + ".partial";
        if (std::system((command + " && mv " + partial + " " + target).c_str()) != 0) {
            std::fprintf(stderr, "could not make %s\n", target.c_str());
            std::exit(1);
        }
    }
    return target;
}

// Plasma is smooth with fine noise, closer to a photo than a gradient; the seed fixes it.
const std::string& photoJPEG()
{
    static const std::string path = kFolder + "/photo.jpg";
    return made(path, "convert -seed 19 -size 6000x4000 plasma: -quality 92 jpg:" + path + ".partial");
}

const std::string& photoPNG()
{
    static const std::string path = kFolder + "/photo.png";
    return made(path, "convert " + photoJPEG() + " png:" + path + ".partial");
}

const std::string& pngBomb()
{
    static const std::string path = kFolder + "/bomb.png";
    return made(path, std::string("python3 ") + ZON_PNG_BOMB_SCRIPT + " " + path + ".partial");
}

struct ChildRun {
    double cpuSeconds = 0;
    double wallSeconds = 0;
    double peakMB = 0;
    int exitStatus = -1;
};

// Runs the command under GNU time, which writes the peak resident size of the command alone: a
// spawned child's own wait4 figure starts at the size of the process that spawned it. The CPU
// time is wait4's, time's own share of it negligible.
ChildRun runChild(const std::vector<std::string>& command)
{
    const std::string peakFile = kFolder + "/peak_kb";
    std::vector<std::string> arguments {"/usr/bin/time", "-f", "%M", "-o", peakFile};
    arguments.insert(arguments.end(), command.begin(), command.end());
    auto devNull = openFile("/dev/null", O_RDWR);
    if (!devNull)
        return {};
    const int quiet = devNull.value().get();
    const auto start = std::chrono::steady_clock::now();
    auto child = spawnProcess(arguments, ProgramLookup::exactPath, {quiet, quiet, quiet});
    if (!child)
        return {};
    auto usage = waitForProcessWithUsage(child.value());
    if (!usage)
        return {};
    const rusage& r = usage.value().resources;
    ChildRun run;
    run.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.cpuSeconds = double(r.ru_utime.tv_sec + r.ru_stime.tv_sec) + double(r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
    // The figure is the file's last line; a line about a non-zero exit status may come first.
    std::ifstream peak(peakFile);
    std::string line, last;
    while (std::getline(peak, line))
        last = line;
    run.peakMB = std::atof(last.c_str()) / 1024;
    run.exitStatus = WIFEXITED(usage.value().status) ? WEXITSTATUS(usage.value().status) : -1;
    return run;
}

// One iteration is one child; its CPU time is the iteration's time. Counters: the peak resident
// size and wall time of the worst run.
void measureChild(benchmark::State& state, const std::vector<std::string>& arguments, int expectedStatus)
{
    double peakMB = 0, wallSeconds = 0;
    for (auto _ : state) {
        const ChildRun run = runChild(arguments);
        if (run.exitStatus != expectedStatus) {
            state.SkipWithError(("unexpected exit status from " + arguments[0]).c_str());
            return;
        }
        state.SetIterationTime(run.cpuSeconds);
        peakMB = std::max(peakMB, run.peakMB);
        wallSeconds = std::max(wallSeconds, run.wallSeconds);
    }
    state.counters["peak_MB"] = peakMB;
    state.counters["wall_ms"] = wallSeconds * 1000;
}

std::string decoder() { return (std::filesystem::path(ZON_BENCH_BINARY_FOLDER) / "ImageDecodeChild").string(); }

void registerChild(const char* name, std::vector<std::string> arguments, int expectedStatus = 0)
{
    benchmark::RegisterBenchmark(name, [arguments, expectedStatus](benchmark::State& state) {
        measureChild(state, arguments, expectedStatus);
    })->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
}

void registerChildren()
{
    const std::string out = kFolder + "/out";
    std::filesystem::create_directories(out);
    registerChild("JPEG24MP/ours_box256", {decoder(), photoJPEG(), "256"});
    registerChild("JPEG24MP/djpeg_scale_1_8", {"djpeg", "-scale", "1/8", "-outfile", "/dev/null", photoJPEG()});
    registerChild("PNG24MP/ours_box256", {decoder(), photoPNG(), "256"});
    registerChild("PNG24MP/vipsthumbnail_s256", {"vipsthumbnail", "-s", "256", "-o", out + "/%s.png", photoPNG()});
    registerChild("PNGBomb/ours_refused", {decoder(), pngBomb(), "256"}, 2);
}

// A photo-like thumbnail, as the cache writes them: the PNG photo box-averaged into a 256 box.
const CGImage& thumbnail()
{
    static const Ref<CGImage> image = decodeImageFile(photoPNG(), 128, 128).image;
    return *image;
}

void BM_EncodeThumbnailPNG(benchmark::State& state)
{
    const PNGWriteSettings settings {int(state.range(0)), int(state.range(1))};
    size_t bytes = 0;
    for (auto _ : state)
        bytes = encodePNGWithSettings(thumbnail(), {}, settings).value().size();
    state.counters["KB"] = double(bytes) / 1024;
}
BENCHMARK(BM_EncodeThumbnailPNG)
    ->ArgNames({"level", "filters"})
    ->ArgsProduct({{1, 3, 6, 9}, {PNG_FILTER_NONE, PNG_FILTER_SUB, PNG_FILTER_PAETH, PNG_ALL_FILTERS}})
    ->Unit(benchmark::kMicrosecond);

void printChildFigures(const bench::RatioReporter& ran)
{
    std::printf("\nImage readers, CPU time of a child process (above 1: ours slower)\n");
    ran.printRatio("JPEG24MP/ours_box256/iterations:5/manual_time", "JPEG24MP/djpeg_scale_1_8/iterations:5/manual_time");
    ran.printRatio("PNG24MP/ours_box256/iterations:5/manual_time", "PNG24MP/vipsthumbnail_s256/iterations:5/manual_time");
    const double bombMs = ran.nanoseconds("PNGBomb/ours_refused/iterations:5/manual_time") / 1e6;
    if (bombMs > 0)
        std::printf("PNG bomb refused in %.1f ms of CPU (target 50 ms; peak_MB above, target 32)\n", bombMs);
}

} // namespace

int main(int argc, char** argv)
{
    bench::RatioReporter reporter(bench::RatioReporter::realTime); // the manual time: a child's CPU time
    return bench::runAndReport(argc, argv, reporter, printChildFigures, [] {
        std::printf("thumbnail for the PNG writer rows: %zu x %zu\n", thumbnail().width(), thumbnail().height());
        registerChildren();
    });
}
