// zon stream pump and zon stream read: a file through a buffer stream, and through an input stream
// with a progress delegate.

#include "CommandSupport.h"
#include "Commands.h"

#include "platform/io/FileHandle.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"
#include "utilities/data/TXZonBufferStream.h"
#include "utilities/data/TXZonInputStream.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstring>
#include <iostream>
#include <vector>

namespace zon::tool {
namespace {

using Clock = std::chrono::steady_clock;

// Prints each event of a side, for both sides.
void printEvent(const char* side, const char* event, Error* error = nullptr)
{
    std::cout << side << " side: " << event;
    if (error)
        std::cout << ' ' << printableDescription(error);
    std::cout << '\n';
}

// The write side: the file a buffer's worth at a time.
class FileSource final : public Object, public TXZonBufferStreamWriteProtocol {
    ZON_OBJECT(FileSource, Object)
public:
    void bufferStreamDidOpen(TXZonBufferStream*) override { printEvent("write", "open"); }
    bool bufferStream_requestingBytes(TXZonBufferStream*, Ref<Data>* data) override
    {
        *data = file->readDataOfLength(pieceSize);
        return (*data)->length() > 0;
    }
    void bufferStreamDidClose(TXZonBufferStream*) override
    {
        printEvent("write", "close");
        closed = true;
    }
    void bufferStream_didEncounterError(TXZonBufferStream*, Error* error) override { printEvent("write", "error", error); }

    Ref<FileHandle> file;
    size_t pieceSize = 0;
    bool closed = false;
};

// The read side: counts the chunks and their bytes.
class ChunkCounter final : public Object, public TXZonBufferStreamReadProtocol {
    ZON_OBJECT(ChunkCounter, Object)
public:
    void bufferStreamDidOpen(TXZonBufferStream*) override { printEvent("read", "open"); }
    void bufferStream_didGetBytes(TXZonBufferStream*, Data* data) override
    {
        ++chunks;
        bytes += data->length();
    }
    void bufferStreamDidClose(TXZonBufferStream*) override
    {
        printEvent("read", "close");
        closed = true;
    }
    void bufferStream_didEncounterError(TXZonBufferStream*, Error* error) override { printEvent("read", "error", error); }

    uint64_t chunks = 0;
    uint64_t bytes = 0;
    bool closed = false;
};

ZON_DEFINE_CLASS(FileSource, "ZonToolFileSource")
ZON_DEFINE_CLASS(ChunkCounter, "ZonToolChunkCounter")

// Counts the reads the input stream reports.
class ReadProgress final : public Object {
    ZON_OBJECT(ReadProgress, Object)
public:
    static void exportMethods(Class& cls) { cls.exportMethod("stream:didReadBytes:", &ReadProgress::didRead); }
    void didRead(TXZonInputStream*, long count)
    {
        ++reads;
        if (count > 0)
            bytes += static_cast<uint64_t>(count);
        lastCount = count;
    }
    uint64_t reads = 0;
    uint64_t bytes = 0;
    long lastCount = 0;
};

ZON_DEFINE_CLASS(ReadProgress, "ZonToolReadProgress")

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void printRate(uint64_t bytes, double seconds)
{
    std::cout << bytes << " bytes in " << seconds << " s: " << (seconds > 0 ? double(bytes) / seconds / 1e6 : 0.0)
              << " MB/s\n";
}

Ref<FileHandle> openOrFail(const std::string& path)
{
    Ref<FileHandle> handle = FileHandle::fileHandleForReadingAtPath(String::stringWithUTF8String(path).get());
    if (!handle)
        fail("cannot open " + path + ": " + std::strerror(errno), kExitFileError);
    return handle;
}

void pump(const std::string& path, int32_t bufferSize)
{
    Ref<FileSource> source = makeObject<FileSource>();
    source->file = openOrFail(path);
    source->pieceSize = static_cast<size_t>(bufferSize);
    Ref<ChunkCounter> counter = makeObject<ChunkCounter>();
    const Clock::time_point start = Clock::now();
    Ref<TXZonBufferStream> stream = TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(
        counter.get(), source.get(), bufferSize);
    while (!source->closed || !counter->closed)
        RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 1.0, true);
    const double seconds = secondsSince(start);
    std::cout << counter->chunks << " chunks of at most " << bufferSize << " bytes\n";
    printRate(counter->bytes, seconds);
}

void readThrough(const std::string& path, size_t chunkSize)
{
    openOrFail(path); // says why when the file cannot be read
    Ref<TXZonInputStream> stream = TXZonInputStream::inputStreamWithFileAtPath(String::stringWithUTF8String(path).get());
    Ref<ReadProgress> progress = makeObject<ReadProgress>();
    stream->setTXDelegate(progress.get());
    std::vector<uint8_t> buffer(chunkSize);
    const Clock::time_point start = Clock::now();
    stream->open();
    while (stream->read_maxLength(buffer.data(), buffer.size()) > 0) {
    }
    const double seconds = secondsSince(start);
    stream->close();
    std::cout << progress->reads << " reads reported, the last one " << progress->lastCount << '\n';
    printRate(progress->bytes, seconds);
    if (progress->lastCount < 0)
        fail("read failed: " + printableDescription(stream->streamError().get()), kExitFileError);
}

} // namespace

void addStreamCommands(CLI::App& app)
{
    auto* stream = app.add_subcommand("stream", "bytes through the library's streams");
    stream->require_subcommand(1);

    auto* pumpCommand = stream->add_subcommand("pump", "FILE through a buffer stream; prints its events and the rate");
    auto pumpPath = std::make_shared<std::string>();
    auto bufferSize = std::make_shared<int64_t>(4096);
    pumpCommand->add_option("FILE", *pumpPath, "the file")->required();
    pumpCommand->add_option("--buffer", *bufferSize, "the buffer size in bytes (default 4096)")
        ->check(wholeNumberFrom(1, 64 << 20));
    pumpCommand->callback([pumpPath, bufferSize] { pump(*pumpPath, static_cast<int32_t>(*bufferSize)); });

    auto* readCommand = stream->add_subcommand("read", "FILE through an input stream that reports each read's count");
    auto readPath = std::make_shared<std::string>();
    auto chunkSize = std::make_shared<int64_t>(65536);
    readCommand->add_option("FILE", *readPath, "the file")->required();
    readCommand->add_option("--chunk", *chunkSize, "bytes asked for by each read (default 65536)")
        ->check(wholeNumberFrom(1, 64 << 20));
    readCommand->callback([readPath, chunkSize] { readThrough(*readPath, static_cast<size_t>(*chunkSize)); });
}

} // namespace zon::tool
