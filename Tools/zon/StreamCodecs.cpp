#include "StreamCodecs.h"

#include "CommandSupport.h"

#include "extensions/NSData+ZonExtensions.h"

#include <openssl/evp.h>
#include <zlib.h>

#include <memory>
#include <vector>

namespace zon::tool {
namespace {

constexpr size_t kPieceSize = 128 * 1024;

struct DigestContextDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

// A zlib stream that ends (deflateEnd or inflateEnd) on every path out of the command.
class ZlibStream {
public:
    enum class Direction { deflating, inflating };
    explicit ZlibStream(Direction direction) : direction_(direction) {}
    ~ZlibStream()
    {
        if (started_)
            direction_ == Direction::deflating ? deflateEnd(&stream_) : inflateEnd(&stream_);
    }
    ZlibStream(const ZlibStream&) = delete;
    ZlibStream& operator=(const ZlibStream&) = delete;

    z_stream* start(int rc)
    {
        if (rc != Z_OK)
            fail(std::string("zlib could not start: ") + zError(rc));
        started_ = true;
        return &stream_;
    }
    z_stream* get() { return &stream_; }

private:
    Direction direction_;
    z_stream stream_ {};
    bool started_ = false;
};

// Runs step (deflate or inflate) over the input zlib holds until it is used up, writing every
// output buffer that fills. Answers the last return code of step.
template <class Step>
int pump(z_stream& stream, std::vector<uint8_t>& output, OutputFile& out, Step step)
{
    int rc = Z_OK;
    do {
        stream.next_out = output.data();
        stream.avail_out = static_cast<uInt>(output.size());
        rc = step();
        out.write(std::span<const uint8_t>(output.data(), output.size() - stream.avail_out));
    } while (stream.avail_out == 0 && rc != Z_STREAM_END);
    return rc;
}

void setInput(z_stream& stream, std::span<const uint8_t> piece)
{
    stream.next_in = const_cast<Bytef*>(piece.data());
    stream.avail_in = static_cast<uInt>(piece.size());
}

} // namespace

std::string md5OfStream(const FileDescriptor& in, const std::string& inPath)
{
    std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) != 1)
        fail("MD5 is not available");
    std::vector<uint8_t> buffer(kPieceSize);
    for (auto piece = readPiece(in, inPath, buffer); !piece.empty(); piece = readPiece(in, inPath, buffer))
        EVP_DigestUpdate(context.get(), piece.data(), piece.size());
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    EVP_DigestFinal_ex(context.get(), digest, &digestLength);
    return Data::dataWithBytes(digest, digestLength)->hexStringRepresentation()->UTF8String();
}

void gzipStream(const FileDescriptor& in, const std::string& inPath, OutputFile& out)
{
    ZlibStream zlib(ZlibStream::Direction::deflating);
    z_stream& stream = *zlib.start(deflateInit2(zlib.get(), Z_DEFAULT_COMPRESSION, Z_DEFLATED,
        kDeflateToGZipFileFormat, kDefaultMemoryLevelToUseForCompression, Z_DEFAULT_STRATEGY));
    std::vector<uint8_t> input(kPieceSize), output(kPieceSize);
    bool sawInput = false;
    for (auto piece = readPiece(in, inPath, input); !piece.empty(); piece = readPiece(in, inPath, input)) {
        sawInput = true;
        setInput(stream, piece);
        pump(stream, output, out, [&] { return deflate(&stream, Z_NO_FLUSH); });
    }
    // Empty input stays empty, as the library's gzip leaves it.
    if (sawInput)
        pump(stream, output, out, [&] { return deflate(&stream, Z_FINISH); });
}

void gunzipStream(const FileDescriptor& in, const std::string& inPath, OutputFile& out)
{
    ZlibStream zlib(ZlibStream::Direction::inflating);
    z_stream& stream = *zlib.start(inflateInit2(zlib.get(), kInflateBothGZipAndZlibFiles));
    std::vector<uint8_t> input(kPieceSize), output(kPieceSize);
    bool sawInput = false;
    int rc = Z_OK;
    // The first stream's end ends the output; what follows it is not read, as the library ignores it.
    while (rc != Z_STREAM_END) {
        auto piece = readPiece(in, inPath, input);
        if (piece.empty())
            break;
        sawInput = true;
        setInput(stream, piece);
        rc = pump(stream, output, out, [&] { return inflate(&stream, Z_NO_FLUSH); });
        if (rc != Z_OK && rc != Z_STREAM_END && rc != Z_BUF_ERROR)
            fail(inPath + ": not gzip or zlib data (" + (stream.msg ? stream.msg : zError(rc)) + ")");
    }
    // Empty input gives empty output, as the library's gunzip does.
    if (sawInput && rc != Z_STREAM_END)
        fail(inPath + ": the compressed data ends early");
}

} // namespace zon::tool
