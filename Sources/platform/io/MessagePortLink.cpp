#include "platform/io/MessagePortLinkInternal.h"

#include "logger/ZonLog.h"
#include "platform/system/SocketCallsInternal.h"
#include "platform/threads/RunLoopModes.h"
#include "platform/threads/Thread.h"
#include "platform/values/String.h"

#include <algorithm>
#include <chrono>

namespace zon {

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point deadlineAfter(MessagePortSeconds timeout)
{
    if (!(timeout.count() > 0))
        return Clock::now();
    // About 30 years stands for "forever" without overflowing the clock.
    const auto limited = std::min(timeout, MessagePortSeconds(1e9));
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(limited);
}

std::chrono::milliseconds millisecondsUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return std::max(left, std::chrono::milliseconds(1));
}

} // namespace

thread_local std::vector<MessagePortLink::Waiter*> MessagePortLink::waitStack_;

MessagePortLink::MessagePortLink(FileDescriptor socket, size_t replyPrefixLength)
    : socket_(std::move(socket))
    , reader_(kMessageFrameMaxLength, replyPrefixLength)
{
}

MessagePortLink::~MessagePortLink() { invalidate(); }

bool MessagePortLink::isValid() const
{
    std::lock_guard lock(mutex_);
    return !dead_;
}

// The waiter leaves the table, and the thread's wait stack, on every way out, exceptions from a
// nested callback included.
struct MessagePortLink::WaitScope {
    WaitScope(MessagePortLink& link, Waiter& waiter) : link(link), waiter(waiter) {}
    ~WaitScope()
    {
        link.forget(&waiter);
        if (!pushed)
            return;
        waitStack_.pop_back();
        // A reply read inside this wait may have been the one an enclosing wait on this thread
        // expects. The run of that wait returns by itself when the callback that led here was a
        // source or a block; after a timer's it would sleep on, so it is stopped.
        if (!waitStack_.empty() && waitStack_.back()->done)
            waiter.loop->stop();
    }
    void push()
    {
        waitStack_.push_back(&waiter);
        pushed = true;
    }
    MessagePortLink& link;
    Waiter& waiter;
    bool pushed = false;
};

MessagePortResult MessagePortLink::send(MessagePortRequest request)
{
    if (request.message.length() > kMessagePortMaxLength)
        return {MessagePortStatus::TransportError, {}};
    MessageFrameHeader header;
    header.length = static_cast<uint32_t>(request.message.length());
    header.messageId = request.messageId;
    const MessagePortReplyWait wait = request.reply;
    // Nothing answers a one-way message, so it needs no request id.
    if (!wait.isWanted()) {
        auto status = write(header, std::move(request.message), request.sendTimeout, NSDefaultRunLoopMode, nullptr);
        return {status, {}};
    }
    header.requestId = nextRequestId_.fetch_add(1, std::memory_order_relaxed);
    header.flags = MessageFrameReplyWanted;

    RunLoop* loop = RunLoop::currentRunLoop();
    Waiter waiter {header.requestId, loop, wait.mode};
    WaitScope scope(*this, waiter);
    // The body is let go of once written: a large message is freed before the reply is read.
    auto status = write(header, std::move(request.message), request.sendTimeout, wait.mode, &waiter);
    if (status != MessagePortStatus::Success)
        return {status, {}};
    if (!watchFromCurrentThread(loop, wait.mode)) {
        std::lock_guard lock(mutex_);
        return {dead_ ? MessagePortStatus::IsInvalid : MessagePortStatus::TransportError, {}};
    }
    scope.push();
    status = waitForReply(waiter, wait.timeout);
    if (status != MessagePortStatus::Success)
        return {status, {}};
    return {status, std::move(waiter.reply)};
}

MessagePortStatus MessagePortLink::waitForReply(Waiter& waiter, MessagePortSeconds timeout)
{
    const auto deadline = deadlineAfter(timeout);
    for (;;) {
        {
            std::lock_guard lock(mutex_);
            if (waiter.invalid)
                return MessagePortStatus::IsInvalid;
            if (waiter.done)
                return MessagePortStatus::Success;
        }
        const auto now = Clock::now();
        if (now >= deadline)
            return MessagePortStatus::ReceiveTimeout;
        waiter.loop->runInMode(waiter.mode, deadline - now, true);
    }
}

