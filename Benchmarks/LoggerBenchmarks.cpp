// The Logger's two costs that matter: a call whose level no sink wants, and a call that reaches a
// file. The file case is compared with fprintf of the same line to a FILE*, buffered and flushed
// after each line (the sink writes each line as it arrives so that it survives a crash).

#include "logger/FileSink.h"
#include "logger/Logger.h"
#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/values/String.h"

#include "RatioReporter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <unistd.h>

using namespace zon;

namespace {

constexpr uint64_t kFileLimit = 16u << 20;

std::string scratchPath(const char* name)
{
    return (std::filesystem::temp_directory_path() / (std::string("zon-bench-") + std::to_string(getpid()) + "-" + name)).string();
}

// Replaces the Logger's sinks for one benchmark and restores them afterwards.
class SinkScope {
public:
    explicit SinkScope(std::shared_ptr<logger::Sink> only = nullptr)
        : saved_(logger::sinks())
    {
        for (auto& sink : saved_)
            logger::removeSink(sink);
        if (only)
            logger::addSink(only_ = std::move(only));
    }
    ~SinkScope()
    {
        if (only_)
            logger::removeSink(only_);
        for (auto& sink : saved_)
            logger::addSink(sink);
    }

private:
    std::vector<std::shared_ptr<logger::Sink>> saved_;
    std::shared_ptr<logger::Sink> only_;
};

void BM_ZonLogObjFilteredOut(benchmark::State& state)
{
    SinkScope scope(std::make_shared<logger::FileSink>(scratchPath("filtered.log"), logger::kLevelWarning, 0, 0));
    Ref<String> source = String::stringWithUTF8String("stream-1");
    for (auto _ : state)
        zon_log_obj(__FILE__, __LINE__, ZSTR("BufferStream"), 5, kDefaultLogIdentifier,
            "%@ *| Buffer Stream Wrote %d of %u from %@", source.get(), 512, 4096u, source.get());
    std::remove(scratchPath("filtered.log").c_str());
}
BENCHMARK(BM_ZonLogObjFilteredOut);

// An object whose class answers its own log category, as a line about it would pass it: the
// object itself (the category is asked for only when the line is written) or its category.
class Labelled final : public Object {
    ZON_OBJECT(Labelled, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportClassMethod("objectLogCategory", +[]() -> String* { return ZSTR("Labelled"); });
    }
};
ZON_DEFINE_CLASS(Labelled, "BenchLabelled")

enum class CategoryPassed { Object, Eagerly };

void filteredOutForObject(benchmark::State& state, CategoryPassed passed)
{
    SinkScope scope(std::make_shared<logger::FileSink>(scratchPath("filtered.log"), logger::kLevelWarning, 0, 0));
    auto object = makeObject<Labelled>();
    for (auto _ : state) {
        if (passed == CategoryPassed::Object)
            zon_log_obj(__FILE__, __LINE__, object.get(), logger::kLevelDetail, kDefaultLogIdentifier, "%d", 512);
        else
            zon_log_obj(__FILE__, __LINE__, object->objectLogCategory(), logger::kLevelDetail, kDefaultLogIdentifier,
                "%d", 512);
    }
    std::remove(scratchPath("filtered.log").c_str());
}

void BM_ZonLogObjFilteredOutForObject(benchmark::State& state) { filteredOutForObject(state, CategoryPassed::Object); }
BENCHMARK(BM_ZonLogObjFilteredOutForObject);

void BM_ZonLogObjFilteredOutCategoryAskedFirst(benchmark::State& state)
{
    filteredOutForObject(state, CategoryPassed::Eagerly);
}
BENCHMARK(BM_ZonLogObjFilteredOutCategoryAskedFirst);

void BM_ZonLogObjToFileSink(benchmark::State& state)
{
    std::string path = scratchPath("sink.log");
    SinkScope scope(std::make_shared<logger::FileSink>(path, logger::kLevelDetail, kFileLimit, 0));
    Ref<String> source = String::stringWithUTF8String("stream-1");
    int written = 0;
    // Each line differs, so each is written: the same line again would only be counted.
    for (auto _ : state)
        zon_log_obj(__FILE__, __LINE__, ZSTR("BufferStream"), 5, kDefaultLogIdentifier,
            "%@ *| Buffer Stream Wrote %d of %u from %@", source.get(), ++written % 1000, 4096u, source.get());
    std::remove(path.c_str());
}
BENCHMARK(BM_ZonLogObjToFileSink);

// A flood of one line: after the first, each call is counted, not written.
void BM_ZonLogObjRepeatedToFileSink(benchmark::State& state)
{
    std::string path = scratchPath("repeated.log");
    SinkScope scope(std::make_shared<logger::FileSink>(path, logger::kLevelDetail, kFileLimit, 0));
    Ref<String> source = String::stringWithUTF8String("stream-1");
    for (auto _ : state)
        zon_log_obj(__FILE__, __LINE__, ZSTR("BufferStream"), 5, kDefaultLogIdentifier,
            "%@ *| Buffer Stream Wrote %d of %u from %@", source.get(), 512, 4096u, source.get());
    std::remove(path.c_str());
}
BENCHMARK(BM_ZonLogObjRepeatedToFileSink);

enum class Flush { Never, EachLine };

// fprintf of the line the sink writes, with the same fields filled in at each call.
void fprintfLines(benchmark::State& state, Flush flush)
{
    std::string path = scratchPath(flush == Flush::Never ? "fprintf.log" : "fprintf-flush.log");
    FILE* file = std::fopen(path.c_str(), "w");
    const char* source = "stream-1";
    uint64_t written = 0;
    for (auto _ : state) {
        auto now = std::chrono::system_clock::now();
        std::time_t seconds = std::chrono::system_clock::to_time_t(now);
        std::tm parts;
        localtime_r(&seconds, &parts);
        long micros = long(std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count() % 1000000);
        int n = std::fprintf(file,
            "%04d-%02d-%02d %02d:%02d:%02d.%06ld %s[%d:%d] <D> BufferStream/default %s:%d: %s *| Buffer Stream Wrote %d of %u from %s\n",
            parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, micros,
            program_invocation_short_name, int(getpid()), int(gettid()), "Benchmarks/LoggerBenchmarks.cpp", __LINE__,
            source, 512, 4096u, source);
        if (flush == Flush::EachLine)
            std::fflush(file);
        written += uint64_t(n);
        if (written > kFileLimit) {
            std::fflush(file);
            std::rewind(file);
            written = 0;
        }
    }
    std::fclose(file);
    std::remove(path.c_str());
}

void BM_FprintfToFile(benchmark::State& state) { fprintfLines(state, Flush::Never); }
BENCHMARK(BM_FprintfToFile);

void BM_FprintfFlushedToFile(benchmark::State& state) { fprintfLines(state, Flush::EachLine); }
BENCHMARK(BM_FprintfFlushedToFile);

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv, "Speed-ups (CPU time; above 1: the left side is faster):",
        {
            {"BM_ZonLogObjToFileSink", "BM_FprintfToFile"},
            {"BM_ZonLogObjToFileSink", "BM_FprintfFlushedToFile"},
            {"BM_ZonLogObjFilteredOut", "BM_FprintfToFile"},
        });
}
