// Dynamic objects against Qt's dynamic properties: a generated getter and setter called by
// selector on an object of eight table-declared properties, beside QObject::property() and
// setProperty() on an object holding eight dynamic properties (GenericObjectAlternativeQt.cpp,
// built when Qt is found). The direct operations show what the selector call adds.

#include "RatioReporter.h"

#include "genericObjects/DynamicPropertyTable.h"
#include "genericObjects/TXZonDynamicObject.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <cstdio>

using namespace zon;

namespace {

class BenchmarkTrack final : public TXZonDynamicObject {
    ZON_OBJECT(BenchmarkTrack, TXZonDynamicObject)
public:
    static Ref<BenchmarkTrack> track() { return create<BenchmarkTrack>(); }
    static void exportMethods(Class& cls) { registerInstanceFactory<BenchmarkTrack>(cls); }
    Ref<Dictionary> objcAttributes() const override
    {
        return DynamicPropertyTable()
            .property("title", String::staticClass())
            .property("artist", String::staticClass())
            .property("album", String::staticClass())
            .property("genre", String::staticClass())
            .property("year", Number::staticClass())
            .property("trackNumber", Number::staticClass())
            .property("duration", Number::staticClass())
            .property("rating", Number::staticClass())
            .table();
    }

private:
    BenchmarkTrack() = default;
};
ZON_DEFINE_CLASS(BenchmarkTrack, "BenchmarkTrack")

// Two values set in turn, so that no setter can skip a store of the value it already holds.
Ref<String> gTitles[2] = {String::stringWithUTF8String("Blue in Green"), String::stringWithUTF8String("So What")};

Ref<BenchmarkTrack> filledTrack()
{
    Ref<BenchmarkTrack> track = BenchmarkTrack::track();
    track->setValue_forPropertyName(gTitles[0].get(), ZSTR("title"));
    track->setValue_forPropertyName(Number::numberWithInt(1959).get(), ZSTR("year"));
    return track;
}

void BM_DynamicGetter_BySelector(benchmark::State& state)
{
    Ref<BenchmarkTrack> track = filledTrack();
    const SEL title = selector("title");
    for (auto _ : state)
        benchmark::DoNotOptimize(track->performSelector(title).get());
}
BENCHMARK(BM_DynamicGetter_BySelector);

void BM_DynamicGetter_ValueForPropertyName(benchmark::State& state)
{
    Ref<BenchmarkTrack> track = filledTrack();
    for (auto _ : state)
        benchmark::DoNotOptimize(track->valueForPropertyName(ZSTR("title")).get());
}
BENCHMARK(BM_DynamicGetter_ValueForPropertyName);

void BM_DynamicSetter_BySelector(benchmark::State& state)
{
    Ref<BenchmarkTrack> track = filledTrack();
    const SEL setTitle = selector("setTitle:");
    size_t turn = 0;
    for (auto _ : state)
        track->performSelector(setTitle, gTitles[++turn & 1].get());
}
BENCHMARK(BM_DynamicSetter_BySelector);

void BM_DynamicSetter_SetValueForPropertyName(benchmark::State& state)
{
    Ref<BenchmarkTrack> track = filledTrack();
    size_t turn = 0;
    for (auto _ : state)
        track->setValue_forPropertyName(gTitles[++turn & 1].get(), ZSTR("title"));
}
BENCHMARK(BM_DynamicSetter_SetValueForPropertyName);

} // namespace

int main(int argc, char** argv)
{
    zon::bench::RatioReporter reporter;
    return zon::bench::runAndReport(argc, argv, reporter, [](zon::bench::RatioReporter& ran) {
        std::printf("\nTime ratios (ours / Qt; targets: getter 1.5x, setter 2x):\n");
        ran.printRatio("BM_DynamicGetter_BySelector", "BM_QtDynamicProperty_Get");
        ran.printRatio("BM_DynamicSetter_BySelector", "BM_QtDynamicProperty_Set");
    });
}
