#include "platform/io/MessagePortListenerInternal.h"

#include "logger/ZonLog.h"
#include "platform/io/MessagePortConnectionInternal.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/SocketCallsInternal.h"
#include "platform/threads/Timer.h"
#include "platform/values/String.h"

#include <algorithm>
#include <unistd.h>

namespace zon {

namespace {

constexpr int kListenBacklog = 128;
constexpr auto kAcceptPause = std::chrono::milliseconds(100);

// Accepted connections of every listener of this process.
std::atomic<size_t> gConnectionCount {0};

void logCannotPublish(String* name, const SystemError& error)
{
    zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelWarning, kDefaultLogIdentifier,
        "Message port %@ cannot be published: %@", name, String::stringWithUTF8String(error.text()).get());
}

// Why the lock file of a name cannot be taken, in words a person can act on.
SystemError lockProblem(const std::string& path, const SystemError& error)
{
    switch (error.code) {
    case ELOOP:
        return {error.code, path, "the lock file is a symbolic link; remove it"};
    case EISDIR:
        return {error.code, path, "the lock file is a folder; remove it"};
    case EACCES:
    case EPERM:
        if (auto status = linkStatus(path); status && status.value().st_uid != ::geteuid())
            return {error.code, path,
                "the lock file belongs to uid " + std::to_string(status.value().st_uid) + ", not to this user"};
        return {error.code, path, error.text()};
    default:
        return {error.code, path, error.text()};
    }
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
    auto ownName = staticRefCast<String>(name->copy());
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
        if (lock.code() == EWOULDBLOCK)
            zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelInfo, kDefaultLogIdentifier,
                "Message port %@ is held by a live process", name);
        else
            logCannotPublish(name, lockProblem(listener->paths_.lockPath, lock.error()));
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
    listener->connectionLimit_ = connectionLimit();
    return listener;
}

size_t MessagePortListener::connectionLimit()
{
    const auto limit = openFileLimit();
    const size_t descriptors = limit ? limit.value() : 1024;
    const size_t reserve = std::max<size_t>(64, descriptors / 8);
    return descriptors > 2 * reserve ? descriptors - reserve : descriptors / 2;
}

bool MessagePortListener::schedule(RunLoop* loop, String* mode)
{
    std::lock_guard lock(mutex_);
    if (!valid_ || scheduled_)
        return false;
    loop_ = loop;
    mode_ = mode;
    if (!watchSocketLocked())
        return false;
    scheduled_ = true;
    return true;
}

bool MessagePortListener::watchSocketLocked()
{
    std::weak_ptr<MessagePortListener> weak = weak_from_this();
    listenSource_ = loop_->addSource(
        socket_->get(), RunLoopSourceReadable,
        [weak, socket = socket_](uint32_t) {
            if (auto self = weak.lock())
                self->acceptPending();
        },
        {mode_.get()});
    return listenSource_.isValid();
}

void MessagePortListener::pauseAccepting()
{
    // A run of these is summarised by the Logger's repeat filter.
    zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
        "Message port %@ cannot accept connections: the process has no descriptors left", name_.get());
    {
        std::lock_guard lock(mutex_);
        listenSource_.invalidate();
    }
    std::weak_ptr<MessagePortListener> weak = weak_from_this();
    auto resume = Timer::timerWithTimeInterval(kAcceptPause, false, [weak] {
        if (auto self = weak.lock()) {
            std::lock_guard lock(self->mutex_);
            if (self->valid_)
                self->watchSocketLocked();
        }
    });
    loop_->addTimer_forMode(resume, mode_.get());
}

bool MessagePortListener::closeIdlestConnection()
{
    std::shared_ptr<MessagePortConnection> idlest;
    {
        std::lock_guard lock(mutex_);
        auto it = std::min_element(connections_.begin(), connections_.end(),
            [](auto& a, auto& b) { return a->lastActive() < b->lastActive(); });
        if (it == connections_.end())
            return false;
        idlest = *it;
    }
    idlest->close();
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
        if (!accepted) {
            if (accepted.code() == EMFILE || accepted.code() == ENFILE)
                pauseAccepting();
            return;
        }
        auto peer = peerCredentials(accepted.value().get());
        if (!peer || peer.value().uid != ::geteuid()) {
            zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
                "Message port %@ refused a connection from user %d", name_.get(),
                peer ? static_cast<int>(peer.value().uid) : -1);
            continue;
        }
        if (gConnectionCount.load(std::memory_order_relaxed) >= connectionLimit_) {
            const bool madeRoom = closeIdlestConnection();
            zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelWarning, kDefaultLogIdentifier,
                "Message port %@ is at the limit of %lu connections: closed %s", name_.get(),
                static_cast<unsigned long>(connectionLimit_),
                madeRoom ? "the connection idle longest" : "the new connection");
            if (!madeRoom)
                continue; // the new connection closes as it goes out of scope
        }
        auto connection
            = std::make_shared<MessagePortConnection>(weak_from_this(), std::move(accepted).value(), prefixLength_);
        {
            std::lock_guard lock(mutex_);
            if (!valid_)
                return; // the connection closes as it goes out of scope
            connections_.push_back(connection);
            gConnectionCount.fetch_add(1, std::memory_order_relaxed);
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
        gConnectionCount.fetch_sub(1, std::memory_order_relaxed);
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
        gConnectionCount.fetch_sub(closing.size(), std::memory_order_relaxed);
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
