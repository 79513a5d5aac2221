// Versions against what a C++ caller would use instead, Qt's QVersionNumber: comparing two
// parsed versions, and parsing a version text. Ours keeps each part as the text it was given and
// compares by walking those texts; Qt keeps numbers. Also a range test against ten listed
// versions, the case a range's lists make slowest (the version is in neither list).
// The Qt rows are built in when Qt 6 Core is found (`scripts/bootstrap bench` installs it).

#include "RatioReporter.h"

#include "versions/TXZonVersion.h"
#include "versions/TXZonVersionRange.h"

#include <benchmark/benchmark.h>

#ifdef ZON_BENCH_HAVE_QT
#include <QString>
#include <QVersionNumber>
#endif

#include <array>
#include <cstdio>
#include <vector>

using namespace zon;

namespace {

// Texts as the suite meets them: bundle versions, device packages, the host system.
constexpr std::array<const char*, 8> kTexts {
    "5.0.1.123", "5.0.1.124", "4.6.12.3301", "10.6.8.549", "6.0.0.141", "5.0.0.3", "1.2.0.0", "12.11.0.0"};

std::vector<Ref<TXZonVersion>> parsedVersions()
{
    std::vector<Ref<TXZonVersion>> versions;
    for (const char* text : kTexts)
        versions.push_back(TXZonVersion::versionWithString(String::stringWithUTF8String(text).get()));
    return versions;
}

void BM_VersionCompare_Zon(benchmark::State& state)
{
    const std::vector<Ref<TXZonVersion>> versions = parsedVersions();
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(versions[i]->compare(versions[(i + 1) % versions.size()].get()));
        i = (i + 1) % versions.size();
    }
}
BENCHMARK(BM_VersionCompare_Zon);

void BM_VersionParse_Zon(benchmark::State& state)
{
    std::vector<Ref<String>> texts;
    for (const char* text : kTexts)
        texts.push_back(String::stringWithUTF8String(text));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(TXZonVersion::versionWithString(texts[i].get()));
        i = (i + 1) % texts.size();
    }
}
BENCHMARK(BM_VersionParse_Zon);

// Five included and five excluded versions, none of them the one asked about, so both lists are
// searched in full before the bounds decide.
void BM_RangeTenListed_Zon(benchmark::State& state)
{
    auto list = [](std::initializer_list<const char*> texts) {
        Ref<MutableArray> versions = MutableArray::array();
        for (const char* text : texts)
            versions->addObject(TXZonVersion::versionWithString(String::stringWithUTF8String(text).get()).get());
        return versions;
    };
    auto parse = [](const char* text) { return TXZonVersion::versionWithString(String::stringWithUTF8String(text).get()); };
    Ref<TXZonVersionRange> range = TXZonVersionRange::versionRangeWithMinVersion_maxVersion_includeVersions_excludeVersions(
        parse("5.0.0.0").get(), parse("6.0.0.999").get(),
        list({"4.6.1.0", "4.6.2.0", "4.7.0.0", "4.7.1.12", "4.8"}).get(),
        list({"5.0.0.300", "5.0.0.301", "5.1.2", "5.2.0.77", "5.5.5.5"}).get());
    Ref<TXZonVersion> version = parse("5.4.1.220");
    for (auto _ : state)
        benchmark::DoNotOptimize(range->isVersionInRange(version.get()));
}
BENCHMARK(BM_RangeTenListed_Zon);

#ifdef ZON_BENCH_HAVE_QT
void BM_VersionCompare_Qt(benchmark::State& state)
{
    std::vector<QVersionNumber> versions;
    for (const char* text : kTexts)
        versions.push_back(QVersionNumber::fromString(QString::fromUtf8(text)));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(QVersionNumber::compare(versions[i], versions[(i + 1) % versions.size()]));
        i = (i + 1) % versions.size();
    }
}
BENCHMARK(BM_VersionCompare_Qt);

void BM_VersionParse_Qt(benchmark::State& state)
{
    std::vector<QString> texts;
    for (const char* text : kTexts)
        texts.push_back(QString::fromUtf8(text));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(QVersionNumber::fromString(texts[i]));
        i = (i + 1) % texts.size();
    }
}
BENCHMARK(BM_VersionParse_Qt);
#endif

} // namespace

int main(int argc, char** argv)
{
    zon::bench::RatioReporter reporter;
    return zon::bench::runAndReport(argc, argv, reporter, [](zon::bench::RatioReporter& ran) {
        std::printf("\nTime ratios (ours / Qt; targets: compare 2x, parse 4x):\n");
        ran.printRatio("BM_VersionCompare_Zon", "BM_VersionCompare_Qt");
        ran.printRatio("BM_VersionParse_Zon", "BM_VersionParse_Qt");
        if (const double range = ran.nanoseconds("BM_RangeTenListed_Zon"); range > 0)
            std::printf("%-52s %8.0f ns (target: under 1000 ns)\n", "BM_RangeTenListed_Zon", range);
    });
}
