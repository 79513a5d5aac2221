// NSData(ZonExtensions), NSData(InitializationZonExtensions), NSData(ManipulationZonExtensions)
// and NSData(DataFetchZonExtensions): hexadecimal text, MD5, gzip and fetching values at an offset.

#include "extensions/NSData+ZonExtensions.h"

#include "logger/ZonLog.h"
#include "platform/values/StringInternal.h"

#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

namespace zon {

namespace {

// The log lines of the compressors carry fixed line numbers, so that reports and filters keyed
// on this unit's file and line keep matching whatever edits move the code around.
constexpr int kLineInflateInitFailed = 153;
constexpr int kLineInflateProgress = 187;
constexpr int kLineInflateBufferError = 190;
constexpr int kLineInflateFailed = 199;
constexpr int kLineInflateEndFailed = 209;
constexpr int kLineDeflateInitFailed = 234;

// The upper-case digits of every byte, two UTF-16 units each.
constexpr auto kHexPairs = [] {
    std::array<char16_t, 512> pairs {};
    constexpr char digits[] = "0123456789ABCDEF";
    for (int byte = 0; byte < 256; ++byte) {
        pairs[2 * byte] = static_cast<char16_t>(digits[byte >> 4]);
        pairs[2 * byte + 1] = static_cast<char16_t>(digits[byte & 15]);
    }
    return pairs;
}();

Ref<String> upperHex(const uint8_t* bytes, size_t length)
{
    return StringBuilder::build(2 * length, [&](char16_t* out) {
        for (size_t i = 0; i < length; ++i) {
            std::memcpy(out, &kHexPairs[2 * bytes[i]], 2 * sizeof(char16_t));
            out += 2;
        }
    });
}

// The value of an ASCII hexadecimal digit, or -1.
constexpr auto kDigitValues = [] {
    std::array<int8_t, 128> values {};
    values.fill(-1);
    for (int c = '0'; c <= '9'; ++c)
        values[c] = static_cast<int8_t>(c - '0');
    for (int c = 'a'; c <= 'f'; ++c) {
        values[c] = static_cast<int8_t>(c - 'a' + 10);
        values[c - 'a' + 'A'] = static_cast<int8_t>(c - 'a' + 10);
    }
    return values;
}();

// One pair as strtol reads exactly these two characters in base 16 (sign, leading white space,
// a stop at the first non-digit); the low 8 bits are kept.
uint8_t pairValue(char first, char second)
{
    const auto a = static_cast<unsigned char>(first);
    const auto b = static_cast<unsigned char>(second);
    if (a < 128 && b < 128 && kDigitValues[a] >= 0 && kDigitValues[b] >= 0)
        return static_cast<uint8_t>(kDigitValues[a] << 4 | kDigitValues[b]);
    const char pair[3] = {first, second, '\0'};
    return static_cast<uint8_t>(std::strtol(pair, nullptr, 16));
}

bool isRemovedFromHex(char16_t unit) { return unit == u' ' || unit == u'\n' || unit == u'\t'; }

// The general form: the UTF-8 of the text without blanks, tabs and line feeds, up to a zero byte.
ByteVector hexBytesFromUTF8(const String* text)
{
    std::u16string kept;
    kept.reserve(text->length());
    for (char16_t unit : text->view()) {
        if (!isRemovedFromHex(unit))
            kept += unit;
    }
    std::string utf8 = String::stringWithCharacters(kept)->UTF8String();
    utf8.resize(std::strlen(utf8.c_str()));
    ByteVector bytes;
    bytes.reserve(utf8.size() / 2);
    for (size_t i = 0; i + 1 < utf8.size(); i += 2)
        bytes.push_back(pairValue(utf8[i], utf8[i + 1]));
    return bytes;
}

// The same bytes in one pass when the text is ASCII: each unit is then one UTF-8 byte.
bool hexBytesFromASCII(const String* text, ByteVector& bytes)
{
    bytes.reserve(text->length() / 2);
    char pending = 0;
    bool havePending = false;
    for (char16_t unit : text->view()) {
        if (unit >= 0x80)
            return false;
        if (unit == 0)
            break;
        if (isRemovedFromHex(unit))
            continue;
        if (!havePending) {
            pending = static_cast<char>(unit);
            havePending = true;
        } else {
            bytes.push_back(pairValue(pending, static_cast<char>(unit)));
            havePending = false;
        }
    }
    return true;
}

// The geometric growth of an output buffer whose total_out has reached its size.
size_t grownSize(size_t size, size_t step) { return size + std::max(size, step); }

// zlib counts in 32-bit units; larger buffers are handed over in slices.
uInt sliceOf(size_t available) { return static_cast<uInt>(std::min<size_t>(available, UINT_MAX)); }

// How the inflate output buffer starts and grows. Only the number of inflate calls depends on
// it, not the bytes produced. While per-call traces are wanted, each call is one step of L/2
// bytes after a first buffer of L + L/2, so that the trace has one line per step of that size.
// Otherwise the buffer starts at the size a gzip trailer announces when that is larger (within
// 64 times the input, so that a forged trailer cannot make us touch much more memory than a real
// stream of that size might need) and grows geometrically.
class InflateBufferSteps {
public:
    InflateBufferSteps(std::span<const uint8_t> input, bool traced)
        : inputLength_(input.size())
        , half_(std::max<size_t>(input.size() / 2, 1))
        , traced_(traced)
        , initial_(traced ? input.size() + input.size() / 2 : announcedSize(input))
    {
    }

