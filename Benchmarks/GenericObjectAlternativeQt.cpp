// Qt's dynamic properties, as a Qt program would keep untyped model values: a QObject with eight
// properties set by setProperty, read by property() and written with setProperty, which sends
// the object a QDynamicPropertyChangeEvent for every change (so an application object exists).

#include "QtApplication.h"

#include <QObject>
#include <QString>
#include <QVariant>

#include <benchmark/benchmark.h>

#include <memory>

namespace {

std::unique_ptr<QObject> filledObject()
{
    zon::bench::ensureQtApplication();
    auto object = std::make_unique<QObject>();
    for (const char* name : {"title", "artist", "album", "genre"})
        object->setProperty(name, QString());
    for (const char* name : {"year", "trackNumber", "duration", "rating"})
        object->setProperty(name, 0);
    object->setProperty("title", QString("Blue in Green"));
    object->setProperty("year", 1959);
    return object;
}

void BM_QtDynamicProperty_Get(benchmark::State& state)
{
    auto object = filledObject();
    for (auto _ : state) {
        QVariant value = object->property("title");
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_QtDynamicProperty_Get);

void BM_QtDynamicProperty_Set(benchmark::State& state)
{
    auto object = filledObject();
    const QVariant titles[2] = {QString("Blue in Green"), QString("So What")};
    size_t turn = 0;
    for (auto _ : state)
        object->setProperty("title", titles[++turn & 1]);
}
BENCHMARK(BM_QtDynamicProperty_Set);

} // namespace
