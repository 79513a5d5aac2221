#pragma once

// The sending end of a message port: one connected socket to a published port, shared by every
// thread that sends through it.
//
// Messages queue whole, in the order their senders reach the link, and are written without
// blocking; a sender whose message does not fit the socket runs its run loop until there is room.
// A sender that wants a reply is entered among the waiters before its message goes out, then runs
// its loop in its reply mode until the reply with its request id is delivered to it. Replies are
// read by whichever thread's loop watches the socket in the mode it runs: the waiter's own, or one
// whose wait encloses it.

#include "platform/io/MessageFrameInternal.h"
#include "platform/io/MessagePort.h"
#include "platform/runtime/Ref.h"
#include "platform/system/FileDescriptor.h"
#include "platform/threads/RunLoop.h"

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace zon {

class MessagePortLink : public std::enable_shared_from_this<MessagePortLink> {
public:
    MessagePortLink(FileDescriptor socket, size_t replyPrefixLength);
    ~MessagePortLink();

    MessagePortResult send(MessagePortRequest request);
    bool isValid() const;
    // Reads the replies that have arrived, then closes the link; idempotent, any thread.
    void invalidate();

private:
    struct Waiter {
        uint32_t requestId;
        RunLoop* loop;
        String* mode;
        std::atomic<bool> done {false}; // a reply came, or the link died (invalid)
        bool invalid = false;
        MessagePortMessage reply;
    };
    // This link's socket watched by one thread's loop in one mode, for replies.
    struct Registration {
        Ref<RunLoop> loop;
        Ref<String> mode;
        RunLoopSource source;
    };
    struct WaitScope;

    // Writes one message, entering waiter (when there is one) among those expecting a reply first.
    MessagePortStatus write(const MessageFrameHeader& header, MessagePortMessage&& message,
        MessagePortSeconds sendTimeout, String* waitMode, Waiter* waiter);
    MessagePortStatus waitForRoom(const std::shared_ptr<MessageFrameWrite>& frame, MessagePortSeconds sendTimeout,
        String* waitMode);
    MessagePortStatus waitForReply(Waiter& waiter, MessagePortSeconds timeout);
    void forget(const Waiter* waiter);
    void flushLocked();
    bool watchFromCurrentThread(RunLoop* loop, String* mode);
    void readReplies();
    void readRepliesLocked();
    void deliverRepliesLocked();
    void markDeadLocked();

    static thread_local std::vector<Waiter*> waitStack_; // the waits of this thread, innermost last

    const FileDescriptor socket_;
    std::atomic<uint32_t> nextRequestId_ {1};

    mutable std::mutex mutex_; // guards what follows
    bool dead_ = false;
    std::deque<std::shared_ptr<MessageFrameWrite>> outgoing_;
    MessageFrameReader reader_;
    std::vector<Waiter*> waiters_; // a few at a time: one per thread waiting, plus nested waits
    std::vector<Registration> registrations_;
};

} // namespace zon
