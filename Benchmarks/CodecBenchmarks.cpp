// The codecs against what a user would pick instead, in one run: gzip and gunzip against zlib's
// own streaming calls with the same parameters, MD5 against libcrypto's digest call, hex in both
// directions, TLE field writes, and the JSON parser against nlohmann::json and RapidJSON building
// a document from the same text. Benchmarks/codec_commands.sh compares with the gzip and openssl
// commands.

#include "RatioReporter.h"

#include "extensions/NSData+ZonExtensions.h"
#include "platform/values/String.h"
#include "utilities/data/TXJSONParser.h"
#include "utilities/data/TXZonTLEUtilities.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <zlib.h>

#include <cstdio>
#include <string>
#include <vector>

#if __has_include(<nlohmann/json.hpp>)
#include <nlohmann/json.hpp>
#define ZON_HAVE_NLOHMANN 1
#endif
#if __has_include(<rapidjson/document.h>)
#include <rapidjson/document.h>
#define ZON_HAVE_RAPIDJSON 1
#endif

namespace {

using namespace zon;
using Bytes = std::vector<uint8_t>;

// 8 MB of text-like bytes, compressible about 3:1 as device payloads are.
const Bytes& payload()
{
    static const Bytes bytes = [] {
        static const char* const words[] = {"device ", "track ", "album ", "0x1F ", "sync ", "\n", "playlist "};
        Bytes out;
        uint32_t seed = 1;
        while (out.size() < (8u << 20)) {
            seed = seed * 1664525u + 1013904223u;
            if (seed >> 28 == 0) {
                out.push_back(static_cast<uint8_t>(seed >> 16));
                continue;
            }
            for (const char* c = words[(seed >> 16) % 7]; *c; ++c)
                out.push_back(static_cast<uint8_t>(*c));
        }
        return out;
    }();
    return bytes;
}

Ref<Data> payloadData()
{
    static const Ref<Data> data = Data::dataWithBytes(payload().data(), payload().size());
    return data;
}

Ref<Data> compressedPayload()
{
    static const Ref<Data> data = payloadData()->gzipWithZlib();
    return data;
}

// zlib's streaming calls as their documentation shows them: 256 KB output chunks appended to a
// vector.
Bytes zlibDeflate(const Bytes& input)
{
    z_stream stream {};
    deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    Bytes out;
    uint8_t chunk[256 << 10];
    do {
        stream.next_out = chunk;
        stream.avail_out = sizeof chunk;
        deflate(&stream, Z_FINISH);
        out.insert(out.end(), chunk, chunk + (sizeof chunk - stream.avail_out));
    } while (stream.avail_out == 0);
    deflateEnd(&stream);
    return out;
}

Bytes zlibInflate(const Data* input)
{
    z_stream stream {};
    inflateInit2(&stream, 47);
    stream.next_in = const_cast<Bytef*>(static_cast<const Bytef*>(input->bytes()));
    stream.avail_in = static_cast<uInt>(input->length());
    Bytes out;
    uint8_t chunk[256 << 10];
    int rc;
    do {
        stream.next_out = chunk;
        stream.avail_out = sizeof chunk;
        rc = inflate(&stream, Z_NO_FLUSH);
        out.insert(out.end(), chunk, chunk + (sizeof chunk - stream.avail_out));
    } while (rc == Z_OK);
    inflateEnd(&stream);
    return out;
}

void BM_GzipWithZlib(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(payloadData()->gzipWithZlib());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload().size()));
}
BENCHMARK(BM_GzipWithZlib)->Unit(benchmark::kMillisecond);

void BM_ZlibDeflateStreaming(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(zlibDeflate(payload()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload().size()));
}
BENCHMARK(BM_ZlibDeflateStreaming)->Unit(benchmark::kMillisecond);

void BM_GunzipWithZlib(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(compressedPayload()->gunzipWithZlib());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload().size()));
}
BENCHMARK(BM_GunzipWithZlib)->Unit(benchmark::kMillisecond);

void BM_ZlibInflateStreaming(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(zlibInflate(compressedPayload()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload().size()));
}
BENCHMARK(BM_ZlibInflateStreaming)->Unit(benchmark::kMillisecond);

void BM_Md5Hash(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(payloadData()->md5Hash());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload().size()));
}
BENCHMARK(BM_Md5Hash)->Unit(benchmark::kMillisecond);

void BM_EvpDigestMd5(benchmark::State& state)
{
    for (auto _ : state) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_Digest(payload().data(), payload().size(), digest, &length, EVP_md5(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload().size()));
}
BENCHMARK(BM_EvpDigestMd5)->Unit(benchmark::kMillisecond);

