// Byte sizes as text against what a caller would use instead: GLib's g_format_size_full with IEC
// units (one fraction digit, base 1024) and KDE's KFormat::formatByteSize in its JEDEC dialect
// (KB, MB on base 1024, the suite's own convention). Each row formats the same sixteen counts,
// from bytes to petabytes. The GLib and KDE rows are built in when their libraries are found
// (`scripts/bootstrap bench` installs them).

#include "RatioReporter.h"

#include "formatters/TXZonByteSizeFormatter.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#ifdef ZON_BENCH_HAVE_GLIB
#include <glib.h>
#endif
#ifdef ZON_BENCH_HAVE_KF5
#include <KFormat>
#include <QLocale>
#endif

#include <array>
#include <cstdint>

using namespace zon;

namespace {

constexpr std::array<long long, 16> kCounts {0, 512, 1023, 1024, 1536, 123456, 1048575, 1048576, 7340032, 987654321,
    5368709120, 44040192000, 1099511627776, 3298534883328, 1125899906842624, 4503599627370496};

template <class Format>
void formatEveryCount(benchmark::State& state, Format format)
{
    for (auto _ : state) {
        for (long long count : kCounts)
            format(count);
    }
    state.SetItemsProcessed(int64_t(state.iterations() * kCounts.size()));
}

void BM_ByteSizeString_Zon(benchmark::State& state)
{
    AutoreleasePool pool;
    formatEveryCount(state, [](long long count) { benchmark::DoNotOptimize(TXZonByteSizeString(count)); });
}
BENCHMARK(BM_ByteSizeString_Zon);

void BM_ByteSizeDecimalString_Zon(benchmark::State& state)
{
    AutoreleasePool pool;
    formatEveryCount(state, [](long long count) { benchmark::DoNotOptimize(TXZonByteSizeDecimalString(count)); });
}
BENCHMARK(BM_ByteSizeDecimalString_Zon);

// The formatter made once and kept (each count boxed in a number, as a caller would pass it), for
// the share of TXZonByteSizeString's per-call formatter.
void BM_ByteSizeFormatterKept_Zon(benchmark::State& state)
{
    AutoreleasePool pool;
    auto formatter = TXZonByteSizeFormatter::init();
    formatEveryCount(state, [&](long long count) {
        benchmark::DoNotOptimize(formatter->stringForObjectValue(Number::numberWithLongLong(count)));
    });
}
BENCHMARK(BM_ByteSizeFormatterKept_Zon);

#ifdef ZON_BENCH_HAVE_GLIB
void BM_ByteSize_GLibIEC(benchmark::State& state)
{
    formatEveryCount(state, [](long long count) {
        gchar* text = g_format_size_full(guint64(count), G_FORMAT_SIZE_IEC_UNITS);
        benchmark::DoNotOptimize(text);
        g_free(text);
    });
}
BENCHMARK(BM_ByteSize_GLibIEC);
#endif

#ifdef ZON_BENCH_HAVE_KF5
void BM_ByteSize_KFormatJEDEC(benchmark::State& state)
{
    const KFormat format(QLocale(QLocale::English, QLocale::UnitedStates));
    formatEveryCount(state, [&](long long count) {
        benchmark::DoNotOptimize(format.formatByteSize(double(count), 1, KFormat::JEDECBinaryDialect));
    });
}
BENCHMARK(BM_ByteSize_KFormatJEDEC);

// A KFormat made for each text, as a function that answers one size would make it.
void BM_ByteSize_KFormatJEDECPerCall(benchmark::State& state)
{
    const QLocale locale(QLocale::English, QLocale::UnitedStates);
    formatEveryCount(state, [&](long long count) {
        benchmark::DoNotOptimize(KFormat(locale).formatByteSize(double(count), 1, KFormat::JEDECBinaryDialect));
    });
}
BENCHMARK(BM_ByteSize_KFormatJEDECPerCall);
#endif

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv,
        "Speed against the alternative (above 1: ours is faster; targets: GLib 0.67x, KFormat 1x, whole numbers "
        "against GLib 1x):",
        {{"BM_ByteSizeString_Zon", "BM_ByteSize_GLibIEC"}, {"BM_ByteSizeString_Zon", "BM_ByteSize_KFormatJEDEC"},
            {"BM_ByteSizeDecimalString_Zon", "BM_ByteSize_GLibIEC"},
            {"BM_ByteSizeFormatterKept_Zon", "BM_ByteSize_KFormatJEDEC"},
            {"BM_ByteSizeString_Zon", "BM_ByteSize_KFormatJEDECPerCall"}});
}
