// Streams: 1 GiB through a buffer stream on one thread against a pipe(2) pumped through epoll on one
// thread with the same buffer size (the floor), and a file read through TXZonInputStream with a
// progress delegate against the bare file stream.

#include "RatioReporter.h"

#include "platform/io/InputStream.h"
#include "platform/runtime/Class.h"
#include "platform/system/EventCallsInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "utilities/data/TXZonBufferStream.h"
#include "utilities/data/TXZonInputStream.h"

#include <sys/epoll.h>

#include <filesystem>
#include <fstream>
#include <vector>

using namespace zon;

namespace {

constexpr uint64_t kPumpBytes = uint64_t(1) << 30;
constexpr size_t kFileBytes = size_t(256) << 20;

// Answers the same buffer-sized data until the total is reached, and counts what arrives.
class Pump final : public Object, public TXZonBufferStreamReadProtocol, public TXZonBufferStreamWriteProtocol {
    ZON_OBJECT(Pump, Object)
public:
    void bufferStreamDidOpen(TXZonBufferStream*) override {}
    bool bufferStream_requestingBytes(TXZonBufferStream*, Ref<Data>* data) override
    {
        if (sent >= kPumpBytes)
            return false;
        *data = chunk;
        sent += chunk->length();
        return true;
    }
    void bufferStream_didGetBytes(TXZonBufferStream*, Data* data) override { received += data->length(); }
    void bufferStreamDidClose(TXZonBufferStream*) override { ++closed; }
    void bufferStream_didEncounterError(TXZonBufferStream*, Error*) override { ++closed; }

    Ref<Data> chunk;
    uint64_t sent = 0;
    uint64_t received = 0;
    int closed = 0;
};

ZON_DEFINE_CLASS(Pump, "StreamBenchmarkPump")

void BM_BufferStream_Pump(benchmark::State& state)
{
    const auto size = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        Ref<Pump> pump = makeObject<Pump>();
        pump->chunk = Data::dataWithVector(ByteVector(size_t(size), 0x5A));
        Ref<TXZonBufferStream> stream = TXZonBufferStream::initWithReadStreamDelegate_writeStreamDataSource_bufferSize(
            pump.get(), pump.get(), size);
        while (pump->closed < 2)
            RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 1.0, true);
        if (pump->received != kPumpBytes)
            state.SkipWithError("bytes lost");
    }
    state.SetBytesProcessed(int64_t(state.iterations() * kPumpBytes));
}
BENCHMARK(BM_BufferStream_Pump)->Arg(4096)->Arg(65536)->Iterations(1)->Unit(benchmark::kMillisecond);

// The floor: the same bytes through a pipe whose buffer is the size asked for (whole pages), one
// thread writing when epoll says writable and reading when it says readable.
void BM_Pipe_Epoll(benchmark::State& state)
{
    const auto size = size_t(state.range(0));
    std::vector<uint8_t> out(size, 0x5A), in(size);
    for (auto _ : state) {
        auto ends = createPipe(true);
        auto epoll = createEpoll();
        if (!ends || !epoll || !setPipeCapacity(ends.value().writing.get(), size)
            || !epollAdd(epoll.value().get(), ends.value().reading.get(), EPOLLIN, 0)
            || !epollAdd(epoll.value().get(), ends.value().writing.get(), EPOLLOUT, 1)) {
            state.SkipWithError("pipe set-up failed");
            return;
        }
        uint64_t sent = 0, received = 0;
        epoll_event events[2];
        while (received < kPumpBytes) {
            auto ready = epollWait(epoll.value().get(), events, std::chrono::milliseconds(1000));
            if (!ready)
                break;
            for (size_t i = 0; i < ready.value(); ++i) {
                if (events[i].data.u64 == 1 && sent < kPumpBytes) {
                    if (auto n = writeSome(ends.value().writing.get(), out); n)
                        sent += n.value();
                } else if (events[i].data.u64 == 0) {
                    if (auto n = readSome(ends.value().reading.get(), in); n)
                        received += n.value();
                }
            }
            if (sent >= kPumpBytes)
                (void)epollRemove(epoll.value().get(), ends.value().writing.get());
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations() * kPumpBytes));
}
BENCHMARK(BM_Pipe_Epoll)->Arg(4096)->Arg(65536)->Iterations(1)->Unit(benchmark::kMillisecond);

const std::string& sampleFile()
{
    static const std::string path = [] {
        std::string file = (std::filesystem::temp_directory_path() / "zon-stream-benchmark.bin").string();
        if (!std::filesystem::exists(file) || std::filesystem::file_size(file) != kFileBytes) {
            std::ofstream out(file, std::ios::binary | std::ios::trunc);
            std::vector<char> block(1 << 20, 'x');
            for (size_t written = 0; written < kFileBytes; written += block.size())
                out.write(block.data(), std::streamsize(block.size()));
        }
        return file;
    }();
    return path;
}

class Progress final : public Object {
    ZON_OBJECT(Progress, Object)
public:
    static void exportMethods(Class& cls) { cls.exportMethod("stream:didReadBytes:", &Progress::didRead); }
    void didRead(TXZonInputStream*, long count) { total += count > 0 ? uint64_t(count) : 0; }
    uint64_t total = 0;
};

ZON_DEFINE_CLASS(Progress, "StreamBenchmarkProgress")

uint64_t readAll(InputStream* stream, std::vector<uint8_t>& buffer)
{
    uint64_t total = 0;
    stream->open();
    for (long n; (n = stream->read_maxLength(buffer.data(), buffer.size())) > 0;)
        total += uint64_t(n);
    stream->close();
    return total;
}

void BM_FileStream_Read(benchmark::State& state)
{
    Ref<String> path = String::stringWithUTF8String(sampleFile());
    std::vector<uint8_t> buffer(size_t(state.range(0)));
    for (auto _ : state) {
        Ref<InputStream> stream = InputStream::inputStreamWithFileAtPath(path.get());
        if (readAll(stream.get(), buffer) != kFileBytes)
            state.SkipWithError("short read");
    }
    state.SetBytesProcessed(int64_t(state.iterations() * kFileBytes));
}
BENCHMARK(BM_FileStream_Read)->Arg(4096)->Arg(65536)->Unit(benchmark::kMillisecond);

void BM_TXZonInputStream_ReadWithProgress(benchmark::State& state)
{
    Ref<String> path = String::stringWithUTF8String(sampleFile());
    std::vector<uint8_t> buffer(size_t(state.range(0)));
    Ref<Progress> progress = makeObject<Progress>();
    for (auto _ : state) {
        Ref<TXZonInputStream> stream = TXZonInputStream::inputStreamWithFileAtPath(path.get());
        stream->setTXDelegate(progress.get());
        if (readAll(stream.get(), buffer) != kFileBytes)
            state.SkipWithError("short read");
    }
    state.SetBytesProcessed(int64_t(state.iterations() * kFileBytes));
}
BENCHMARK(BM_TXZonInputStream_ReadWithProgress)->Arg(4096)->Arg(65536)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    return zon::bench::runAndCompare(argc, argv, "Speed relative to the alternative (above 1: ours is faster):",
        {
            {"BM_BufferStream_Pump/4096/iterations:1", "BM_Pipe_Epoll/4096/iterations:1"},
            {"BM_BufferStream_Pump/65536/iterations:1", "BM_Pipe_Epoll/65536/iterations:1"},
            {"BM_TXZonInputStream_ReadWithProgress/4096", "BM_FileStream_Read/4096"},
            {"BM_TXZonInputStream_ReadWithProgress/65536", "BM_FileStream_Read/65536"},
        });
}