void MessagePortLink::flushLocked()
{
    // Messages that queued up while the socket was full go out several to a system call.
    constexpr size_t kFramesPerWrite = 32;
    while (!dead_ && !outgoing_.empty()) {
        iovec parts[2 * kFramesPerWrite];
        size_t count = 0, frames = 0;
        for (auto it = outgoing_.begin(); it != outgoing_.end() && frames < kFramesPerWrite; ++it, ++frames)
            count += (*it)->unwrittenParts(parts + count);
        auto sent = sendParts(socket_.get(), {parts, count});
        if (!sent) {
            markDeadLocked();
            return;
        }
        if (sent.value() == 0)
            return;
        for (size_t left = sent.value(); left > 0;) {
            MessageFrameWrite& frame = *outgoing_.front();
            const size_t taken = std::min(left, frame.length() - frame.written);
            frame.written += taken;
            left -= taken;
            if (frame.isDone())
                outgoing_.pop_front();
        }
    }
}

MessagePortStatus MessagePortLink::write(const MessageFrameHeader& header, MessagePortMessage&& message,
    MessagePortSeconds sendTimeout, String* waitMode, Waiter* waiter)
{
    MessageFrameWrite direct {MessageFrameLead(header, message.prefixBytes()), std::move(message.body)};
    std::shared_ptr<MessageFrameWrite> frame;
    {
        std::lock_guard lock(mutex_);
        if (dead_)
            return MessagePortStatus::IsInvalid;
        if (waiter)
            waiters_.push_back(waiter);
        // With nothing queued ahead the message is written from here, and only what does not fit
        // is queued: most messages never leave the stack.
        if (outgoing_.empty()) {
            iovec parts[2];
            auto sent = sendParts(socket_.get(), {parts, direct.unwrittenParts(parts)});
            if (!sent) {
                markDeadLocked();
                return MessagePortStatus::IsInvalid;
            }
            direct.written = sent.value();
            if (direct.isDone())
                return MessagePortStatus::Success;
        }
        frame = std::make_shared<MessageFrameWrite>(std::move(direct));
        outgoing_.push_back(frame);
        flushLocked();
        if (frame->isDone())
            return MessagePortStatus::Success;
        if (dead_)
            return MessagePortStatus::IsInvalid;
    }
    return waitForRoom(frame, sendTimeout, waitMode);
}

// The socket is full. Whoever waits for room on this link writes the queue on in order; this
// thread's loop keeps serving requests meanwhile, so two peers writing large messages to each
// other both make progress.
MessagePortStatus MessagePortLink::waitForRoom(
    const std::shared_ptr<MessageFrameWrite>& frame, MessagePortSeconds sendTimeout, String* waitMode)
{
    const auto deadline = deadlineAfter(sendTimeout);
    RunLoop* loop = RunLoop::currentRunLoop();
    // The loop may already watch the socket in this mode (for replies): a duplicate descriptor is
    // a separate registration.
    auto watched = socket_.duplicate();
    std::weak_ptr<MessagePortLink> weak = weak_from_this();
    RunLoopSource source;
    if (watched)
        source = loop->addSource(
            watched.value().get(), RunLoopSourceWritable,
            [weak](uint32_t) {
                if (auto self = weak.lock()) {
                    std::lock_guard lock(self->mutex_);
                    self->flushLocked();
                }
            },
            {waitMode});
    for (;;) {
        {
            std::lock_guard lock(mutex_);
            if (frame->isDone())
                return MessagePortStatus::Success;
            if (dead_)
                return MessagePortStatus::IsInvalid;
            if (Clock::now() >= deadline) {
                // A message nobody started is taken back; one cut short stays queued, since the
                // stream must carry it whole, and is finished by the link's next writer.
                if (frame->written == 0)
                    std::erase(outgoing_, frame);
                return MessagePortStatus::SendTimeout;
            }
        }
        if (source) {
            loop->runInMode(waitMode, deadline - Clock::now(), true);
        } else {
            (void)waitUntilWritable(socket_.get(), millisecondsUntil(deadline));
            std::lock_guard lock(mutex_);
            flushLocked();
        }
    }
}

