#include "platform/io/MessagePort.h"

#include "logger/ZonLog.h"
#include "platform/io/MessageFrame.h"
#include "platform/io/MessagePortDirectory.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace zon {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kListenBacklog = 128;
constexpr auto kConnectTimeout = std::chrono::seconds(5);

Clock::time_point deadlineAfter(double seconds)
{
    if (!(seconds > 0))
        return Clock::now();
    seconds = std::min(seconds, 1e9); // about 30 years: "forever" without overflowing the clock
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// Closes a descriptor when the last owner lets go, so a callback that is still running on
// another thread never reads a number that was closed and reused.
struct OwnedFd {
    explicit OwnedFd(int fd) : fd(fd) {}
    ~OwnedFd()
    {
        if (fd >= 0)
            ::close(fd);
    }
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;
    const int fd;
};

bool fillSocketAddress(const std::string& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

bool peerIsSameUser(int fd, uid_t* peerUid)
{
    ucred credentials {};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return false;
    *peerUid = credentials.uid;
    return credentials.uid == ::geteuid();
}

// Holds the lock file of a name. The lock is taken on an open file, then the file is checked to
// still be the one at the path: a previous owner may have removed it between our open and lock.
int lockPortName(const std::string& lockPath)
{
    for (int attempt = 0; attempt < 8; ++attempt) {
        int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0)
            return -1;
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            ::close(fd);
            return -1;
        }
        struct stat held {}, current {};
        if (::fstat(fd, &held) == 0 && ::stat(lockPath.c_str(), &current) == 0 && held.st_ino == current.st_ino
            && held.st_dev == current.st_dev)
            return fd;
        ::close(fd);
    }
    return -1;
}

// Sends what it can of the given pieces without blocking: answers the bytes written, 0 when the
// socket is full, or -1 with errno.
ssize_t sendParts(int fd, iovec* parts, size_t count)
{
    msghdr message {};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    for (;;) {
        ssize_t n = ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0)
            return n;
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return 0;
        return -1;
    }
}

// Sends what is left of one frame.
ssize_t sendSome(int fd, const uint8_t* lead, size_t leadLength, const uint8_t* body, size_t bodyLength)
{
    iovec parts[2];
    size_t count = 0;
    if (leadLength)
        parts[count++] = {const_cast<uint8_t*>(lead), leadLength};
    if (bodyLength)
        parts[count++] = {const_cast<uint8_t*>(body), bodyLength};
    return sendParts(fd, parts, count);
}

// What goes out before a message's body: the frame header, then the message's prefix.
struct FrameLead {
    FrameLead() = default;
    FrameLead(const MessageFrameHeader& header, std::span<const uint8_t> prefix)
        : length(static_cast<uint8_t>(kMessageFrameHeaderSize + prefix.size()))
    {
        encodeMessageFrameHeader(header, bytes);
        std::copy(prefix.begin(), prefix.end(), bytes + kMessageFrameHeaderSize);
    }
    uint8_t bytes[kMessageFrameHeaderSize + kMessagePrefixMaxLength];
    uint8_t length = 0;
};


// What an empty payload becomes: requests always have a body; an empty reply says that the
// receiver answered nothing.
enum class EmptyPayload { Data, Nil };

// A received frame as a message: its prefix, and its payload as the body.
MessagePortMessage messageOfFrame(MessageFrame&& frame, EmptyPayload empty)
{
    MessagePortMessage message;
    message.prefix = frame.prefix;
    message.prefixLength = frame.prefixLength;
    if (empty == EmptyPayload::Data || !frame.payload.empty())
        message.body = Data::dataWithVector(std::move(frame.payload));
    return message;
}

// Bytes being written and the object they lie in, which keeps them alive and unchanged.
struct HeldBytes {
    std::span<const uint8_t> bytes;
    Ref<Object> owner;
};

} // namespace

// ---- Messages ------------------------------------------------------------------------------------

// The body of a message being sent: its bytes and what keeps them if the frame has to be queued,
// the object they lie in (borrowed for the call, or handed over), or else a copy made then.
struct MessagePort::OutgoingBody {
    std::span<const uint8_t> bytes;
    const Object* borrowed = nullptr;
    Ref<Object> owned;

    HeldBytes keep()
    {
        if (owned)
            return {bytes, std::move(owned)};
        if (borrowed)
            return {bytes, Ref<Object>(const_cast<Object*>(borrowed))};
        Ref<Data> copy = Data::dataWithBytes(bytes);
        return {copy->span(), std::move(copy)};
    }
};

