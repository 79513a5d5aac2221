// URL and string conveniences against what a caller would use instead: appending five query
// arguments to a URL against libcurl's URL API (CURLU_APPENDQUERY with its own escaping), and
// splitting 100 MB of text into line records against a memchr loop that makes std::strings.
// The curl rows are built in when libcurl is found (`scripts/bootstrap bench` installs it).

#include "RatioReporter.h"

#include "extensions/NSStringChompFastEnumerator.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Dictionary.h"
#include "platform/values/URL.h"

#include <benchmark/benchmark.h>

#ifdef ZON_BENCH_HAVE_CURL
#include <curl/curl.h>
#endif

#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace zon;

namespace {

constexpr const char* kBase = "https://sync.example.com/api/v2/devices/library";

// Five arguments as a sync request carries them: plain words, a space, "+" and "/", an "&".
const std::vector<std::pair<std::string, std::string>>& arguments()
{
    static const std::vector<std::pair<std::string, std::string>> pairs {{"device", "A1B2C3D4E5F6"},
        {"name", "Kitchen Speaker 2"}, {"path", "/Music/Rock & Roll/"}, {"token", "a+b/c=="}, {"page", "12"}};
    return pairs;
}

void BM_AppendFiveArguments_Zon(benchmark::State& state)
{
    Ref<MutableDictionary> dictionary = MutableDictionary::dictionary();
    for (const auto& [key, value] : arguments())
        dictionary->setObject_forKey(String::stringWithUTF8String(value).get(), String::stringWithUTF8String(key).get());
    Ref<String> base = String::stringWithUTF8String(kBase);
    for (auto _ : state) {
        Ref<URL> url = URL::URLWithString(base.get())->urlByAppendingHttpArgumentsDictionary(dictionary.get());
        benchmark::DoNotOptimize(url->absoluteString());
    }
}
BENCHMARK(BM_AppendFiveArguments_Zon);

#ifdef ZON_BENCH_HAVE_CURL
// The same text through curl: parse the base, append each escaped key=value, read the URL back.
void BM_AppendFiveArguments_Curl(benchmark::State& state)
{
    std::vector<std::string> pairs;
    for (const auto& [key, value] : arguments())
        pairs.push_back(key + "=" + value);
    for (auto _ : state) {
        CURLU* url = curl_url();
        curl_url_set(url, CURLUPART_URL, kBase, 0);
        for (const std::string& pair : pairs)
            curl_url_set(url, CURLUPART_QUERY, pair.c_str(), CURLU_APPENDQUERY | CURLU_URLENCODE);
        char* text = nullptr;
        curl_url_get(url, CURLUPART_URL, &text, 0);
        benchmark::DoNotOptimize(text);
        curl_free(text);
        curl_url_cleanup(url);
    }
}
BENCHMARK(BM_AppendFiveArguments_Curl);
#endif

// 100 MB of lines from 0 to 120 characters, a few of them empty.
const std::string& hundredMegabytesOfLines()
{
    static const std::string text = [] {
        std::string out;
        out.reserve(100'000'000 + 200);
        std::mt19937 random(8);
        while (out.size() < 100'000'000) {
            const size_t length = random() % 121;
            for (size_t i = 0; i < length; ++i)
                out.push_back(char('a' + (i * 7 + length) % 26));
            out.push_back('\n');
        }
        return out;
    }();
    return text;
}

void BM_Chomp100MB_Zon(benchmark::State& state)
{
    Ref<String> text = String::stringWithUTF8String(hundredMegabytesOfLines());
    size_t records = 0;
    for (auto _ : state) {
        Ref<NSStringChompFastEnumerator> enumerator = text->chomp();
        records = 0;
        while (Ref<Object> record = enumerator->nextObject())
            ++records;
    }
    state.counters["records"] = double(records);
    state.SetBytesProcessed(int64_t(state.iterations() * hundredMegabytesOfLines().size()));
}
BENCHMARK(BM_Chomp100MB_Zon)->Unit(benchmark::kMillisecond)->Iterations(3);

// The fast way to split in plain C++: memchr to each line feed, one std::string per record.
void BM_Chomp100MB_MemchrStdString(benchmark::State& state)
{
    const std::string& text = hundredMegabytesOfLines();
    size_t records = 0;
    for (auto _ : state) {
        records = 0;
        const char* position = text.data();
        const char* end = position + text.size();
        while (position < end) {
            const void* found = std::memchr(position, '\n', size_t(end - position));
            const char* stop = found ? static_cast<const char*>(found) : end;
            std::string record(position, stop);
            benchmark::DoNotOptimize(record.data());
            ++records;
            position = stop + 1;
        }
    }
    state.counters["records"] = double(records);
    state.SetBytesProcessed(int64_t(state.iterations() * text.size()));
}
BENCHMARK(BM_Chomp100MB_MemchrStdString)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv,
        "Speed against the alternative (above 1: ours is faster; targets: curl 1x, memchr 0.3x):",
        {{"BM_AppendFiveArguments_Zon", "BM_AppendFiveArguments_Curl"},
            {"BM_Chomp100MB_Zon/iterations:3", "BM_Chomp100MB_MemchrStdString/iterations:3"}});
}
