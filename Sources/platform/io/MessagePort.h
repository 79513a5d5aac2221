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
// - sendRequest queues the message whole behind those already queued on the port and returns
//   once it is written, or SendTimeout when the send timeout passes first. With a reply mode it
//   then runs the calling thread's run loop in that mode until its own reply arrives or the
//   receive timeout passes, so a request that reaches this thread meanwhile is handled inside the
//   wait, and nested or concurrent sends on one port each get their own reply. Without a reply
//   mode it returns as soon as the message is written. While the socket is full, the sender runs
//   its loop in the reply mode (the default mode without one) until there is room.
// - A peer that went away makes every send and wait answer IsInvalid at once; the port stays
//   invalid from then on.
// - Messages are at most kMessageFrameMaxLength (256 MiB) bytes; a longer one is refused before
//   it is sent, and a peer announcing one is disconnected before anything is allocated.
// - invalidate() closes the port and, for a local port, removes its name; it may be called from
//   any thread and is idempotent. Destroying the port invalidates it.
// - A message may travel in two parts, a prefix of a few bytes and a body (MessagePortMessage),
//   so that a short header goes in front of large data without joining the two into a new buffer.
//   A receiver that asks for it gets the first bytes of each message apart, and the rest as data
//   of its own without a copy. On the wire the parts are one message.

#include "platform/io/MessageFrame.h"
#include "platform/runtime/Object.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace zon {

class Data;
class RunLoop;
class String;

// The outcome of sendRequest; the values are those the suite's errors carry as system codes.
enum class MessagePortStatus : int32_t {
    Success = 0,
    SendTimeout = -1,
    ReceiveTimeout = -2,
    IsInvalid = -3,
    TransportError = -4,
};

// A message received in two parts, or a reply given in two: up to kMessagePrefixMaxLength
// leading bytes, then the body.
struct ZON_EXPORT MessagePortMessage {
    MessagePortMessage() = default;
    explicit MessagePortMessage(Ref<Data> body);
    MessagePortMessage(std::span<const uint8_t> prefix, Ref<Data> body);

    std::span<const uint8_t> prefixBytes() const { return {prefix.data(), prefixLength}; }
    // The body's bytes, none for a nil body.
    std::span<const uint8_t> bodyBytes() const;
    size_t length() const { return prefixLength + bodyBytes().size(); }
    // The whole message as one run of bytes: the body itself when there is no prefix.
    Ref<Data> joined() const;

    std::array<uint8_t, kMessagePrefixMaxLength> prefix {};
    uint8_t prefixLength = 0;
    Ref<Data> body;
};

class ZON_EXPORT MessagePort final : public Object {
    ZON_OBJECT(MessagePort, Object)
public:
    // Handles one request on the thread of the port's run loop and answers the reply bytes, or nil
    // for none. messageId is the sender's, as given to sendRequest.
    using Callback = std::function<Ref<Data>(MessagePort* port, int32_t messageId, Data* data)>;
    // The same with the request split at the port's prefix length (its body is never nil), and
    // told whether the sender waits for a reply: when it does not, whatever is answered is dropped.
    using RequestHandler = std::function<MessagePortMessage(
        MessagePort* port, int32_t messageId, MessagePortMessage request, bool replyWanted)>;

    // Publishes name; nil when the name is held by a live port, the private directory cannot be
    // used, or a socket cannot be made. Nothing is received until scheduleInRunLoop.
    static Ref<MessagePort> createLocal(String* name, Callback callback);
    // Requests reach handler with their first prefixLength bytes (at most kMessagePrefixMaxLength)
    // apart from their body.
    static Ref<MessagePort> createLocal(String* name, size_t prefixLength, RequestHandler handler);
    // Connects to the port published under name; nil when none is. Replies received through the
    // message form of sendRequest come with their first replyPrefixLength bytes apart.
    static Ref<MessagePort> createRemote(String* name, size_t replyPrefixLength = 0);

    // Starts delivering the requests of a local port on loop, in mode. Once only; false for a
    // remote or invalid port or when the loop cannot watch the socket.
    bool scheduleInRunLoop(RunLoop* loop, String* mode);

    // Sends data through a remote port (see the contract). Timeouts are in seconds. With a
    // non-nil replyMode the reply lands in *reply (nil when the receiver answered nothing).
    MessagePortStatus sendRequest(int32_t messageId, const Data* data, double sendTimeout, double receiveTimeout,
        String* replyMode, Ref<Data>* reply);
    // The same for a message of two parts, prefix (at most kMessagePrefixMaxLength bytes) and then
    // data; the reply comes split at the port's reply prefix length. The port lets go of data as
    // soon as the message is written, before waiting for the reply: a caller that hands over its
    // only reference frees a large message before the reply is read.
    MessagePortStatus sendRequest(int32_t messageId, std::span<const uint8_t> prefix, Ref<Data> data,
        double sendTimeout, double receiveTimeout, String* replyMode, MessagePortMessage* reply);
    // The same with bytes that lie in owner (any object that keeps them alive and unchanged, such
    // as the string whose text they are): they are sent without a copy and owner is let go of
    // once they are written.
    MessagePortStatus sendRequest(int32_t messageId, std::span<const uint8_t> prefix, std::span<const uint8_t> bytes,
        Ref<Object> owner, double sendTimeout, double receiveTimeout, String* replyMode, MessagePortMessage* reply);
    // The same with bytes the caller holds only for the call: they are copied if they have to wait
    // for room on the socket, so a short message needs no data object.
    MessagePortStatus sendRequest(int32_t messageId, std::span<const uint8_t> prefix, std::span<const uint8_t> bytes,
        double sendTimeout, double receiveTimeout, String* replyMode, MessagePortMessage* reply);

    void invalidate();
    bool isValid() const;
    bool isRemote() const { return remote_ != nullptr; }
    String* name() const { return name_.get(); }

    Ref<String> description() const override;
    ~MessagePort() override;

    struct LocalEndpoint;
    struct RemoteLink;

private:
    MessagePort(Ref<String> name, std::shared_ptr<LocalEndpoint> local, std::shared_ptr<RemoteLink> remote);

    struct OutgoingBody;
    MessagePortStatus send(int32_t messageId, std::span<const uint8_t> prefix, OutgoingBody body, double sendTimeout,
        double receiveTimeout, String* replyMode, MessagePortMessage* reply);

    Ref<String> name_;
    std::shared_ptr<LocalEndpoint> local_;
    std::shared_ptr<RemoteLink> remote_;
};

} // namespace zon