MessagePortMessage::MessagePortMessage(Ref<Data> body) : body(std::move(body)) {}

MessagePortMessage::MessagePortMessage(std::span<const uint8_t> prefix, Ref<Data> body)
    : prefixLength(static_cast<uint8_t>(std::min(prefix.size(), kMessagePrefixMaxLength)))
    , body(std::move(body))
{
    std::copy_n(prefix.begin(), prefixLength, this->prefix.begin());
}

std::span<const uint8_t> MessagePortMessage::bodyBytes() const
{
    return body ? body->span() : std::span<const uint8_t>();
}

Ref<Data> MessagePortMessage::joined() const
{
    if (prefixLength == 0)
        return body;
    ByteVector bytes(prefix.begin(), prefix.begin() + prefixLength);
    const auto rest = bodyBytes();
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return Data::dataWithVector(std::move(bytes));
}

// ---- The receiving side ------------------------------------------------------------------------

class MessagePortConnection;
using Connection = MessagePortConnection;

struct MessagePort::LocalEndpoint : std::enable_shared_from_this<LocalEndpoint> {
    Ref<String> name;
    MessagePortPaths paths;
    size_t prefixLength = 0;
    RequestHandler handler;
    std::shared_ptr<OwnedFd> listener;
    int lockFd = -1;

    std::atomic<MessagePort*> port {nullptr}; // the port while valid: cleared, under mutex, by invalidate

    std::mutex mutex; // guards what follows
    bool valid = true;
    bool scheduled = false;
    Ref<RunLoop> loop;
    Ref<String> mode;
    RunLoopSource listenSource;
    std::vector<std::shared_ptr<Connection>> connections;

    ~LocalEndpoint() { invalidate(); }
    void acceptPending();
    void invalidate();
    void forget(Connection* connection);
};

// One accepted connection. It lives on the port's loop thread; invalidate() from another thread
// only shuts the socket down and unregisters it, the descriptor closes with the last reference.
class MessagePortConnection : public std::enable_shared_from_this<MessagePortConnection> {
public:
    struct PendingWrite {
        FrameLead lead;
        size_t leadDone = 0;
        HeldBytes body;
        size_t bodyDone = 0;
    };

    MessagePortConnection(std::weak_ptr<MessagePort::LocalEndpoint> endpoint, int fd, size_t prefixLength)
        : endpoint(std::move(endpoint))
        , fd(fd)
        , reader(kMessageFrameMaxLength, prefixLength)
    {
    }

    bool watch(uint32_t events);
    void onEvents(uint32_t events);
    // Answers true when the peer closed its end.
    bool readAvailable();
    void dispatchFrames();
    void queueReply(const MessageFrameHeader& request, MessagePortMessage reply);
    bool flush();
    void close();

    std::weak_ptr<MessagePort::LocalEndpoint> endpoint;
    OwnedFd fd;
    MessageFrameReader reader;
    std::deque<PendingWrite> pending;

    uint32_t watching = 0; // the events source waits for

    std::mutex mutex; // guards source, and closed's change
    RunLoopSource source;
    std::atomic<bool> closed {false};
};

bool Connection::watch(uint32_t events)
{
    if (events == watching)
        return true;
    auto owner = endpoint.lock();
    if (!owner)
        return false;
    {
        // The loop watches a descriptor once per mode: the old registration goes first.
        std::lock_guard lock(mutex);
        source.invalidate();
    }
    watching = events;
    std::weak_ptr<Connection> weak = weak_from_this();
    RunLoopSource added = owner->loop->addSource(
        fd.fd, events,
        [weak](uint32_t seen) {
            if (auto self = weak.lock())
                self->onEvents(seen);
        },
        {owner->mode.get()});
    std::lock_guard lock(mutex);
    if (closed || !added)
        return false;
    source = std::move(added);
    return true;
}

void Connection::onEvents(uint32_t events)
{
    auto protect = shared_from_this();
    if (!pending.empty()) {
        if ((events & (RunLoopSourceHangUp | RunLoopSourceError)) || !flush())
            close();
        return;
    }
    // Complete frames are answered even when the peer closed right after sending them (a
    // one-way message followed by an exit); the replies then fail quietly.
    bool ended = readAvailable();
    dispatchFrames();
    if (ended)
        close();
}

