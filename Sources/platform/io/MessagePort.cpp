#include "platform/io/MessagePort.h"

#include "logger/ZonLog.h"
#include "platform/io/MessagePortLinkInternal.h"
#include "platform/io/MessagePortListenerInternal.h"
#include "platform/runtime/Class.h"
#include "platform/system/SocketCallsInternal.h"
#include "platform/values/String.h"

#include <algorithm>
#include <unistd.h>

namespace zon {

namespace {

// A connect waits out a full backlog of a busy port for this long rather than reporting a missing port.
constexpr std::chrono::seconds kConnectTimeout(5);

// A name nobody publishes is an ordinary answer; a port that is there but cannot be reached is
// worth a line, and a busy one must not read like a missing one.
void logUnreachable(String* name, const SystemError& error)
{
    if (error.code == ENOENT || error.code == ECONNREFUSED)
        return;
    if (error.code == EAGAIN || error.code == EINPROGRESS)
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelWarning, kDefaultLogIdentifier,
            "Message port %@ is busy: its queue of new connections stayed full for %d s", name,
            static_cast<int>(kConnectTimeout.count()));
    else
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelWarning, kDefaultLogIdentifier,
            "Message port %@ cannot be reached: %@", name, String::stringWithUTF8String(error.text()).get());
}


} // namespace

MessagePortMessage::MessagePortMessage(std::span<const uint8_t> prefix, HeldBytes body)
    : prefixLength(static_cast<uint8_t>(std::min(prefix.size(), kMessagePrefixMaxLength)))
    , body(std::move(body))
{
    std::copy_n(prefix.begin(), prefixLength, this->prefix.begin());
}

ZON_DEFINE_CLASS(MessagePort, "NSMessagePort")

MessagePort::MessagePort(
    Ref<String> name, std::shared_ptr<MessagePortListener> listener, std::shared_ptr<MessagePortLink> link)
    : name_(std::move(name))
    , listener_(std::move(listener))
    , link_(std::move(link))
{
}

MessagePort::~MessagePort() { invalidate(); }

Ref<MessagePort> MessagePort::createLocal(String* name, size_t prefixLength, RequestHandler handler)
{
    if (!name || !handler)
        return nullptr;
    auto listener = MessagePortListener::publish(name, prefixLength, std::move(handler));
    if (!listener)
        return nullptr;
    auto port = makeObject<MessagePort>(Ref<String>(listener->name()), listener, nullptr);
    listener->attach(port.get());
    return port;
}

Ref<MessagePort> MessagePort::createRemote(String* name, size_t replyPrefixLength)
{
    if (!name)
        return nullptr;
    auto paths = messagePortPaths(name->UTF8String());
    if (!paths)
        return nullptr;
    auto socket = connectToLocalSocket(paths.value().socketPath, kConnectTimeout);
    if (!socket) {
        logUnreachable(name, socket.error());
        return nullptr;
    }
    auto peer = peerCredentials(socket.value().get());
    if (!peer || peer.value().uid != ::geteuid())
        return nullptr;
    auto link = std::make_shared<MessagePortLink>(std::move(socket).value(), replyPrefixLength);
    return makeObject<MessagePort>(staticRefCast<String>(name->copy()), nullptr, std::move(link));
}

bool MessagePort::scheduleInRunLoop(RunLoop* loop, String* mode)
{
    if (!listener_ || !loop || !mode)
        return false;
    return listener_->schedule(loop, mode);
}

void MessagePort::setStalledMessageTimeout(MessagePortSeconds timeout)
{
    if (listener_)
        listener_->setStallLimit(std::chrono::duration_cast<std::chrono::steady_clock::duration>(timeout));
}

MessagePortResult MessagePort::send(MessagePortRequest request)
{
    // Set once at creation; the caller's reference to this port keeps it.
    if (!link_)
        return {MessagePortStatus::IsInvalid, {}};
    return link_->send(std::move(request));
}

void MessagePort::invalidate()
{
    if (listener_)
        listener_->invalidate();
    if (link_)
        link_->invalidate();
}

bool MessagePort::isValid() const { return listener_ ? listener_->isValid() : link_->isValid(); }

Ref<String> MessagePort::description() const
{
    return String::stringWithFormat("<MessagePort %@ %s%s>", name_.get(), link_ ? "remote" : "local",
        isValid() ? "" : " invalid");
}

} // namespace zon
