#pragma once

// Shorthands for the message port's one send and its request handler, in the shapes tests and
// benchmarks use again and again: whole data in and out, or two parts with seconds as doubles.

#include "platform/io/MessagePort.h"
#include "platform/values/Data.h"

#include <functional>

namespace zon::test {

// Handles requests whole, as data (the port splits no prefix off); nil answers nothing.
using DataHandler = std::function<Ref<Data>(MessagePort* port, int32_t messageId, Data* request)>;

inline Ref<MessagePort> createLocalPort(String* name, DataHandler handler)
{
    return MessagePort::createLocal(name, 0,
        [handler = std::move(handler)](MessagePort* port, int32_t messageId, MessagePortMessage request, bool) {
        return MessagePortMessage(HeldBytes(handler(port, messageId, request.body.data())));
    });
}

// Waits in replyMode for up to receiveTimeout seconds; a nil mode sends one-way.
inline MessagePortReplyWait replyWait(String* replyMode, double receiveTimeout)
{
    return replyMode ? MessagePortReplyWait::inMode(replyMode, MessagePortSeconds(receiveTimeout))
                     : MessagePortReplyWait::none();
}

inline MessagePortStatus sendRequest(MessagePort* port, int32_t messageId, std::span<const uint8_t> prefix,
    HeldBytes body, double sendTimeout, double receiveTimeout, String* replyMode, MessagePortMessage* reply)
{
    auto result = port->send({messageId, MessagePortMessage(prefix, std::move(body)), MessagePortSeconds(sendTimeout),
        replyWait(replyMode, receiveTimeout)});
    if (reply)
        *reply = std::move(result.reply);
    return result.status;
}

// The whole message as one data, nil for an empty one.
inline Ref<Data> joinedData(const MessagePortMessage& message)
{
    if (message.length() == 0)
        return nullptr;
    ByteVector bytes(message.prefixBytes().begin(), message.prefixBytes().end());
    bytes.insert(bytes.end(), message.body.span().begin(), message.body.span().end());
    return Data::dataWithVector(std::move(bytes));
}

// Data out whole; the reply joined into one data, nil for none.
inline MessagePortStatus sendRequest(MessagePort* port, int32_t messageId, Data* data, double sendTimeout,
    double receiveTimeout, String* replyMode, Ref<Data>* reply)
{
    MessagePortMessage replyMessage;
    const auto status = sendRequest(port, messageId, {}, HeldBytes(Ref<Data>(data)), sendTimeout, receiveTimeout,
        replyMode, &replyMessage);
    if (reply)
        *reply = joinedData(replyMessage);
    return status;
}

} // namespace zon::test