bool Connection::readAvailable()
{
    switch (reader.readAvailable(fd.fd)) {
    case MessageFrameReader::ReadOutcome::Drained:
        return false;
    case MessageFrameReader::ReadOutcome::Ended:
        return true;
    case MessageFrameReader::ReadOutcome::Refused:
        break;
    }
    auto owner = endpoint.lock();
    String* name = owner ? owner->name.get() : nullptr;
    if (reader.status() == MessageFrameReader::Status::TooLong)
        zon_log_obj(__FILE__, __LINE__, nullptr, 1, kDefaultLogIdentifier,
            "Message port %@ closed a connection: a message of %u bytes is over the limit of %u bytes", name,
            reader.failedHeader().length, kMessageFrameMaxLength);
    else
        zon_log_obj(__FILE__, __LINE__, nullptr, 1, kDefaultLogIdentifier,
            "Message port %@ closed a connection that sent something other than messages", name);
    close();
    return false;
}

void Connection::dispatchFrames()
{
    // Frames leave the reader one at a time: a callback that runs the loop again may read and
    // handle later frames of this connection before it returns.
    auto owner = endpoint.lock();
    if (!owner)
        return;
    while (reader.hasFrame()) {
        // The handler may have closed this connection or invalidated the port.
        MessagePort* port = owner->port.load(std::memory_order_acquire);
        if (closed.load(std::memory_order_acquire) || !port)
            return;
        MessageFrame frame = reader.takeFrame();
        if (frame.header.flags & MessageFrameIsReply)
            continue; // requests only flow this way; a stray reply has nobody to go to
        const MessageFrameHeader header = frame.header;
        const bool replyWanted = header.flags & MessageFrameReplyWanted;
        MessagePortMessage request = messageOfFrame(std::move(frame), EmptyPayload::Data);
        MessagePortMessage reply;
        try {
            reply = owner->handler(port, header.messageId, std::move(request), replyWanted);
        } catch (...) {
            // The sender still hears that nothing will come before the exception moves on.
            if (replyWanted)
                queueReply(header, {});
            throw;
        }
        if (replyWanted)
            queueReply(header, std::move(reply));
    }
}

void Connection::queueReply(const MessageFrameHeader& request, MessagePortMessage reply)
{
    if (closed.load(std::memory_order_acquire))
        return;
    if (reply.length() > kMessageFrameMaxLength)
        reply = {};
    MessageFrameHeader header;
    header.length = static_cast<uint32_t>(reply.length());
    header.requestId = request.requestId;
    header.messageId = request.messageId;
    header.flags = MessageFrameIsReply;
    PendingWrite write;
    write.lead = FrameLead(header, reply.prefixBytes());
    write.body = {reply.bodyBytes(), std::move(reply.body)};
    const bool wasIdle = pending.empty();
    pending.push_back(std::move(write));
    if (!wasIdle)
        return;
    if (!flush()) {
        close();
        return;
    }
    // A reply that did not fit the socket waits for it to drain; reading pauses meanwhile.
    if (!pending.empty() && !watch(RunLoopSourceWritable))
        close();
}

bool Connection::flush()
{
    while (!pending.empty()) {
        PendingWrite& write = pending.front();
        const size_t bodyLength = write.body.bytes.size();
        ssize_t n = sendSome(fd.fd, write.lead.bytes + write.leadDone, write.lead.length - write.leadDone,
            write.body.bytes.data() + write.bodyDone, bodyLength - write.bodyDone);
        if (n < 0)
            return false;
        if (n == 0)
            return true;
        size_t taken = std::min<size_t>(n, write.lead.length - write.leadDone);
        write.leadDone += taken;
        write.bodyDone += static_cast<size_t>(n) - taken;
        if (write.leadDone == write.lead.length && write.bodyDone == bodyLength)
            pending.pop_front();
    }
    return watch(RunLoopSourceReadable);
}

void Connection::close()
{
    {
        std::lock_guard lock(mutex);
        if (closed)
            return;
        closed = true;
        source.invalidate();
    }
    ::shutdown(fd.fd, SHUT_RDWR);
    if (auto owner = endpoint.lock())
        owner->forget(this);
}

void MessagePort::LocalEndpoint::forget(Connection* connection)
{
    std::shared_ptr<Connection> dropped; // released outside the lock
    std::lock_guard lock(mutex);
    auto it = std::find_if(connections.begin(), connections.end(), [&](auto& c) { return c.get() == connection; });
    if (it != connections.end()) {
        dropped = std::move(*it);
        connections.erase(it);
    }
}