void BM_HexEncode(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(payloadData()->hexStringRepresentation());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload().size()));
}
BENCHMARK(BM_HexEncode)->Unit(benchmark::kMillisecond);

// Rate in bytes of hexadecimal text read.
void BM_HexDecode(benchmark::State& state)
{
    static const Ref<String> text = payloadData()->hexStringRepresentation();
    for (auto _ : state)
        benchmark::DoNotOptimize(Data::dataFromHexStringRepresentation(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text->length()));
}
BENCHMARK(BM_HexDecode)->Unit(benchmark::kMillisecond);

// One record as a device exchange writes it: integers of each size, a long, two strings.
void BM_TLEFieldWrites(benchmark::State& state)
{
    static const Ref<String> title = String::stringWithUTF8String("Track title 12");
    static const Ref<String> artist = String::stringWithUTF8String("Ωmega Ensemble");
    Ref<MutableData> buffer = MutableData::dataWithCapacity(1 << 20);
    for (auto _ : state) {
        if (buffer->length() > (1 << 20) - 128)
            buffer->setLength(0);
        TXZonTLEUtilities::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(buffer, 1, 42, false);
        TXZonTLEUtilities::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(buffer, 2, 215000, false);
        TXZonTLEUtilities::writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(buffer, 3, 0x123456789, false);
        TXZonTLEUtilities::writeBooleanFieldToBuffer_ofType_withValue(buffer, 4, true);
        TXZonTLEUtilities::writeStringFieldToBuffer_ofType_withValue_andNullTerminate(buffer, 5, title, true);
        TXZonTLEUtilities::writeStringFieldToBuffer_ofType_withValue(buffer, 6, artist);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * 6));
}
BENCHMARK(BM_TLEFieldWrites);

// About 2 MB of web-service JSON: an array of track records.
const std::string& jsonText()
{
    static const std::string text = [] {
        std::string out = "[";
        for (int i = 0; i < 8000; ++i) {
            char record[320];
            std::snprintf(record, sizeof record,
                "%s{\"id\": %d, \"title\": \"Track %d\", \"artist\": \"Caf\xC3\xA9 Ensemble\", \"duration\": %d.%d, "
                "\"rating\": -%d.5e-3, \"explicit\": %s, \"album\": null, \"tags\": [\"live\", \"remaster\", %d], "
                "\"path\": \"\\/Music\\/%d.m4a\"}",
                i ? ",\n " : "", i, i, 100 + i % 300, i % 10, i % 7, i % 3 ? "false" : "true", i % 5, i);
            out += record;
        }
        return out + "]";
    }();
    return text;
}

void BM_JSONParse(benchmark::State& state)
{
    static const Ref<String> text = String::stringWithUTF8String(jsonText());
    for (auto _ : state) {
        bool success = false;
        benchmark::DoNotOptimize(TXJSONParser::JsonDecode_withSuccess(text, &success));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * jsonText().size()));
}
BENCHMARK(BM_JSONParse)->Unit(benchmark::kMillisecond);

// From UTF-8 bytes, as the other two parsers start.
void BM_JSONParseFromUTF8(benchmark::State& state)
{
    for (auto _ : state) {
        bool success = false;
        benchmark::DoNotOptimize(TXJSONParser::JsonDecode_withSuccess(String::stringWithUTF8String(jsonText()), &success));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * jsonText().size()));
}
BENCHMARK(BM_JSONParseFromUTF8)->Unit(benchmark::kMillisecond);

#ifdef ZON_HAVE_NLOHMANN
void BM_NlohmannParse(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(nlohmann::json::parse(jsonText()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * jsonText().size()));
}
BENCHMARK(BM_NlohmannParse)->Unit(benchmark::kMillisecond);
#endif

#ifdef ZON_HAVE_RAPIDJSON
void BM_RapidJSONParse(benchmark::State& state)
{
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(jsonText().c_str(), jsonText().size());
        benchmark::DoNotOptimize(document.IsArray());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * jsonText().size()));
}
BENCHMARK(BM_RapidJSONParse)->Unit(benchmark::kMillisecond);
#endif

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv, "Speed-up of the library over the alternative (above 1: the library is faster):",
        {
            {"BM_GzipWithZlib", "BM_ZlibDeflateStreaming"},
            {"BM_GunzipWithZlib", "BM_ZlibInflateStreaming"},
            {"BM_Md5Hash", "BM_EvpDigestMd5"},
            {"BM_JSONParse", "BM_NlohmannParse"},
            {"BM_JSONParseFromUTF8", "BM_NlohmannParse"},
            {"BM_JSONParse", "BM_RapidJSONParse"},
        });
}
