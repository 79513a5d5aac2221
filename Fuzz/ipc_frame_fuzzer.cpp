// Feeds bytes from a peer to the message-port frame reader in pieces of varying size, then hands
// every frame it yields to the IPC service's receive callback, as a connection would.

#include "platform/io/MessageFrame.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonIPCService.h"

#include <cstdlib>
#include <span>
#include <unistd.h>

using namespace zon;

namespace {

TXZonIPCService* service()
{
    static TXZonIPCService* const instance = [] {
        char folder[] = "/tmp/zon-ipc-fuzz-XXXXXX";
        ::setenv("XDG_RUNTIME_DIR", ::mkdtemp(folder), 1);
        auto created = TXZonIPCService::initWithLocalServiceName(
            String::stringWithUTF8String("fuzz-" + std::to_string(::getpid())));
        if (!created)
            std::abort();
        return created.leakRef();
    }();
    return instance;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    AutoreleasePool pool;
    if (size == 0)
        return 0;
    // The first byte picks the size of the reads that bring the rest in.
    const size_t piece = 1 + bytes[0] % 64 * 97;
    std::span<const uint8_t> rest(bytes + 1, size - 1);
    MessageFrameReader reader(1 << 20);
    while (!rest.empty() && reader.status() == MessageFrameReader::Status::Ok) {
        size_t n = std::min(piece, rest.size());
        reader.feed(rest.first(n));
        rest = rest.subspan(n);
        while (reader.hasFrame()) {
            MessageFrame frame = reader.takeFrame();
            auto data = Data::dataWithVector(std::move(frame.payload));
            TXIPCServerRecvCallback(nullptr, frame.header.messageId, data, service());
        }
    }
    // Whatever the packets queued on the service thread (connect-backs, callbacks) runs now.
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.0, false);
    return 0;
}
