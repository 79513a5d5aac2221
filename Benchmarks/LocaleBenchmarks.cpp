// What the formatters pay per formatted value for the current locale and the library's string
// table, beside ICU's own default locale and making a locale afresh.

#include "platform/io/Bundle.h"
#include "platform/values/Array.h"
#include "platform/values/Locale.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>
#include <unicode/locid.h>

using namespace zon;

static void CurrentLocale(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Locale::currentLocale());
}
BENCHMARK(CurrentLocale);

static void ICUDefaultLocale(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(icu::Locale::getDefault().getName());
}
BENCHMARK(ICUDefaultLocale);

static void LocaleWithIdentifier(benchmark::State& state)
{
    String* identifier = ZSTR("de_DE");
    for (auto _ : state)
        benchmark::DoNotOptimize(Locale::localeWithLocaleIdentifier(identifier));
}
BENCHMARK(LocaleWithIdentifier);

static void PreferredLanguages(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Locale::preferredLanguages());
}
BENCHMARK(PreferredLanguages);

static void LocalizedStringOfTheLibrary(benchmark::State& state)
{
    String* key = ZSTR("KB");
    for (auto _ : state)
        benchmark::DoNotOptimize(ZonLocalizedString(key));
}
BENCHMARK(LocalizedStringOfTheLibrary);
