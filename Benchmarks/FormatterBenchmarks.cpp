// Number and date formatters against ICU used directly. Numbers: a kept NumberFormatter (decimal
// style, de_DE) against a kept ICU LocalizedNumberFormatter. Dates: the shared DateFormatter,
// which formats under a lock, against the ways round ICU's DateFormat not being safe to share: a
// clone of a prototype per text, or a new format per text; a kept format without a lock is the
// floor. The date rows also run on two threads at once, where the lock can be contended.

#include "RatioReporter.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Date.h"
#include "platform/values/DateFormatter.h"
#include "platform/values/Locale.h"
#include "platform/values/Number.h"
#include "platform/values/NumberFormatter.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <unicode/datefmt.h>
#include <unicode/numberformatter.h>

#include <memory>

using namespace zon;

namespace {

constexpr double kValues[] {0, 1.5, 1023.95, 123456.789, -98765.4321, 1e9 + 0.5};
constexpr UDate kMoment = 1700000000000.0;

Ref<Locale> german() { return Locale::localeWithLocaleIdentifier(String::stringWithUTF8String("de_DE")); }

void BM_NumberFormatter_Zon(benchmark::State& state)
{
    auto formatter = NumberFormatter::init();
    formatter->setNumberStyle(NSNumberFormatterDecimalStyle);
    formatter->setLocale(german());
    std::vector<Ref<Number>> numbers;
    for (double value : kValues)
        numbers.push_back(Number::numberWithDouble(value));
    for (auto _ : state) {
        for (const auto& number : numbers)
            benchmark::DoNotOptimize(formatter->stringFromNumber(number));
    }
    state.SetItemsProcessed(int64_t(state.iterations() * std::size(kValues)));
}
BENCHMARK(BM_NumberFormatter_Zon);

void BM_NumberFormat_ICU(benchmark::State& state)
{
    const auto formatter = icu::number::NumberFormatter::withLocale(icu::Locale("de_DE"))
        .precision(icu::number::Precision::minMaxFraction(0, 3));
    for (auto _ : state) {
        for (double value : kValues) {
            UErrorCode status = U_ZERO_ERROR;
            const icu::UnicodeString& text = formatter.formatDouble(value, status).toTempString(status);
            benchmark::DoNotOptimize(String::stringWithCharacters(text.getBuffer(), size_t(text.length())));
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations() * std::size(kValues)));
}
BENCHMARK(BM_NumberFormat_ICU);

void BM_DateFormatter_Zon(benchmark::State& state)
{
    auto formatter = DateFormatter::init();
    formatter->setDateStyle(NSDateFormatterLongStyle);
    formatter->setTimeStyle(NSDateFormatterShortStyle);
    formatter->setLocale(german());
    const auto date = Date::dateWithTimeIntervalSince1970(kMoment / 1000);
    for (auto _ : state)
        benchmark::DoNotOptimize(formatter->stringFromDate(date));
}
BENCHMARK(BM_DateFormatter_Zon)->Threads(1)->Threads(2);

std::unique_ptr<icu::DateFormat> germanLongShort()
{
    return std::unique_ptr<icu::DateFormat>(
        icu::DateFormat::createDateTimeInstance(icu::DateFormat::kLong, icu::DateFormat::kShort, icu::Locale("de_DE")));
}

void BM_DateFormat_ICUClonePerText(benchmark::State& state)
{
    static const auto prototype = germanLongShort();
    for (auto _ : state) {
        std::unique_ptr<icu::DateFormat> format(prototype->clone());
        icu::UnicodeString text;
        benchmark::DoNotOptimize(format->format(kMoment, text));
    }
}
BENCHMARK(BM_DateFormat_ICUClonePerText)->Threads(1)->Threads(2);

void BM_DateFormat_ICUNewPerText(benchmark::State& state)
{
    for (auto _ : state) {
        icu::UnicodeString text;
        benchmark::DoNotOptimize(germanLongShort()->format(kMoment, text));
    }
}
BENCHMARK(BM_DateFormat_ICUNewPerText);

void BM_DateFormat_ICUKeptUnlocked(benchmark::State& state)
{
    const auto format = germanLongShort();
    for (auto _ : state) {
        icu::UnicodeString text;
        benchmark::DoNotOptimize(format->format(kMoment, text));
    }
}
BENCHMARK(BM_DateFormat_ICUKeptUnlocked);

} // namespace

int main(int argc, char** argv)
{
    AutoreleasePool pool;
    return zon::bench::runAndCompare(argc, argv, "Speed against ICU used directly (above 1: ours is faster):",
        {{"BM_NumberFormatter_Zon", "BM_NumberFormat_ICU"},
            {"BM_DateFormatter_Zon/threads:1", "BM_DateFormat_ICUClonePerText/threads:1"},
            {"BM_DateFormatter_Zon/threads:2", "BM_DateFormat_ICUClonePerText/threads:2"},
            {"BM_DateFormatter_Zon/threads:1", "BM_DateFormat_ICUNewPerText"},
            {"BM_DateFormatter_Zon/threads:1", "BM_DateFormat_ICUKeptUnlocked"}});
}
