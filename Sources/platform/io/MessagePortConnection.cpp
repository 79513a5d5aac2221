#include "platform/io/MessagePortConnectionInternal.h"

#include "logger/ZonLog.h"
#include "platform/io/MessagePortListenerInternal.h"
#include "platform/system/SocketCallsInternal.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"

namespace zon {

MessagePortConnection::MessagePortConnection(
    std::weak_ptr<MessagePortListener> listener, FileDescriptor socket, size_t prefixLength)
    : listener_(std::move(listener))
    , socket_(std::move(socket))
    , reader_(kMessageFrameMaxLength, prefixLength, &MessageFrameBudget::incoming())
{
}

bool MessagePortConnection::watch(uint32_t events)
{
    if (events == watching_)
        return true;
    auto owner = listener_.lock();
    if (!owner)
        return false;
    {
        // The loop watches a descriptor once per mode: the old registration goes first.
        std::lock_guard lock(mutex_);
        source_.invalidate();
    }
    watching_ = events;
    std::weak_ptr<MessagePortConnection> weak = weak_from_this();
    RunLoopSource added = owner->loop()->addSource(
        socket_.get(), events,
        [weak](uint32_t seen) {
            if (auto self = weak.lock())
                self->onEvents(seen);
        },
        {owner->mode()});
    std::lock_guard lock(mutex_);
    if (closed_ || !added)
        return false;
    source_ = std::move(added);
    return true;
}

void MessagePortConnection::onEvents(uint32_t events)
{
    auto protect = shared_from_this();
    lastActive_ = std::chrono::steady_clock::now();
    try {
        serve(events);
    } catch (const std::bad_alloc&) {
        auto owner = listener_.lock();
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
            "Message port %@ closed a connection: out of memory while serving it", owner ? owner->name() : nullptr);
        close();
    }
}

void MessagePortConnection::serve(uint32_t events)
{
    if (!pending_.empty()) {
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

bool MessagePortConnection::readAvailable()
{
    switch (reader_.readAvailable(socket_.get())) {
    case MessageFrameReader::ReadOutcome::Drained:
        if (reader_.hasPartialFrame())
            watchForStall();
        return false;
    case MessageFrameReader::ReadOutcome::Starved:
        pauseReading();
        return false;
    case MessageFrameReader::ReadOutcome::Ended:
        return true;
    case MessageFrameReader::ReadOutcome::Refused:
        break;
    }
    auto owner = listener_.lock();
    String* name = owner ? owner->name() : nullptr;
    if (reader_.status() == MessageFrameReader::Status::TooLong)
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
            "Message port %@ closed a connection: a message of %u bytes is over the limit of %u bytes", name,
            reader_.failedHeader().length, kMessageFrameMaxLength);
    else
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
            "Message port %@ closed a connection that sent something other than messages", name);
    close();
    return false;
}

// Reading stops until the budget has room again; the loop then watches the socket anew, and what
// the peer sent meanwhile waits in the socket.
void MessagePortConnection::pauseReading()
{
    auto owner = listener_.lock();
    if (!owner)
        return;
    {
        std::lock_guard lock(mutex_);
        source_.invalidate();
    }
    watching_ = 0;
    paused_ = true;
    std::weak_ptr<MessagePortConnection> weak = weak_from_this();
    Ref<RunLoop> loop(owner->loop());
    Ref<String> mode(owner->mode());
    MessageFrameBudget::incoming().whenRoom([weak, loop, mode] {
        loop->performBlock({mode.get()}, [weak] {
            auto self = weak.lock();
            if (!self || self->closed_)
                return;
            self->paused_ = false;
            self->lastActive_ = std::chrono::steady_clock::now();
            if (!self->watch(RunLoopSourceReadable))
                self->close();
        });
    });
}

