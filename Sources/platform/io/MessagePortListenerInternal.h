#pragma once

// The receiving end of a message port: the published name, its listening socket and the
// connections accepted on it.
//
// The listener holds the name's lock file for as long as it lives, so a name belongs to one live
// process. Connections are accepted and served on the run loop the port was scheduled in; only
// peers of the same user are kept. invalidate() may come from any thread: it removes the name
// first, so nobody connects to a port that is going away, then closes every connection.
//
// Descriptors are kept in reserve: the connections of all listeners of a process together stay
// below the process's descriptor limit by an eighth of it (at least 64), so that connecting back
// to a client and file work still find descriptors. A connection beyond that replaces the one
// that has been idle longest. When accepting fails for want of descriptors all the same, the
// listener stops watching its socket for a tenth of a second instead of spinning. Each event
// logs a line; the Logger's repeat filter turns a run of them into a count.

#include "platform/io/MessagePort.h"
#include "platform/io/MessagePortDirectory.h"
#include "platform/runtime/Ref.h"
#include "platform/system/FileDescriptor.h"
#include "platform/threads/RunLoop.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

namespace zon {

class MessagePortConnection;

class MessagePortListener : public std::enable_shared_from_this<MessagePortListener> {
public:
    // Takes the name and listens on its socket; nil (with a log line where the reason is not
    // simply a live holder) when it cannot.
    static std::shared_ptr<MessagePortListener> publish(
        String* name, size_t prefixLength, MessagePort::RequestHandler handler);
    ~MessagePortListener();

    // The port that hands requests out, while it is valid.
    void attach(MessagePort* port) { port_ = port; }
    MessagePort* port() const { return port_.load(std::memory_order_acquire); }
    String* name() const { return name_.get(); }
    RunLoop* loop() const { return loop_.get(); }
    String* mode() const { return mode_.get(); }
    size_t prefixLength() const { return prefixLength_; }
    MessagePortMessage handle(MessagePort* port, int32_t messageId, MessagePortMessage request, bool replyWanted) const
    {
        return handler_(port, messageId, std::move(request), replyWanted);
    }

    bool schedule(RunLoop* loop, String* mode);
    // How long a message may make no progress before its connection is closed.
    std::chrono::steady_clock::duration stallLimit() const { return std::chrono::nanoseconds(stallLimit_.load()); }
    void setStallLimit(std::chrono::steady_clock::duration limit)
    {
        stallLimit_ = std::chrono::duration_cast<std::chrono::nanoseconds>(limit).count();
    }
    // How many connections all listeners of this process may hold together.
    static size_t connectionLimit();
    bool isValid() const;
    void invalidate();
    void forget(MessagePortConnection* connection);

private:
    MessagePortListener(Ref<String> name, size_t prefixLength, MessagePort::RequestHandler handler);
    void acceptPending();
    bool watchSocketLocked();
    void pauseAccepting();
    // Makes room for one more connection by closing the one idle longest; false when none can go.
    bool closeIdlestConnection();

    const Ref<String> name_;
    const size_t prefixLength_;
    const MessagePort::RequestHandler handler_;
    MessagePortPaths paths_;
    FileDescriptor lock_;
    std::shared_ptr<FileDescriptor> socket_; // shared with the accept callback that may be running
    std::atomic<MessagePort*> port_ {nullptr}; // cleared, under mutex_, by invalidate
    size_t connectionLimit_ = 0;
    std::atomic<int64_t> stallLimit_ {std::chrono::nanoseconds(std::chrono::seconds(200)).count()};

    mutable std::mutex mutex_; // guards what follows
    bool valid_ = true;
    bool scheduled_ = false;
    Ref<RunLoop> loop_;
    Ref<String> mode_;
    RunLoopSource listenSource_;
    std::vector<std::shared_ptr<MessagePortConnection>> connections_;
};

} // namespace zon