void MessagePort::LocalEndpoint::acceptPending()
{
    auto protect = shared_from_this();
    for (;;) {
        int fd = ::accept4(listener->fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            return;
        }
        uid_t peerUid = static_cast<uid_t>(-1);
        if (!peerIsSameUser(fd, &peerUid)) {
            zon_log_obj(__FILE__, __LINE__, nullptr, 1, kDefaultLogIdentifier,
                "Message port %@ refused a connection from user %d", name.get(), static_cast<int>(peerUid));
            ::close(fd);
            continue;
        }
        auto connection = std::make_shared<Connection>(weak_from_this(), fd, prefixLength);
        {
            std::lock_guard lock(mutex);
            if (!valid)
                return; // the connection closes as it goes out of scope
            connections.push_back(connection);
        }
        if (!connection->watch(RunLoopSourceReadable))
            connection->close();
    }
}

void MessagePort::LocalEndpoint::invalidate()
{
    std::vector<std::shared_ptr<Connection>> closing;
    {
        std::lock_guard lock(mutex);
        if (!valid)
            return;
        valid = false;
        port = nullptr;
        listenSource.invalidate();
        closing.swap(connections);
    }
    // The name goes first so nobody connects to a port that is going away.
    ::unlink(paths.socketPath.c_str());
    if (listener)
        ::shutdown(listener->fd, SHUT_RDWR);
    for (auto& connection : closing)
        connection->close();
    ::unlink(paths.lockPath.c_str());
    if (lockFd >= 0)
        ::close(lockFd);
    lockFd = -1;
}

// ---- The sending side --------------------------------------------------------------------------

struct MessagePort::RemoteLink : std::enable_shared_from_this<RemoteLink> {
    struct Waiter {
        uint32_t requestId;
        RunLoop* loop;
        String* mode;
        std::atomic<bool> done {false}; // a reply came, or the link died (invalid)
        bool invalid = false;
        MessagePortMessage reply;
    };
    // A frame waiting to be written. Only the first frame of the queue is ever partly written, so
    // frames of different threads, or of a send nested in another's wait, never interleave.
    struct OutgoingFrame {
        FrameLead lead;
        HeldBytes body;
        size_t written = 0;
        bool done = false;
        size_t length() const { return lead.length + body.bytes.size(); }
    };
    // This link's socket watched by one thread's loop in one mode, for replies.
    struct Registration {
        Ref<RunLoop> loop;
        Ref<String> mode;
        RunLoopSource source;
    };

    RemoteLink(int fd, size_t replyPrefixLength) : fd(fd), reader(kMessageFrameMaxLength, replyPrefixLength) {}
    ~RemoteLink() { invalidate(); }

    // Writes one frame, entering waiter (when there is one) among those expecting a reply first.
    // Handed-over body data is released once written (when this returns, unless it had to be queued).
    MessagePortStatus write(const MessageFrameHeader& header, std::span<const uint8_t> prefix, OutgoingBody body,
        double sendTimeout, String* waitMode, Waiter* waiter);
    void forget(const Waiter* waiter);
    void flushLocked();
    bool watchFromCurrentThread(RunLoop* loop, String* mode);
    void readReplies();
    void readRepliesLocked();
    void deliverRepliesLocked();
    void markDeadLocked();
    void invalidate();

    OwnedFd fd;
    std::atomic<uint32_t> nextRequestId {1};

    std::mutex mutex; // guards what follows
    bool dead = false;
    std::deque<std::shared_ptr<OutgoingFrame>> outgoing;
    MessageFrameReader reader;
    std::vector<Waiter*> waiters; // a few at a time: one per thread waiting, plus nested waits
    std::vector<Registration> registrations;
};

namespace {
// The waits of this thread, innermost last.
thread_local std::vector<MessagePort::RemoteLink::Waiter*> waitStack;
} // namespace