bool MessagePortLink::watchFromCurrentThread(RunLoop* loop, String* mode)
{
    std::lock_guard lock(mutex_);
    if (dead_)
        return false;
    // Loops of threads that ended no longer serve anything.
    std::erase_if(registrations_, [](Registration& r) { return !r.source.isValid() || !r.loop->thread(); });
    for (auto& registration : registrations_)
        if (registration.loop.get() == loop && registration.mode->isEqual(mode))
            return true;
    std::weak_ptr<MessagePortLink> weak = weak_from_this();
    RunLoopSource source = loop->addSource(
        socket_.get(), RunLoopSourceReadable,
        [weak](uint32_t) {
            if (auto self = weak.lock())
                self->readReplies();
        },
        {mode});
    if (!source)
        return false;
    registrations_.push_back({Ref<RunLoop>(loop), Ref<String>(mode), std::move(source)});
    return true;
}

void MessagePortLink::readReplies()
{
    std::lock_guard lock(mutex_);
    try {
        readRepliesLocked();
    } catch (const std::bad_alloc&) {
        // A reply too large for the memory left ends this link, not the run loop that read it.
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
            "Message port link closed: out of memory while reading a reply");
        markDeadLocked();
    }
}

void MessagePortLink::readRepliesLocked()
{
    if (dead_)
        return;
    const auto outcome = reader_.readAvailable(socket_.get());
    if (outcome == MessageFrameReader::ReadOutcome::Refused) {
        markDeadLocked();
        return;
    }
    deliverRepliesLocked(); // replies read before an end still reach their senders
    if (outcome == MessageFrameReader::ReadOutcome::Ended)
        markDeadLocked();
}

void MessagePortLink::deliverRepliesLocked()
{
    while (reader_.hasFrame()) {
        MessageFrame frame = reader_.takeFrame();
        auto it = std::find_if(
            waiters_.begin(), waiters_.end(), [&](Waiter* w) { return w->requestId == frame.header.requestId; });
        if (!(frame.header.flags & MessageFrameIsReply) || it == waiters_.end())
            continue; // a reply that came after its sender stopped waiting
        Waiter* waiter = *it;
        waiters_.erase(it);
        waiter->reply = messageOfFrame(std::move(frame), EmptyPayload::Nil);
        waiter->done = true;
        // The waiting thread may be asleep in its own loop: a block ends its wait. On this thread
        // the run that reads is the waiter's own, or one nested in it (see send).
        if (waiter->loop != RunLoop::currentRunLoop())
            waiter->loop->performBlock({waiter->mode}, [] {});
    }
}

void MessagePortLink::markDeadLocked()
{
    if (dead_)
        return;
    dead_ = true;
    (void)shutdownSocket(socket_.get());
    // A closed socket reads as ready forever; nobody may keep watching it.
    for (auto& registration : registrations_)
        registration.source.invalidate();
    for (Waiter* waiter : waiters_) {
        waiter->invalid = true;
        waiter->done = true;
        if (waiter->loop != RunLoop::currentRunLoop())
            waiter->loop->performBlock({waiter->mode}, [] {});
    }
    waiters_.clear();
    outgoing_.clear();
}

void MessagePortLink::forget(const Waiter* waiter)
{
    std::lock_guard lock(mutex_);
    std::erase(waiters_, waiter);
}

void MessagePortLink::invalidate()
{
    std::vector<Registration> dropped; // released outside the lock
    std::lock_guard lock(mutex_);
    // A reply that has already arrived still reaches its sender: the peer may answer and then
    // disconnect, and its disconnect can be handled here before the reply has been read.
    readRepliesLocked();
    markDeadLocked();
    dropped.swap(registrations_);
}

} // namespace zon
