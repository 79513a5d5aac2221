// Copying files: the file manager's copy against cp and gio copy for one 1 GiB file on the disk
// the benchmark runs from (ext4 here), a tmpfs and a reflink XFS, and against a bare open,
// copy_file_range, futimens loop for 10,000 files of 4 KiB. As root the program takes a private
// mount namespace and mounts the tmpfs and a loop-file XFS there, so nothing outlives it; without
// root those rows are skipped. All times are wall times (cp and gio run as child processes).

#include "RatioReporter.h"

#include "platform/values/String.h"
#include "systemManagement/fileManagement/TXZonFileManager.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace zon;

namespace {

constexpr size_t kGibibyte = size_t(1) << 30;
constexpr int kSmallFiles = 10'000;
constexpr size_t kSmallFileSize = 4096;

struct Place {
    std::string name;
    std::string folder; // empty: not available in this run
};

std::vector<Place>& places()
{
    static std::vector<Place> all;
    return all;
}

bool quietly(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

void writeFile(const std::string& path, size_t size)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char> block(1 << 20);
    for (size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<char>(i * 7919 >> 3);
    for (size_t done = 0; done < size; done += block.size())
        if (::write(fd, block.data(), std::min(block.size(), size - done)) < 0)
            break;
    ::close(fd);
}

// The disk row works in the working folder; tmpfs and XFS are mounted below it, in a private
// namespace, when running as root.
void preparePlaces()
{
    const std::string base = std::filesystem::absolute("zon-copy-bench").string();
    std::filesystem::remove_all(base);
    std::filesystem::create_directories(base + "/disk");
    places().push_back({"disk", base + "/disk"});
    const bool root = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0
        && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    std::filesystem::create_directories(base + "/tmpfs");
    const bool tmpfs = root && ::mount("tmpfs", (base + "/tmpfs").c_str(), "tmpfs", 0, "size=2200m") == 0;
    places().push_back({"tmpfs", tmpfs ? base + "/tmpfs" : ""});
    std::filesystem::create_directories(base + "/xfs");
    const bool xfs = root && quietly("truncate -s 3G " + base + "/xfs.img") && quietly("mkfs.xfs -q -m reflink=1 " + base + "/xfs.img")
        && quietly("mount -o loop " + base + "/xfs.img " + base + "/xfs");
    places().push_back({"reflinkXFS", xfs ? base + "/xfs" : ""});
    for (const Place& place : places()) {
        if (!place.folder.empty())
            writeFile(place.folder + "/source", kGibibyte);
        std::printf("%-12s %s\n", place.name.c_str(), place.folder.empty() ? "skipped (needs root)" : place.folder.c_str());
    }
}

void cleanUp()
{
    const std::string base = std::filesystem::absolute("zon-copy-bench").string();
    quietly("umount " + base + "/xfs");
    quietly("umount " + base + "/tmpfs");
    std::filesystem::remove_all(base);
}

// One copy of the place's 1 GiB source per iteration; the destination is removed between them,
// untimed.
template <class Copy>
void copyGibibyte(benchmark::State& state, Copy copy)
{
    const Place& place = places()[static_cast<size_t>(state.range(0))];
    state.SetLabel(place.name);
    if (place.folder.empty()) {
        state.SkipWithError("needs root");
        return;
    }
    const std::string source = place.folder + "/source";
    const std::string destination = place.folder + "/copy";
    for (auto _ : state) {
        if (!copy(source, destination))
            state.SkipWithError("copy failed");
        state.PauseTiming();
        std::filesystem::remove(destination);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(int64_t(state.iterations() * kGibibyte));
}

void BM_FileManagerCopy(benchmark::State& state)
{
    copyGibibyte(state, [](const std::string& from, const std::string& to) {
        return TXZonFileManager::defaultManager()->copyFileFromPath_toPath_replaceIfExists_error(
            String::stringWithUTF8String(from).get(), String::stringWithUTF8String(to).get(), true, nullptr);
    });
}

void BM_Cp(benchmark::State& state)
{
    copyGibibyte(state, [](const std::string& from, const std::string& to) { return quietly("cp " + from + " " + to); });
}

void BM_GioCopy(benchmark::State& state)
{
    copyGibibyte(state, [](const std::string& from, const std::string& to) { return quietly("gio copy " + from + " " + to); });
}

BENCHMARK(BM_FileManagerCopy)->DenseRange(0, 2)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Cp)->DenseRange(0, 2)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GioCopy)->DenseRange(0, 2)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

// ---- Many small files, on the disk -------------------------------------------------------------

std::string smallSources()
{
    const std::string folder = places()[0].folder + "/small";
    if (!std::filesystem::exists(folder)) {
        std::filesystem::create_directories(folder);
        for (int i = 0; i < kSmallFiles; ++i)
            writeFile(folder + "/" + std::to_string(i), kSmallFileSize);
    }
    return folder;
}

template <class Copy>
void copySmallFiles(benchmark::State& state, Copy copy)
{
    const std::string sources = smallSources();
    const std::string copies = places()[0].folder + "/small-copies";
    std::vector<std::string> names;
    for (int i = 0; i < kSmallFiles; ++i)
        names.push_back(std::to_string(i));
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove_all(copies);
        std::filesystem::create_directories(copies);
        state.ResumeTiming();
        for (const std::string& name : names)
            copy(sources + "/" + name, copies + "/" + name);
    }
    state.SetItemsProcessed(int64_t(state.iterations() * kSmallFiles));
}

void BM_FileManagerCopySmallFiles(benchmark::State& state)
{
    copySmallFiles(state, [](const std::string& from, const std::string& to) {
        TXZonFileManager::defaultManager()->copyFileFromPath_toPath_error(
            String::stringWithUTF8String(from).get(), String::stringWithUTF8String(to).get(), nullptr);
    });
}

// What a program that copies the bytes and the modification time would write by hand.
void BM_BareCopySmallFiles(benchmark::State& state)
{
    copySmallFiles(state, [](const std::string& from, const std::string& to) {
        const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
        const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        struct stat status {};
        ::fstat(in, &status);
        while (::copy_file_range(in, nullptr, out, nullptr, size_t(status.st_size), 0) > 0) {
        }
        const timespec times[2] = {{0, UTIME_OMIT}, status.st_mtim};
        ::futimens(out, times);
        ::close(in);
        ::close(out);
    });
}

BENCHMARK(BM_FileManagerCopySmallFiles)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareCopySmallFiles)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    bench::RatioReporter reporter(bench::RatioReporter::realTime);
    return bench::runAndReport(argc, argv, reporter, [](bench::RatioReporter& ran) {
        std::printf("\nCopying 1 GiB (wall time; above 1: ours took longer; target 1.05x the faster anchor):\n");
        for (int place = 0; place < 3; ++place) {
            const std::string ours = "BM_FileManagerCopy/" + std::to_string(place) + "/iterations:5/real_time";
            ran.printRatio(ours, "BM_Cp/" + std::to_string(place) + "/iterations:5/real_time");
            ran.printRatio(ours, "BM_GioCopy/" + std::to_string(place) + "/iterations:5/real_time");
        }
        std::printf("\nCopying 10,000 files of 4 KiB (target 1.2x):\n");
        ran.printRatio("BM_FileManagerCopySmallFiles/iterations:3/real_time", "BM_BareCopySmallFiles/iterations:3/real_time");
        cleanUp();
    }, preparePlaces);
}
