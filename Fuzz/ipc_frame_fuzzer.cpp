// Feeds bytes from a peer to the message-port frame reader in pieces of varying size, splitting a
// prefix of varying length off each message, then hands every frame it yields to the IPC service's
// receive callback, split at the type word as the service's port delivers it. A frame split there
// and the same bytes joined must make the same packet.

#include "platform/io/MessageFrameInternal.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonIPCPacket.h"
#include "systemManagement/processManagement/TXZonIPCService.h"

#include <algorithm>
#include <cstdlib>
#include <span>
#include <unistd.h>
#include <vector>

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
    // The first byte picks the size of the reads that bring the rest in, and the prefix length.
    const size_t piece = 1 + bytes[0] % 64 * 97;
    const size_t prefixLength = bytes[0] / 64 * 4 % (kMessagePrefixMaxLength + 1);
    std::span<const uint8_t> rest(bytes + 1, size - 1);
    MessageFrameReader reader(1 << 20, prefixLength);
    while (!rest.empty() && reader.status() == MessageFrameReader::Status::Ok) {
        size_t n = std::min(piece, rest.size());
        reader.feed(rest.first(n));
        rest = rest.subspan(n);
        while (reader.hasFrame()) {
            MessageFrame frame = reader.takeFrame();
            if (frame.prefixLength != std::min<size_t>(prefixLength, frame.header.length)
                || frame.prefixLength + frame.payload.size() != frame.header.length)
                std::abort();
            ByteVector joined(frame.prefix.begin(), frame.prefix.begin() + frame.prefixLength);
            joined.insert(joined.end(), frame.payload.begin(), frame.payload.end());
            auto whole = Data::dataWithVector(std::move(joined));
            // The port splits the service's messages after the type word.
            const size_t split = std::min<size_t>(4, whole->length());
            MessagePortMessage message(whole->span().first(split), Data::dataWithBytes(whole->span().subspan(split)));
            auto twoParts = TXZonIPCPacket::packetWithTypeWord_rest(message.prefixBytes(), message.body);
            auto parsed = TXZonIPCPacket::packetWithZONIPCPacketData(whole);
            if (twoParts->type() != parsed->type() || !twoParts->dataValue()->isEqualToData(parsed->dataValue()))
                std::abort();
            TXIPCServerRecvCallback(nullptr, frame.header.messageId, std::move(message), service());
        }
    }
    // Whatever the packets queued on the service thread (connect-backs, callbacks) runs now.
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.0, false);
    return 0;
}