    size_t initial() const { return initial_; }
    size_t grown(size_t size) const { return traced_ ? size + half_ : grownSize(size, half_); }

private:
    size_t announcedSize(std::span<const uint8_t> input) const
    {
        const size_t guess = inputLength_ + inputLength_ / 2;
        if (input.size() < 18 || input[0] != 0x1F || input[1] != 0x8B)
            return guess;
        const uint8_t* trailer = input.data() + input.size() - 4;
        const size_t announced = trailer[0] | trailer[1] << 8 | trailer[2] << 16 | size_t {trailer[3]} << 24;
        return std::clamp(announced, guess, std::max(guess, 64 * inputLength_));
    }

    size_t inputLength_;
    size_t half_;
    bool traced_;
    size_t initial_;
};

Ref<Data> adoptBuffer(ByteVector& buffer, size_t used)
{
    buffer.resize(used);
    // Give back a large unused tail; a small one is cheaper to keep than to copy away.
    if (buffer.capacity() - used > used / 4)
        buffer.shrink_to_fit();
    return Data::dataWithVector(std::move(buffer));
}

} // namespace

// NSData(ZonExtensions)

Ref<String> Data::hexStringRepresentation() const { return upperHex(bytes_.data(), bytes_.size()); }

// NSData(InitializationZonExtensions)

Ref<Data> Data::dataFromHexStringRepresentation(const String* text)
{
    if (!text)
        return Data::data();
    ByteVector bytes;
    if (!hexBytesFromASCII(text, bytes))
        bytes = hexBytesFromUTF8(text);
    return dataWithVector(std::move(bytes));
}

// NSData(ManipulationZonExtensions)

Ref<String> Data::md5Hash() const
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    EVP_Digest(bytes_.data(), bytes_.size(), digest, &digestLength, EVP_md5(), nullptr);
    return upperHex(digest, digestLength);
}

Ref<Data> Data::gzipWithZlib() const
{
    if (bytes_.empty())
        return Ref<Data>(const_cast<Data*>(this));

    z_stream stream {};
    int rc = deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kDeflateToGZipFileFormat,
        kDefaultMemoryLevelToUseForCompression, Z_DEFAULT_STRATEGY);
    if (rc != Z_OK) {
        zon_log_obj(__FILE__, kLineDeflateInitFailed, this, logger::kLevelError, kDefaultLogIdentifier,
            "Unable to initialize gzip compression, error = %d", rc);
        return nullptr;
    }

    // Sized by zlib's bound the whole stream fits at once; the bytes are the same as with any
    // other output size, since deflate's output does not depend on how it is sliced.
    ByteVector out(std::max<size_t>(16384, deflateBound(&stream, sliceOf(bytes_.size()))));
    size_t consumed = 0;
    for (;;) {
        if (stream.total_out >= out.size())
            out.resize(grownSize(out.size(), 16384));
        if (stream.avail_in == 0) {
            stream.next_in = const_cast<Bytef*>(bytes_.data() + consumed);
            stream.avail_in = sliceOf(bytes_.size() - consumed);
            consumed += stream.avail_in;
        }
        stream.next_out = out.data() + stream.total_out;
        stream.avail_out = sliceOf(out.size() - stream.total_out);
        rc = deflate(&stream, consumed == bytes_.size() ? Z_FINISH : Z_NO_FLUSH);
        if (rc == Z_STREAM_END || rc == Z_STREAM_ERROR)
            break;
    }
    const size_t produced = stream.total_out;
    deflateEnd(&stream);
    return adoptBuffer(out, produced);
}

