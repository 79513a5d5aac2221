#pragma once

// Named local message ports with request and reply, between processes of one user.
//
// A local port publishes a name; its owner schedules it in one run loop, and every request that
// arrives is handed to the port's callback on that loop's thread, one at a time, in the modes it
// was scheduled in. What the callback answers goes back to the sender as the reply. A remote port
// is a link to a name someone published; any thread may send requests through it.
//
// Contract:
// - A name is held by one live port of one process at a time: publishing a name that a live
//   port holds fails; the files left behind by a process that died are reclaimed at once.
// - Only processes of the same user can connect; anyone else is refused and logged, and nothing
//   it sent is read.
// - send queues the message whole behind those already queued on the port and returns
//   once it is written, or SendTimeout when the send timeout passes first. With a reply mode it
//   then runs the calling thread's run loop in that mode until its own reply arrives or the
//   receive timeout passes, so a request that reaches this thread meanwhile is handled inside the
//   wait, and nested or concurrent sends on one port each get their own reply. Without a reply
//   mode it returns as soon as the message is written. While the socket is full, the sender runs
//   its loop in the reply mode (the default mode without one) until there is room.
// - A peer that went away makes every send and wait answer IsInvalid at once; the port stays
//   invalid from then on.
// - Messages are at most kMessagePortMaxLength (256 MiB) bytes; a longer one is refused before
//   it is sent, and a peer announcing one is disconnected before anything is allocated.
// - What arrives is held only as far as it has arrived: a local port's partial messages of all
//   connections together hold at most 512 MiB (beyond that, reading waits as a sender waits on a
//   full socket), a message that makes no progress for the stall limit closes its connection, and
//   running out of memory closes one connection, not the port. The process's connections stay an
//   eighth of its descriptor limit (at least 64) below it; a connection beyond that replaces the
//   one idle longest.
// - invalidate() closes the port and, for a local port, removes its name; it may be called from
//   any thread and is idempotent. Destroying the port invalidates it.

#include "platform/runtime/Object.h"
#include "platform/values/HeldBytes.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace zon {

class MessagePortLink;
class MessagePortListener;
class RunLoop;
class String;

// The largest message a port sends or accepts: 256 MiB.
inline constexpr uint32_t kMessagePortMaxLength = 256u * 1024 * 1024;
// The most leading bytes of a message that travel apart from its body.
inline constexpr size_t kMessagePrefixMaxLength = 8;

// The outcome of a send; the values are those the suite's errors carry as system codes.
enum class MessagePortStatus : int32_t {
    Success = 0,
    SendTimeout = -1,
    ReceiveTimeout = -2,
    IsInvalid = -3,
    TransportError = -4,
};

// A message in two parts: up to kMessagePrefixMaxLength leading bytes, then the body. On the wire
// the parts are one message; apart, a short header goes in front of large data without joining
// the two into a new buffer, and a receiver gets the rest as data of its own without a copy.
struct ZON_EXPORT MessagePortMessage {
    MessagePortMessage() = default;
    MessagePortMessage(HeldBytes body) : body(std::move(body)) {}
    MessagePortMessage(std::span<const uint8_t> prefix, HeldBytes body);

    std::span<const uint8_t> prefixBytes() const { return {prefix.data(), prefixLength}; }
    size_t length() const { return prefixLength + body.size(); }

    std::array<uint8_t, kMessagePrefixMaxLength> prefix {};
    uint8_t prefixLength = 0;
    HeldBytes body;
};

using MessagePortSeconds = std::chrono::duration<double>;

// How a sender waits for the reply to its message: not at all, or by running its thread's run loop
// in a mode until the reply comes or the timeout passes.
struct ZON_EXPORT MessagePortReplyWait {
    static MessagePortReplyWait none() { return {}; }
    static MessagePortReplyWait inMode(String* mode, MessagePortSeconds timeout) { return {mode, timeout}; }
    bool isWanted() const { return mode != nullptr; }

    String* mode = nullptr;
    MessagePortSeconds timeout {0};
};

struct MessagePortRequest {
    int32_t messageId = 0; // handed to the receiver as is
    MessagePortMessage message;
    MessagePortSeconds sendTimeout {0};
    MessagePortReplyWait reply = MessagePortReplyWait::none();
};

struct MessagePortResult {
    MessagePortStatus status = MessagePortStatus::Success;
    // Split at the port's reply prefix length; nothing when the receiver answered nothing.
    MessagePortMessage reply;
};

class ZON_EXPORT MessagePort final : public Object {
    ZON_OBJECT(MessagePort, Object)
public:
    // Handles one request on the thread of the port's run loop and answers the reply, or an empty
    // message for none. messageId is the sender's. The request comes with its first prefixLength
    // bytes apart from its body. replyWanted is false for a one-way message, whose answer is
    // dropped: a handler need not make one.
    using RequestHandler = std::function<MessagePortMessage(
        MessagePort* port, int32_t messageId, MessagePortMessage request, bool replyWanted)>;

    // Publishes name; nil when the name is held by a live port, the private directory cannot be
    // used, or a socket cannot be made. Nothing is received until scheduleInRunLoop. Requests
    // reach handler with their first prefixLength bytes (at most kMessagePrefixMaxLength) apart.
    static Ref<MessagePort> createLocal(String* name, size_t prefixLength, RequestHandler handler);
    // Connects to the port published under name; nil when none is. Replies come with their first
    // replyPrefixLength bytes apart.
    static Ref<MessagePort> createRemote(String* name, size_t replyPrefixLength = 0);

    // Starts delivering the requests of a local port on loop, in mode. Once only; false for a
    // remote or invalid port or when the loop cannot watch the socket.
    bool scheduleInRunLoop(RunLoop* loop, String* mode);
    // A local port closes a connection whose message has made no progress for this long (200 s
    // unless set); any thread.
    void setStalledMessageTimeout(MessagePortSeconds timeout);

    // Sends a message through a remote port (see the contract). The port holds the message's body
    // until it is written and lets go of it before waiting for the reply.
    MessagePortResult send(MessagePortRequest request);

    void invalidate();
    bool isValid() const;
    bool isRemote() const { return link_ != nullptr; }
    String* name() const { return name_.get(); }

    Ref<String> description() const override;
    ~MessagePort() override;

private:
    MessagePort(Ref<String> name, std::shared_ptr<MessagePortListener> listener, std::shared_ptr<MessagePortLink> link);

    Ref<String> name_;
    std::shared_ptr<MessagePortListener> listener_;
    std::shared_ptr<MessagePortLink> link_;
};

} // namespace zon