void MessagePort::RemoteLink::flushLocked()
{
    // Frames that queued up while the socket was full go out several to a system call.
    constexpr size_t kFramesPerWrite = 32;
    while (!dead && !outgoing.empty()) {
        iovec parts[2 * kFramesPerWrite];
        size_t count = 0, frames = 0;
        for (auto it = outgoing.begin(); it != outgoing.end() && frames < kFramesPerWrite; ++it, ++frames) {
            OutgoingFrame& frame = **it;
            const size_t leadDone = std::min<size_t>(frame.written, frame.lead.length);
            const size_t bodyDone = frame.written - leadDone;
            if (leadDone < frame.lead.length)
                parts[count++] = {frame.lead.bytes + leadDone, frame.lead.length - leadDone};
            if (bodyDone < frame.body.bytes.size())
                parts[count++] = {const_cast<uint8_t*>(frame.body.bytes.data()) + bodyDone,
                    frame.body.bytes.size() - bodyDone};
        }
        ssize_t n = sendParts(fd.fd, parts, count);
        if (n < 0) {
            markDeadLocked();
            return;
        }
        if (n == 0)
            return;
        for (auto left = static_cast<size_t>(n); left > 0;) {
            OutgoingFrame& frame = *outgoing.front();
            const size_t total = frame.length();
            const size_t taken = std::min(left, total - frame.written);
            frame.written += taken;
            left -= taken;
            if (frame.written == total) {
                frame.done = true;
                outgoing.pop_front();
            }
        }
    }
}

MessagePortStatus MessagePort::RemoteLink::write(const MessageFrameHeader& header, std::span<const uint8_t> prefix,
    OutgoingBody body, double sendTimeout, String* waitMode, Waiter* waiter)
{
    const FrameLead lead(header, prefix);
    std::shared_ptr<OutgoingFrame> frame;
    {
        std::lock_guard lock(mutex);
        if (dead)
            return MessagePortStatus::IsInvalid;
        if (waiter)
            waiters.push_back(waiter);
        // With nothing queued ahead the frame is written from here; only what does not fit is
        // queued, with the body's data (lent bytes are copied then).
        size_t written = 0;
        const bool direct = outgoing.empty();
        if (direct) {
            ssize_t n = sendSome(fd.fd, lead.bytes, lead.length, body.bytes.data(), body.bytes.size());
            if (n < 0) {
                markDeadLocked();
                return MessagePortStatus::IsInvalid;
            }
            written = static_cast<size_t>(n);
            if (written == lead.length + body.bytes.size())
                return MessagePortStatus::Success;
        }
        frame = std::make_shared<OutgoingFrame>();
        frame->lead = lead;
        frame->body = body.keep();
        frame->written = written;
        outgoing.push_back(frame);
        if (!direct)
            flushLocked();
        if (frame->done)
            return MessagePortStatus::Success;
        if (dead)
            return MessagePortStatus::IsInvalid;
    }
    // The socket is full. Whoever waits for room on this link writes the queue on in order; this
    // thread's loop keeps serving requests meanwhile, so two peers writing large messages to each
    // other both make progress. The loop may already watch fd in this mode (for replies): a
    // duplicate descriptor is a separate registration.
    const auto deadline = deadlineAfter(sendTimeout);
    RunLoop* loop = RunLoop::currentRunLoop();
    int watched = ::fcntl(fd.fd, F_DUPFD_CLOEXEC, 0);
    std::weak_ptr<RemoteLink> weak = weak_from_this();
    RunLoopSource source;
    if (watched >= 0)
        source = loop->addSource(
            watched, RunLoopSourceWritable,
            [weak](uint32_t) {
                if (auto self = weak.lock()) {
                    std::lock_guard lock(self->mutex);
                    self->flushLocked();
                }
            },
            {waitMode});
    MessagePortStatus status;
    for (;;) {
        {
            std::lock_guard lock(mutex);
            if (frame->done) {
                status = MessagePortStatus::Success;
                break;
            }
            if (dead) {
                status = MessagePortStatus::IsInvalid;
                break;
            }
            if (Clock::now() >= deadline) {
                // A frame nobody started is taken back; one cut short stays queued, since the
                // stream must carry it whole, and is finished by the link's next writer.
                if (frame->written == 0)
                    std::erase(outgoing, frame);
                status = MessagePortStatus::SendTimeout;
                break;
            }
        }
        if (source) {
            loop->runInMode(waitMode, deadline - Clock::now(), true);
        } else {
            pollfd entry {fd.fd, POLLOUT, 0};
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            ::poll(&entry, 1, static_cast<int>(std::clamp<long long>(left, 1, INT32_MAX)));
            std::lock_guard lock(mutex);
            flushLocked();
        }
    }
    source.invalidate();
    if (watched >= 0)
        ::close(watched);
    return status;
}