Ref<Data> Data::gunzipWithZlib() const
{
    if (bytes_.empty())
        return Ref<Data>(const_cast<Data*>(this));

    z_stream stream {};
    int rc = inflateInit2(&stream, kInflateBothGZipAndZlibFiles);
    if (rc != Z_OK) {
        zon_log_obj(__FILE__, kLineInflateInitFailed, this, logger::kLevelError, kDefaultLogIdentifier,
            "Failed to initialize zlib data: %d/%s", rc, zError(rc));
        return nullptr;
    }
    auto inflateFailed = [&](int code) {
        zon_log_obj(__FILE__, kLineInflateFailed, this, logger::kLevelError, kDefaultLogIdentifier,
            "Failed to inflate compressed data: %d/%s", code, zError(code));
        inflateEnd(&stream);
        return nullptr;
    };

    // There is no limit of our own on the output: when memory runs out the answer is zlib's own
    // memory error, never an exception.
    try {
        const InflateBufferSteps steps(bytes_, logger::isEnabled(5));
        ByteVector out(steps.initial());
        size_t consumed = 0;
        for (;;) {
            if (stream.total_out >= out.size())
                out.resize(steps.grown(out.size()));
            if (stream.avail_in == 0 && consumed < bytes_.size()) {
                stream.next_in = const_cast<Bytef*>(bytes_.data() + consumed);
                stream.avail_in = sliceOf(bytes_.size() - consumed);
                consumed += stream.avail_in;
            }
            stream.next_out = out.data() + stream.total_out;
            stream.avail_out = sliceOf(out.size() - stream.total_out);
            rc = inflate(&stream, Z_NO_FLUSH);
            switch (rc) {
            case Z_OK:
            case Z_STREAM_END:
                zon_log_obj(__FILE__, kLineInflateProgress, this, logger::kLevelDetail, kDefaultLogIdentifier,
                    "ZLIB - inflate() rc=%d/%s", rc, zError(rc));
                break;
            case Z_BUF_ERROR:
                zon_log_obj(__FILE__, kLineInflateBufferError, this, logger::kLevelDetail, kDefaultLogIdentifier,
                    "ZLIB - inflate() rc=%d/%s", rc, zError(rc));
                break;
            default:
                return inflateFailed(rc);
            }
            // The loop ends on the first call that leaves output space free, not on the end code:
            // a stream cut short answers what it gave. Input beyond one slice keeps it going.
            const bool moreInput = stream.avail_in == 0 && consumed < bytes_.size() && rc == Z_OK;
            if (stream.avail_out != 0 && !moreInput)
                break;
        }
        const size_t produced = stream.total_out;
        rc = inflateEnd(&stream);
        if (rc != Z_OK) {
            zon_log_obj(__FILE__, kLineInflateEndFailed, this, logger::kLevelError, kDefaultLogIdentifier,
                "Failed to end inflate of zlib data: %d/%s", rc, zError(rc));
            return nullptr;
        }
        return adoptBuffer(out, produced);
    } catch (const std::bad_alloc&) {
        return inflateFailed(Z_MEM_ERROR);
    }
}

// NSData(DataFetchZonExtensions)

namespace {

// The offset is compared in 64 bits, so an offset near 2^32 cannot wrap into the buffer.
template <class T>
bool fetch(std::span<const uint8_t> bytes, T* value, uint32_t* offset)
{
    if (uint64_t {*offset} + sizeof(T) > bytes.size())
        return false;
    std::memcpy(value, bytes.data() + *offset, sizeof(T));
    *offset += sizeof(T);
    return true;
}

} // namespace

bool Data::getByte_offset(uint8_t* value, uint32_t* offset) const { return fetch(span(), value, offset); }
bool Data::getShort_offset(uint16_t* value, uint32_t* offset) const { return fetch(span(), value, offset); }
bool Data::getInteger_offset(uint32_t* value, uint32_t* offset) const { return fetch(span(), value, offset); }
bool Data::getLongLong_offset(uint64_t* value, uint32_t* offset) const { return fetch(span(), value, offset); }

} // namespace zon
