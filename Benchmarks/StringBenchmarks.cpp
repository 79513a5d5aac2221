// UTF-8 <-> UTF-16 conversion against ICU's u_strFromUTF8/u_strToUTF8 on the same texts, in
// bytes of UTF-8 per second: the raw one-pass converters into a ready buffer (like for like with
// ICU), and the String operations a caller uses (which also size and allocate their result).

#include "RatioReporter.h"

#include "platform/values/String.h"
#include "platform/values/UTF.h"

#include <benchmark/benchmark.h>
#include <unicode/ustring.h>

#include <string>

using namespace zon;

namespace {

constexpr size_t kTextBytes = 64 * 1024;

enum Corpus { ASCII, Latin, Cyrillic, CJK, Emoji };
const char* const kCorpusNames[] = {"ascii", "latin", "cyrillic", "cjk", "emoji"};

// About 64 KiB of UTF-8 text of one kind: plain English, French-like prose with an accent every
// few letters, Cyrillic words with ASCII spaces, Chinese, and English with an emoji per line.
const std::string& text(Corpus corpus)
{
    static const std::string texts[] = {
        [] {
            std::string s;
            while (s.size() < kTextBytes)
                s += "The quick brown fox jumps over the lazy dog while the server logs a line. ";
            return s;
        }(),
        [] {
            std::string s;
            while (s.size() < kTextBytes)
                s += "L'\xC3\xA9t\xC3\xA9 dernier, la soci\xC3\xA9t\xC3\xA9 a cr\xC3\xA9\xC3\xA9 un r\xC3\xA9seau. ";
            return s;
        }(),
        [] {
            std::string s;
            while (s.size() < kTextBytes)
                s += "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82 \xD0\xBC\xD0\xB8\xD1\x80 ";
            return s;
        }(),
        [] {
            std::string s;
            while (s.size() < kTextBytes)
                s += "\xE4\xB8\xAD\xE6\x96\x87\xE6\xB5\x8B\xE8\xAF\x95\xE6\x96\x87\xE6\x9C\xAC";
            return s;
        }(),
        [] {
            std::string s;
            while (s.size() < kTextBytes)
                s += "Connected to the media server \xF0\x9F\x98\x80 and synced 42 items.\n";
            return s;
        }(),
    };
    return texts[corpus];
}

std::u16string utf16Text(Corpus corpus) { return std::u16string(String::stringWithUTF8String(text(corpus))->view()); }

Corpus corpusOf(const benchmark::State& state) { return static_cast<Corpus>(state.range(0)); }

void finish(benchmark::State& state, size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.SetLabel(kCorpusNames[corpusOf(state)]);
}

void BM_ZonUTF8ToUTF16(benchmark::State& state)
{
    const std::string& input = text(corpusOf(state));
    std::u16string output(input.size(), u'\0');
    for (auto _ : state) {
        const size_t units = utf::convertUTF8ToUTF16(input, output.data());
        benchmark::DoNotOptimize(units);
        benchmark::DoNotOptimize(output.data());
    }
    finish(state, input.size());
}

void BM_ICUUTF8ToUTF16(benchmark::State& state)
{
    const std::string& input = text(corpusOf(state));
    std::u16string output(input.size(), u'\0');
    for (auto _ : state) {
        int32_t units = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8(reinterpret_cast<UChar*>(output.data()), static_cast<int32_t>(output.size()), &units,
            input.data(), static_cast<int32_t>(input.size()), &status);
        benchmark::DoNotOptimize(units);
        benchmark::DoNotOptimize(output.data());
    }
    finish(state, input.size());
}

void BM_StringWithUTF8String(benchmark::State& state)
{
    const std::string& input = text(corpusOf(state));
    for (auto _ : state)
        benchmark::DoNotOptimize(String::stringWithUTF8String(input));
    finish(state, input.size());
}

void BM_ZonUTF16ToUTF8(benchmark::State& state)
{
    const std::u16string input = utf16Text(corpusOf(state));
    std::string output(3 * input.size(), '\0');
    for (auto _ : state)
        benchmark::DoNotOptimize(utf::convertUTF16ToUTF8(input, output.data()));
    finish(state, text(corpusOf(state)).size());
}

void BM_ICUUTF16ToUTF8(benchmark::State& state)
{
    const std::u16string input = utf16Text(corpusOf(state));
    std::string output(3 * input.size(), '\0');
    for (auto _ : state) {
        int32_t bytes = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strToUTF8(output.data(), static_cast<int32_t>(output.size()), &bytes,
            reinterpret_cast<const UChar*>(input.data()), static_cast<int32_t>(input.size()), &status);
        benchmark::DoNotOptimize(bytes);
        benchmark::DoNotOptimize(output.data());
    }
    finish(state, text(corpusOf(state)).size());
}

void BM_StringUTF8String(benchmark::State& state)
{
    Ref<String> input = String::stringWithUTF8String(text(corpusOf(state)));
    for (auto _ : state)
        benchmark::DoNotOptimize(input->UTF8String());
    finish(state, text(corpusOf(state)).size());
}

void corpora(benchmark::internal::Benchmark* benchmark)
{
    for (int corpus = ASCII; corpus <= Emoji; ++corpus)
        benchmark->Arg(corpus);
}

BENCHMARK(BM_ZonUTF8ToUTF16)->Apply(corpora);
BENCHMARK(BM_ICUUTF8ToUTF16)->Apply(corpora);
BENCHMARK(BM_StringWithUTF8String)->Apply(corpora);
BENCHMARK(BM_ZonUTF16ToUTF8)->Apply(corpora);
BENCHMARK(BM_ICUUTF16ToUTF8)->Apply(corpora);
BENCHMARK(BM_StringUTF8String)->Apply(corpora);

} // namespace

int main(int argc, char** argv)
{
    zon::bench::Comparisons comparisons;
    for (int corpus = ASCII; corpus <= Emoji; ++corpus) {
        const std::string arg = "/" + std::to_string(corpus);
        comparisons.push_back({"BM_ZonUTF8ToUTF16" + arg, "BM_ICUUTF8ToUTF16" + arg});
        comparisons.push_back({"BM_StringWithUTF8String" + arg, "BM_ICUUTF8ToUTF16" + arg});
        comparisons.push_back({"BM_ZonUTF16ToUTF8" + arg, "BM_ICUUTF16ToUTF8" + arg});
        comparisons.push_back({"BM_StringUTF8String" + arg, "BM_ICUUTF16ToUTF8" + arg});
    }
    return zon::bench::runAndCompare(
        argc, argv, "Speed-up over ICU on the same text (above 1: ours is faster):", comparisons);
}