bool MessagePort::RemoteLink::watchFromCurrentThread(RunLoop* loop, String* mode)
{
    std::lock_guard lock(mutex);
    if (dead)
        return false;
    // Loops of threads that ended no longer serve anything.
    std::erase_if(registrations, [](Registration& r) { return !r.source.isValid() || !r.loop->thread(); });
    for (auto& registration : registrations)
        if (registration.loop.get() == loop && registration.mode->isEqual(mode))
            return true;
    std::weak_ptr<RemoteLink> weak = weak_from_this();
    RunLoopSource source = loop->addSource(
        fd.fd, RunLoopSourceReadable,
        [weak](uint32_t) {
            if (auto self = weak.lock())
                self->readReplies();
        },
        {mode});
    if (!source)
        return false;
    registrations.push_back({Ref<RunLoop>(loop), Ref<String>(mode), std::move(source)});
    return true;
}

void MessagePort::RemoteLink::readReplies()
{
    std::lock_guard lock(mutex);
    readRepliesLocked();
}

void MessagePort::RemoteLink::readRepliesLocked()
{
    if (dead)
        return;
    const auto outcome = reader.readAvailable(fd.fd);
    if (outcome == MessageFrameReader::ReadOutcome::Refused) {
        markDeadLocked();
        return;
    }
    deliverRepliesLocked(); // replies read before an end still reach their senders
    if (outcome == MessageFrameReader::ReadOutcome::Ended)
        markDeadLocked();
}

void MessagePort::RemoteLink::deliverRepliesLocked()
{
    while (reader.hasFrame()) {
        MessageFrame frame = reader.takeFrame();
        auto it = std::find_if(
            waiters.begin(), waiters.end(), [&](Waiter* w) { return w->requestId == frame.header.requestId; });
        if (!(frame.header.flags & MessageFrameIsReply) || it == waiters.end())
            continue; // a reply that came after its sender stopped waiting
        Waiter* waiter = *it;
        waiters.erase(it);
        waiter->reply = messageOfFrame(std::move(frame), EmptyPayload::Nil);
        waiter->done = true;
        // The waiting thread may be asleep in its own loop: a block ends its wait. On this thread
        // the run that reads is the waiter's own, or one nested in it (see sendRequest).
        if (waiter->loop != RunLoop::currentRunLoop())
            waiter->loop->performBlock({waiter->mode}, [] {});
    }
}

void MessagePort::RemoteLink::markDeadLocked()
{
    if (dead)
        return;
    dead = true;
    ::shutdown(fd.fd, SHUT_RDWR);
    // A closed socket reads as ready forever; nobody may keep watching it.
    for (auto& registration : registrations)
        registration.source.invalidate();
    for (Waiter* waiter : waiters) {
        waiter->invalid = true;
        waiter->done = true;
        if (waiter->loop != RunLoop::currentRunLoop())
            waiter->loop->performBlock({waiter->mode}, [] {});
    }
    waiters.clear();
    outgoing.clear();
}

void MessagePort::RemoteLink::forget(const Waiter* waiter)
{
    std::lock_guard lock(mutex);
    std::erase(waiters, waiter);
}

void MessagePort::RemoteLink::invalidate()
{
    std::vector<Registration> dropped; // released outside the lock
    std::lock_guard lock(mutex);
    // A reply that has already arrived still reaches its sender: the peer may answer and then
    // disconnect, and its disconnect can be handled here before the reply has been read.
    readRepliesLocked();
    markDeadLocked();
    dropped.swap(registrations);
}

// ---- The port ----------------------------------------------------------------------------------

ZON_DEFINE_CLASS(MessagePort, "NSMessagePort")

MessagePort::MessagePort(Ref<String> name, std::shared_ptr<LocalEndpoint> local, std::shared_ptr<RemoteLink> remote)
    : name_(std::move(name))
    , local_(std::move(local))
    , remote_(std::move(remote))
{
}

MessagePort::~MessagePort() { invalidate(); }

Ref<MessagePort> MessagePort::createLocal(String* name, Callback callback)
{
    if (!callback)
        return nullptr;
    return createLocal(name, 0,
        [callback = std::move(callback)](MessagePort* port, int32_t messageId, MessagePortMessage request, bool) {
            return MessagePortMessage(callback(port, messageId, request.body.get()));
        });
}