// One timer at a time watches a message in progress; it looks again when it fires.
void MessagePortConnection::watchForStall()
{
    {
        std::lock_guard lock(mutex_);
        if (stallTimer_ || closed_)
            return;
    }
    auto owner = listener_.lock();
    if (!owner)
        return;
    const auto due = lastActive_ + owner->stallLimit() - std::chrono::steady_clock::now();
    std::weak_ptr<MessagePortConnection> weak = weak_from_this();
    auto timer = Timer::timerWithTimeInterval(
        std::max<Timer::Clock::duration>(due, std::chrono::milliseconds(1)), false, [weak] {
            if (auto self = weak.lock())
                self->checkStall();
        });
    {
        std::lock_guard lock(mutex_);
        if (stallTimer_ || closed_)
            return;
        stallTimer_ = timer;
    }
    owner->loop()->addTimer_forMode(timer, owner->mode());
}

void MessagePortConnection::checkStall()
{
    {
        std::lock_guard lock(mutex_);
        stallTimer_ = nullptr;
    }
    auto owner = listener_.lock();
    if (!owner || closed_ || paused_ || !reader_.hasPartialFrame())
        return;
    if (std::chrono::steady_clock::now() - lastActive_ < owner->stallLimit()) {
        watchForStall();
        return;
    }
    zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelWarning, kDefaultLogIdentifier,
        "Message port %@ closed a connection whose message made no progress for %.0f s", owner->name(),
        std::chrono::duration<double>(owner->stallLimit()).count());
    close();
}

void MessagePortConnection::dispatchFrames()
{
    // Frames leave the reader one at a time: a handler that runs the loop again may read and
    // handle later frames of this connection before it returns.
    auto owner = listener_.lock();
    if (!owner)
        return;
    while (reader_.hasFrame()) {
        // The handler may have closed this connection or invalidated the port.
        MessagePort* port = owner->port();
        if (closed_.load(std::memory_order_acquire) || !port)
            return;
        MessageFrame frame = reader_.takeFrame();
        if (frame.header.flags & MessageFrameIsReply)
            continue; // requests only flow this way; a stray reply has nobody to go to
        const MessageFrameHeader header = frame.header;
        const bool replyWanted = header.flags & MessageFrameReplyWanted;
        MessagePortMessage reply;
        try {
            reply = owner->handle(port, header.messageId, messageOfFrame(std::move(frame), EmptyPayload::Data), replyWanted);
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

void MessagePortConnection::queueReply(const MessageFrameHeader& request, MessagePortMessage reply)
{
    if (closed_.load(std::memory_order_acquire))
        return;
    if (reply.length() > kMessageFrameMaxLength)
        reply = {};
    MessageFrameHeader header;
    header.length = static_cast<uint32_t>(reply.length());
    header.requestId = request.requestId;
    header.messageId = request.messageId;
    header.flags = MessageFrameIsReply;
    const bool wasIdle = pending_.empty();
    pending_.push_back({MessageFrameLead(header, reply.prefixBytes()), std::move(reply.body)});
    if (!wasIdle)
        return;
    if (!flush()) {
        close();
        return;
    }
    // A reply that did not fit the socket waits for it to drain; reading pauses meanwhile.
    if (!pending_.empty() && !watch(RunLoopSourceWritable))
        close();
}

bool MessagePortConnection::flush()
{
    while (!pending_.empty()) {
        MessageFrameWrite& write = pending_.front();
        iovec parts[2];
        auto sent = sendParts(socket_.get(), {parts, write.unwrittenParts(parts)});
        if (!sent)
            return false;
        if (sent.value() == 0)
            return true;
        write.written += sent.value();
        if (write.isDone())
            pending_.pop_front();
    }
    return watch(RunLoopSourceReadable);
}

void MessagePortConnection::close()
{
    {
        std::lock_guard lock(mutex_);
        if (closed_)
            return;
        closed_ = true;
        source_.invalidate();
        if (stallTimer_)
            stallTimer_->invalidate();
    }
    (void)shutdownSocket(socket_.get());
    if (auto owner = listener_.lock())
        owner->forget(this);
}

} // namespace zon
