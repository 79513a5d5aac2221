#pragma once

// One connection accepted by a message port's listener. It lives on the port's loop thread:
// it reads requests, hands them to the port's handler one at a time and writes the replies back
// in order. While the budget of partial messages is spent it stops reading, as a sender on a full
// socket waits; a message that makes no progress for the listener's stall limit closes it, and so
// does running out of memory while reading (logged; the port keeps serving the others).
// close() from another thread only shuts the socket down and unregisters it; the descriptor
// closes with the last reference, so a callback still running never reads a number that was
// closed and reused.

#include "platform/io/MessageFrameInternal.h"
#include "platform/system/FileDescriptor.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Timer.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>

namespace zon {

class MessagePortListener;

class MessagePortConnection : public std::enable_shared_from_this<MessagePortConnection> {
public:
    MessagePortConnection(std::weak_ptr<MessagePortListener> listener, FileDescriptor socket, size_t prefixLength);

    // Starts (or changes) what the loop watches the socket for; false when it cannot.
    bool watch(uint32_t events);
    void close();
    // When the peer last sent something (or connected); loop thread only.
    std::chrono::steady_clock::time_point lastActive() const { return lastActive_; }

private:
    void onEvents(uint32_t events);
    void serve(uint32_t events);
    // Answers true when the peer closed its end.
    bool readAvailable();
    void pauseReading();
    void watchForStall();
    void checkStall();
    void dispatchFrames();
    void queueReply(const MessageFrameHeader& request, MessagePortMessage reply);
    bool flush();

    const std::weak_ptr<MessagePortListener> listener_;
    const FileDescriptor socket_;
    MessageFrameReader reader_;
    std::deque<MessageFrameWrite> pending_;
    uint32_t watching_ = 0; // the events source_ waits for
    std::chrono::steady_clock::time_point lastActive_ = std::chrono::steady_clock::now();
    bool paused_ = false; // waiting for room in the budget
    Ref<Timer> stallTimer_;

    std::mutex mutex_; // guards source_, stallTimer_, and closed_'s change
    RunLoopSource source_;
    std::atomic<bool> closed_ {false};
};

} // namespace zon
