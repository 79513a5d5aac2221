// Property lists on a document of about 15 MB (an array of 50,000 dictionaries of five keys: a
// string, an integer, a real, a date and data), written and read as XML, against Python's plistlib
// on the same document in the same run; and IPC packets packed and unpacked per second.

#include "RatioReporter.h"

#include "platform/io/PropertyListSerialization.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/Value.h"
#include "systemManagement/processManagement/TXZonIPCPacket.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <unistd.h>

using namespace zon;

namespace {

constexpr size_t kRecords = 50000;
// Both sides report the median of this many runs (plist_vs_plistlib.py takes it as an argument).
constexpr int kRepetitions = 5;

Ref<Array> makeDocument()
{
    std::vector<Ref<Object>> records;
    records.reserve(kRecords);
    for (size_t i = 0; i < kRecords; ++i) {
        uint8_t bytes[24];
        for (size_t b = 0; b < sizeof bytes; ++b)
            bytes[b] = static_cast<uint8_t>(i * 31 + b * 7);
        records.push_back(Dictionary::dictionaryWithObjectsAndKeys({
            {ZSTR("name"), String::stringWithFormat("Track %zu – Ünïcode & <friends>", i)},
            {ZSTR("identifier"), Number::numberWithLongLong(static_cast<long long>(i) * 1000003)},
            {ZSTR("rating"), Number::numberWithDouble(static_cast<double>(i) / 7.0)},
            {ZSTR("modified"), Date::dateWithTimeIntervalSinceReferenceDate(7e8 + static_cast<double>(i) * 61)},
            {ZSTR("artwork"), Data::dataWithBytes(bytes, sizeof bytes)},
        }));
    }
    return Array::arrayWithVector(std::move(records));
}

const Array* document()
{
    static const Ref<Array> array = makeDocument();
    return array;
}

const Data* documentXML()
{
    static const Ref<Data> xml = PropertyListSerialization::dataWithPropertyList(
        const_cast<Array*>(document()), NSPropertyListXMLFormat_v1_0, nullptr);
    return xml;
}

void BM_PropertyListWriteXML(benchmark::State& state)
{
    for (auto _ : state) {
        Ref<Data> xml = PropertyListSerialization::dataWithPropertyList(
            const_cast<Array*>(document()), NSPropertyListXMLFormat_v1_0, nullptr);
        benchmark::DoNotOptimize(xml.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * documentXML()->length()));
}
BENCHMARK(BM_PropertyListWriteXML)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);

void BM_PropertyListReadXML(benchmark::State& state)
{
    Data* xml = const_cast<Data*>(documentXML());
    for (auto _ : state) {
        Ref<Object> plist = PropertyListSerialization::propertyListWithData(xml, nullptr);
        benchmark::DoNotOptimize(plist.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * xml->length()));
}
BENCHMARK(BM_PropertyListReadXML)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);

// A typical request: a few strings and numbers and one geometric value.
Ref<Dictionary> request()
{
    return Dictionary::dictionaryWithObjectsAndKeys({
        {ZSTR("command"), ZSTR("syncPlaylist")},
        {ZSTR("playlist"), ZSTR("Morning Mix")},
        {ZSTR("tracks"), Number::numberWithInt(42)},
        {ZSTR("shuffle"), Number::yes()},
        {ZSTR("frame"), Value::valueWithRect({{0, 0}, {320, 240}})},
    });
}

void BM_PacketEncodeDictionary(benchmark::State& state)
{
    Ref<Dictionary> dictionary = request();
    for (auto _ : state) {
        AutoreleasePool pool;
        Ref<Data> wire = TXZonIPCPacket::packetWithDictionary(dictionary)->ZONIPCPacketData();
        benchmark::DoNotOptimize(wire.get());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PacketEncodeDictionary);

void BM_PacketDecodeDictionary(benchmark::State& state)
{
    Ref<Data> wire = TXZonIPCPacket::packetWithDictionary(request())->ZONIPCPacketData();
    for (auto _ : state) {
        AutoreleasePool pool;
        Ref<Dictionary> dictionary = TXZonIPCPacket::packetWithZONIPCPacketData(wire)->dictionaryValue();
        benchmark::DoNotOptimize(dictionary.get());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PacketDecodeDictionary);

void BM_PacketEncodeDecodeString(benchmark::State& state)
{
    Ref<String> text = ZSTR("Was connected to 'mediaserver', but can no longer communicate");
    for (auto _ : state) {
        Ref<Data> wire = TXZonIPCPacket::packetWithString(text)->ZONIPCPacketData();
        Ref<String> back = TXZonIPCPacket::packetWithZONIPCPacketData(wire)->stringValue();
        benchmark::DoNotOptimize(back.get());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PacketEncodeDecodeString);

// The median rate in MB/s of the benchmark named so over bytes, or 0 when it did not run.
double megabytesPerSecond(const bench::RatioReporter& reporter, const std::string& name, size_t bytes)
{
    const double nanoseconds = reporter.nanoseconds(name);
    return nanoseconds > 0 ? bytes / nanoseconds * 1e3 : 0;
}

void compareWithPlistlib(const bench::RatioReporter& reporter)
{
    const double ourWrite = megabytesPerSecond(reporter, "BM_PropertyListWriteXML", documentXML()->length());
    const double ourRead = megabytesPerSecond(reporter, "BM_PropertyListReadXML", documentXML()->length());
    if (ourWrite == 0 || ourRead == 0)
        return; // filtered out
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("zon-plist-bench-" + std::to_string(getpid()) + ".plist");
    std::ofstream(path, std::ios::binary)
        .write(static_cast<const char*>(documentXML()->bytes()), static_cast<std::streamsize>(documentXML()->length()));
    const std::string command =
        "python3 " ZON_PLISTLIB_SCRIPT " " + path.string() + " " + std::to_string(kRepetitions);
    double theirRead = 0, theirWrite = 0;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        if (std::fscanf(pipe, "%lf %lf", &theirRead, &theirWrite) != 2)
            theirRead = theirWrite = 0;
        pclose(pipe);
    }
    std::filesystem::remove(path);
    std::printf("\nProperty lists, %.1f MB document (%zu dictionaries of 5 keys), CPU time, median of %d runs:\n",
        documentXML()->length() / 1e6, kRecords, kRepetitions);
    if (theirRead == 0 || theirWrite == 0) {
        std::printf("  write %.0f MB/s, read %.0f MB/s; python3 plistlib not available for comparison\n", ourWrite, ourRead);
        return;
    }
    std::printf("  write: ZonCommon %7.1f MB/s   plistlib %6.1f MB/s   %5.1fx\n", ourWrite, theirWrite, ourWrite / theirWrite);
    std::printf("  read:  ZonCommon %7.1f MB/s   plistlib %6.1f MB/s   %5.1fx\n", ourRead, theirRead, ourRead / theirRead);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    documentXML(); // build the document outside the timed runs
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    compareWithPlistlib(reporter);
    benchmark::Shutdown();
    return 0;
}