Ref<MessagePort> MessagePort::createLocal(String* name, size_t prefixLength, RequestHandler handler)
{
    if (!name || !handler)
        return nullptr;
    auto endpoint = std::make_shared<LocalEndpoint>();
    endpoint->name = adoptRef(static_cast<String*>(name->copy().leakRef()));
    endpoint->prefixLength = std::min(prefixLength, kMessagePrefixMaxLength);
    endpoint->handler = std::move(handler);
    auto paths = messagePortPaths(name->UTF8String());
    if (!paths) {
        endpoint->valid = false;
        zon_log_obj(__FILE__, __LINE__, nullptr, 2, kDefaultLogIdentifier, "Message port %@ cannot be published: %@",
            name, String::stringWithUTF8String(paths.error().text()).get());
        return nullptr;
    }
    endpoint->paths = std::move(paths).value();
    endpoint->lockFd = lockPortName(endpoint->paths.lockPath);
    if (endpoint->lockFd < 0) {
        endpoint->valid = false; // the files are someone else's: leave them
        return nullptr;
    }
    // We hold the name: whatever socket file is left belongs to an owner that died.
    ::unlink(endpoint->paths.socketPath.c_str());
    sockaddr_un address;
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    endpoint->listener = std::make_shared<OwnedFd>(fd);
    if (fd < 0 || !fillSocketAddress(endpoint->paths.socketPath, address)
        || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0
        || ::chmod(endpoint->paths.socketPath.c_str(), 0600) != 0 || ::listen(fd, kListenBacklog) != 0) {
        zon_log_obj(__FILE__, __LINE__, nullptr, 2, kDefaultLogIdentifier, "Message port %@ cannot be published: %@",
            name, String::stringWithUTF8String(std::strerror(errno)).get());
        return nullptr; // the endpoint's destruction removes the files and releases the lock
    }
    auto port = makeObject<MessagePort>(endpoint->name, endpoint, nullptr);
    endpoint->port = port.get();
    return port;
}

Ref<MessagePort> MessagePort::createRemote(String* name, size_t replyPrefixLength)
{
    if (!name)
        return nullptr;
    auto found = messagePortPaths(name->UTF8String());
    sockaddr_un address;
    if (!found)
        return nullptr;
    MessagePortPaths paths = std::move(found).value();
    if (!fillSocketAddress(paths.socketPath, address))
        return nullptr;
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    auto link = std::make_shared<RemoteLink>(fd, replyPrefixLength);
    // A blocking connect with a time limit: a full backlog of a busy port is waited out rather
    // than reported as a missing port.
    timeval limit {std::chrono::seconds(kConnectTimeout).count(), 0};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    int connected;
    do
        connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    while (connected != 0 && errno == EINTR);
    uid_t peerUid;
    if (connected != 0 || !peerIsSameUser(fd, &peerUid))
        return nullptr;
    timeval none {};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &none, sizeof(none));
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    return makeObject<MessagePort>(adoptRef(static_cast<String*>(name->copy().leakRef())), nullptr, std::move(link));
}

bool MessagePort::scheduleInRunLoop(RunLoop* loop, String* mode)
{
    if (!local_ || !loop || !mode)
        return false;
    auto endpoint = local_;
    std::lock_guard lock(endpoint->mutex);
    if (!endpoint->valid || endpoint->scheduled)
        return false;
    std::weak_ptr<LocalEndpoint> weak = endpoint;
    auto listener = endpoint->listener;
    endpoint->listenSource = loop->addSource(
        listener->fd, RunLoopSourceReadable,
        [weak, listener](uint32_t) {
            if (auto self = weak.lock())
                self->acceptPending();
        },
        {mode});
    if (!endpoint->listenSource)
        return false;
    endpoint->scheduled = true;
    endpoint->loop = loop;
    endpoint->mode = mode;
    return true;
}

MessagePortStatus MessagePort::sendRequest(int32_t messageId, const Data* data, double sendTimeout,
    double receiveTimeout, String* replyMode, Ref<Data>* reply)
{
    OutgoingBody body;
    if (data)
        body.bytes = data->span();
    body.borrowed = data;
    MessagePortMessage replyMessage;
    const auto status
        = send(messageId, {}, std::move(body), sendTimeout, receiveTimeout, replyMode, reply ? &replyMessage : nullptr);
    if (reply)
        *reply = replyMessage.length() ? replyMessage.joined() : nullptr;
    return status;
}

MessagePortStatus MessagePort::sendRequest(int32_t messageId, std::span<const uint8_t> prefix, Ref<Data> data,
    double sendTimeout, double receiveTimeout, String* replyMode, MessagePortMessage* reply)
{
    const auto bytes = data ? data->span() : std::span<const uint8_t>();
    return sendRequest(messageId, prefix, bytes, std::move(data), sendTimeout, receiveTimeout, replyMode, reply);
}

