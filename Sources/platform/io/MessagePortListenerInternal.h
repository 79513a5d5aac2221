#pragma once

// The receiving end of a message port: the published name, its listening socket and the
// connections accepted on it.
//
// The listener holds the name's lock file for as long as it lives, so a name belongs to one live
// process. Connections are accepted and served on the run loop the port was scheduled in; only
// peers of the same user are kept. invalidate() may come from any thread: it removes the name
// first, so nobody connects to a port that is going away, then closes every connection.

#include "platform/io/MessagePort.h"
#include "platform/io/MessagePortDirectory.h"
#include "platform/runtime/Ref.h"
#include "platform/system/FileDescriptor.h"
#include "platform/threads/RunLoop.h"

#include <atomic>
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
    MessagePortMessage handle(MessagePort* port, int32_t messageId, MessagePortMessage request) const
    {
        return handler_(port, messageId, std::move(request));
    }

    bool schedule(RunLoop* loop, String* mode);
    bool isValid() const;
    void invalidate();
    void forget(MessagePortConnection* connection);

private:
    MessagePortListener(Ref<String> name, size_t prefixLength, MessagePort::RequestHandler handler);
    void acceptPending();

    const Ref<String> name_;
    const size_t prefixLength_;
    const MessagePort::RequestHandler handler_;
    MessagePortPaths paths_;
    FileDescriptor lock_;
    std::shared_ptr<FileDescriptor> socket_; // shared with the accept callback that may be running
    std::atomic<MessagePort*> port_ {nullptr}; // cleared, under mutex_, by invalidate

    mutable std::mutex mutex_; // guards what follows
    bool valid_ = true;
    bool scheduled_ = false;
    Ref<RunLoop> loop_;
    Ref<String> mode_;
    RunLoopSource listenSource_;
    std::vector<std::shared_ptr<MessagePortConnection>> connections_;
};

} // namespace zon
