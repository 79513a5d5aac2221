#include "platform/io/MessagePortListenerInternal.h"

#include "logger/ZonLog.h"
#include "platform/io/MessagePortConnectionInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/SocketCallsInternal.h"
#include "platform/values/String.h"

#include <algorithm>
#include <unistd.h>

namespace zon {

namespace {

constexpr int kListenBacklog = 128;

void logCannotPublish(String* name, const SystemError& error)
{
    zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelWarning, kDefaultLogIdentifier,
        "Message port %@ cannot be published: %@", name, String::stringWithUTF8String(error.text()).get());
}

} // namespace

MessagePortListener::MessagePortListener(Ref<String> name, size_t prefixLength, MessagePort::RequestHandler handler)
    : name_(std::move(name))
    , prefixLength_(std::min(prefixLength, kMessagePrefixMaxLength))
    , handler_(std::move(handler))
{
}

MessagePortListener::~MessagePortListener() { invalidate(); }

std::shared_ptr<MessagePortListener> MessagePortListener::publish(
    String* name, size_t prefixLength, MessagePort::RequestHandler handler)
{
    Ref<String> ownName = adoptRef(static_cast<String*>(name->copy().leakRef()));
    std::shared_ptr<MessagePortListener> listener(
        new MessagePortListener(ownName, prefixLength, std::move(handler)));
    auto paths = messagePortPaths(name->UTF8String());
    if (!paths) {
        listener->valid_ = false;
        logCannotPublish(name, paths.error());
        return nullptr;
    }
    listener->paths_ = std::move(paths).value();
    auto lock = lockFileExclusively(listener->paths_.lockPath, 0600);
    if (!lock) {
        listener->valid_ = false; // the files are someone else's: leave them
        return nullptr;
    }
    listener->lock_ = std::move(lock).value();
    // We hold the name: whatever socket file is left belongs to an owner that died.
    (void)removeFile(listener->paths_.socketPath);
    auto socket = listenOnLocalSocket(listener->paths_.socketPath, 0600, kListenBacklog);
    if (!socket) {
        logCannotPublish(name, socket.error());
        return nullptr; // the listener's destruction removes the files and releases the lock
    }
    listener->socket_ = std::make_shared<FileDescriptor>(std::move(socket).value());
    return listener;
}

bool MessagePortListener::schedule(RunLoop* loop, String* mode)
{
    std::lock_guard lock(mutex_);
    if (!valid_ || scheduled_)
        return false;
    std::weak_ptr<MessagePortListener> weak = weak_from_this();
    listenSource_ = loop->addSource(
        socket_->get(), RunLoopSourceReadable,
        [weak, socket = socket_](uint32_t) {
            if (auto self = weak.lock())
                self->acceptPending();
        },
        {mode});
    if (!listenSource_)
        return false;
    scheduled_ = true;
    loop_ = loop;
    mode_ = mode;
    return true;
}

bool MessagePortListener::isValid() const
{
    std::lock_guard lock(mutex_);
    return valid_;
}

void MessagePortListener::acceptPending()
{
    auto protect = shared_from_this();
    for (;;) {
        auto accepted = acceptConnection(socket_->get());
        if (!accepted)
            return;
        auto peer = peerCredentials(accepted.value().get());
        if (!peer || peer.value().uid != ::geteuid()) {
            zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
                "Message port %@ refused a connection from user %d", name_.get(),
                peer ? static_cast<int>(peer.value().uid) : -1);
            continue;
        }
        auto connection
            = std::make_shared<MessagePortConnection>(weak_from_this(), std::move(accepted).value(), prefixLength_);
        {
            std::lock_guard lock(mutex_);
            if (!valid_)
                return; // the connection closes as it goes out of scope
            connections_.push_back(connection);
        }
        if (!connection->watch(RunLoopSourceReadable))
            connection->close();
    }
}

void MessagePortListener::forget(MessagePortConnection* connection)
{
    std::shared_ptr<MessagePortConnection> dropped; // released outside the lock
    std::lock_guard lock(mutex_);
    auto it = std::find_if(connections_.begin(), connections_.end(), [&](auto& c) { return c.get() == connection; });
    if (it != connections_.end()) {
        dropped = std::move(*it);
        connections_.erase(it);
    }
}

void MessagePortListener::invalidate()
{
    std::vector<std::shared_ptr<MessagePortConnection>> closing;
    {
        std::lock_guard lock(mutex_);
        if (!valid_)
            return;
        valid_ = false;
        port_ = nullptr;
        listenSource_.invalidate();
        closing.swap(connections_);
    }
    // The name goes first so nobody connects to a port that is going away.
    (void)removeFile(paths_.socketPath);
    if (socket_)
        (void)shutdownSocket(socket_->get());
    for (auto& connection : closing)
        connection->close();
    (void)removeFile(paths_.lockPath);
    lock_.reset();
}

} // namespace zon