MessagePortStatus MessagePort::sendRequest(int32_t messageId, std::span<const uint8_t> prefix,
    std::span<const uint8_t> bytes, Ref<Object> owner, double sendTimeout, double receiveTimeout, String* replyMode,
    MessagePortMessage* reply)
{
    OutgoingBody body;
    body.bytes = bytes;
    body.owned = std::move(owner);
    return send(messageId, prefix, std::move(body), sendTimeout, receiveTimeout, replyMode, reply);
}

MessagePortStatus MessagePort::sendRequest(int32_t messageId, std::span<const uint8_t> prefix,
    std::span<const uint8_t> bytes, double sendTimeout, double receiveTimeout, String* replyMode,
    MessagePortMessage* reply)
{
    return send(messageId, prefix, {bytes}, sendTimeout, receiveTimeout, replyMode, reply);
}

MessagePortStatus MessagePort::send(int32_t messageId, std::span<const uint8_t> prefix, OutgoingBody body,
    double sendTimeout, double receiveTimeout, String* replyMode, MessagePortMessage* reply)
{
    if (reply)
        *reply = {};
    // Set once at creation; the caller's reference to this port keeps it.
    RemoteLink* link = remote_.get();
    if (!link)
        return MessagePortStatus::IsInvalid;
    const size_t length = prefix.size() + body.bytes.size();
    if (prefix.size() > kMessagePrefixMaxLength || length > kMessageFrameMaxLength)
        return MessagePortStatus::TransportError;

    MessageFrameHeader header;
    header.length = static_cast<uint32_t>(length);
    header.messageId = messageId;
    // Nothing answers a message sent without a reply mode, so it needs no request id.
    if (!replyMode)
        return link->write(header, prefix, std::move(body), sendTimeout, NSDefaultRunLoopMode, nullptr);
    header.requestId = link->nextRequestId.fetch_add(1, std::memory_order_relaxed);
    header.flags = MessageFrameReplyWanted;

    using Waiter = RemoteLink::Waiter;
    RunLoop* loop = RunLoop::currentRunLoop();
    Waiter waiter {header.requestId, loop, replyMode};
    // The waiter leaves the table on every way out, exceptions from a nested callback included.
    struct Forget {
        RemoteLink* link;
        const Waiter* waiter;
        ~Forget() { link->forget(waiter); }
    } forget {link, &waiter};

    MessagePortStatus status = link->write(header, prefix, std::move(body), sendTimeout, replyMode, &waiter);
    if (status != MessagePortStatus::Success)
        return status;
    if (!link->watchFromCurrentThread(loop, replyMode)) {
        std::lock_guard lock(link->mutex);
        return link->dead ? MessagePortStatus::IsInvalid : MessagePortStatus::TransportError;
    }

    const auto deadline = deadlineAfter(receiveTimeout);
    waitStack.push_back(&waiter);
    struct Pop {
        RunLoop* loop;
        ~Pop()
        {
            waitStack.pop_back();
            // A reply read inside this wait may have been the one an enclosing wait on this
            // thread expects. The run of that wait returns by itself when the callback that led
            // here was a source or a block; after a timer's it would sleep on, so it is stopped.
            if (!waitStack.empty() && waitStack.back()->done)
                loop->stop();
        }
    } pop {loop};
    for (;;) {
        {
            std::lock_guard lock(link->mutex);
            if (waiter.invalid)
                return MessagePortStatus::IsInvalid;
            if (waiter.done)
                break;
        }
        auto now = Clock::now();
        if (now >= deadline)
            return MessagePortStatus::ReceiveTimeout;
        loop->runInMode(replyMode, deadline - now, true);
    }
    if (reply)
        *reply = std::move(waiter.reply);
    return MessagePortStatus::Success;
}

void MessagePort::invalidate()
{
    if (local_)
        local_->invalidate();
    if (remote_)
        remote_->invalidate();
}

bool MessagePort::isValid() const
{
    if (local_) {
        std::lock_guard lock(local_->mutex);
        return local_->valid;
    }
    std::lock_guard lock(remote_->mutex);
    return !remote_->dead;
}

Ref<String> MessagePort::description() const
{
    return String::stringWithFormat("<MessagePort %@ %s%s>", name_.get(), remote_ ? "remote" : "local",
        isValid() ? "" : " invalid");
}

} // namespace zon
