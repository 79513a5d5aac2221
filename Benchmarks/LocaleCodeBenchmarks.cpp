// Windows locale code look-ups against ICU's own LCID functions, the alternative a caller would
// pick: identifier to code against uloc_getLCID, code to identifier against uloc_getLocaleForLCID.
// Both sides look up the same mix of identifiers and codes: every identifier the table names
// (ICU's look-up is given them without the table's NUL characters).

#include "RatioReporter.h"

#include "platform/values/Locale.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>
#include <unicode/uloc.h>

#include <string>
#include <vector>

using namespace zon;

namespace {

struct Sample {
    std::vector<Ref<String>> identifiers;     // as the table makes them
    std::vector<std::string> plainIdentifiers; // without NULs, for ICU
    std::vector<uint32_t> codes;
};

const Sample& sample()
{
    static const Sample made = [] {
        Sample sample;
        for (const auto& [code, identifier] : Locale::windowsLocaleCodeTable()) {
            if (!identifier || code == 0)
                continue;
            std::string plain;
            for (char16_t unit : identifier->view())
                if (unit != u'\0')
                    plain += char(unit);
            sample.identifiers.push_back(identifier);
            sample.plainIdentifiers.push_back(plain);
            sample.codes.push_back(code);
        }
        return sample;
    }();
    return made;
}

void BM_IdentifierToCode_Zon(benchmark::State& state)
{
    // Plain identifiers, as a caller holding "en_US" passes them.
    std::vector<Ref<String>> identifiers;
    for (const std::string& plain : sample().plainIdentifiers)
        identifiers.push_back(String::stringWithUTF8String(plain));
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Locale::windowsLocaleCodeFromLocaleIdentifier(identifiers[next].get()));
        next = next + 1 == identifiers.size() ? 0 : next + 1;
    }
}
BENCHMARK(BM_IdentifierToCode_Zon);

void BM_IdentifierToCode_ICU(benchmark::State& state)
{
    const std::vector<std::string>& identifiers = sample().plainIdentifiers;
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(uloc_getLCID(identifiers[next].c_str()));
        next = next + 1 == identifiers.size() ? 0 : next + 1;
    }
}
BENCHMARK(BM_IdentifierToCode_ICU);

void BM_CodeToIdentifier_Zon(benchmark::State& state)
{
    const std::vector<uint32_t>& codes = sample().codes;
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Locale::localeIdentifierFromWindowsLocaleCode(codes[next]));
        next = next + 1 == codes.size() ? 0 : next + 1;
    }
}
BENCHMARK(BM_CodeToIdentifier_Zon);

void BM_CodeToIdentifier_ICU(benchmark::State& state)
{
    const std::vector<uint32_t>& codes = sample().codes;
    size_t next = 0;
    char identifier[ULOC_FULLNAME_CAPACITY];
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        benchmark::DoNotOptimize(uloc_getLocaleForLCID(codes[next], identifier, sizeof identifier, &status));
        next = next + 1 == codes.size() ? 0 : next + 1;
    }
}
BENCHMARK(BM_CodeToIdentifier_ICU);

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv,
        "Speed against ICU (above 1: ours is faster; targets: identifier to code 2x, code to identifier 1x):",
        {{"BM_IdentifierToCode_Zon", "BM_IdentifierToCode_ICU"}, {"BM_CodeToIdentifier_Zon", "BM_CodeToIdentifier_ICU"}});
}
