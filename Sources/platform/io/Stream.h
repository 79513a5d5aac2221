#pragma once

// The common ground of byte streams: status, error, delegate, run-loop scheduling, properties, and
// the events a scheduled stream posts to its client and delegate. Run-time class NSStream.
//
// Contract:
// - A stream is driven from one thread at a time. Events are posted, never called out from the
//   operation that raised them: they go to the run loop the stream is scheduled on, in its modes,
//   and reach the client (for the events in its mask) and then the delegate
//   ("stream:handleEvent:", the stream and the event as a number).
// - Events are coalesced: an event raised again before it was delivered is delivered once. Delivery
//   is never re-entrant: an event raised while this stream's own callback runs (also during a
//   nested run of the loop inside that callback) is delivered after the callback returns.
// - A stream that is not scheduled keeps its events until it is scheduled; a closed stream
//   delivers none. The stream stays alive while its callback runs, even when the callback drops
//   the last reference to it.
// - Other threads may raise events on a stream (the two ends of a bound pair may live on two
//   threads); the event state is locked for that.

#include "platform/runtime/Object.h"
#include "platform/runtime/WeakRef.h"
#include "platform/system/SystemResult.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace zon {

class Error;
class MutableDictionary;
class RunLoop;
class String;

// NSStreamStatus, numbered as the platform numbers it.
enum NSStreamStatus : long {
    NSStreamStatusNotOpen = 0,
    NSStreamStatusOpening = 1,
    NSStreamStatusOpen = 2,
    NSStreamStatusReading = 3,
    NSStreamStatusWriting = 4,
    NSStreamStatusAtEnd = 5,
    NSStreamStatusClosed = 6,
    NSStreamStatusError = 7,
};

// NSStreamEvent: the bits of a client's event mask and the events delivered.
enum NSStreamEvent : uint32_t {
    NSStreamEventNone = 0,
    NSStreamEventOpenCompleted = 1,
    NSStreamEventHasBytesAvailable = 2,
    NSStreamEventHasSpaceAvailable = 4,
    NSStreamEventErrorOccurred = 8,
    NSStreamEventEndEncountered = 16,
};

// The property key of a file stream's offset: "kCFStreamPropertyFileCurrentOffset".
ZON_EXPORT extern String* const NSStreamFileCurrentOffsetKey;

class Stream;
// A client callback (CFReadStreamSetClient): the stream and the one event delivered.
using StreamClientCallback = std::function<void(Stream* stream, NSStreamEvent event)>;

class ZON_EXPORT Stream : public Object {
    ZON_OBJECT(Stream, Object)
public:
    // Opening posts the open event (and whatever the stream can already do); opening a stream that
    // is not in status NotOpen does nothing.
    virtual void open();
    // Closes for good: status Closed, no more events.
    virtual void close();
    virtual long streamStatus() const;
    // The error that put the stream in status Error; nil otherwise.
    virtual Ref<Error> streamError() const;

    // The delegate is held weakly; nil makes the stream its own delegate, as the platform does,
    // which handles no events.
    virtual Ref<Object> delegate() const;
    virtual void setDelegate(Object* delegate);

    // Events are posted to one run loop, in each mode the stream is scheduled in; scheduling on a
    // second loop moves the stream there. Removing the last mode unschedules it.
    virtual void scheduleInRunLoop_forMode(RunLoop* loop, String* mode);
    virtual void removeFromRunLoop_forMode(RunLoop* loop, String* mode);

    // Properties: a plain table unless a stream kind knows the key (a file stream's offset).
    virtual Ref<Object> propertyForKey(String* key) const;
    virtual bool setProperty_forKey(Object* property, String* key);

    // Sets the client that receives the events in mask; a null callback or a zero mask removes
    // it. Answers true, as the platform does for streams that support clients.
    bool setClient(uint32_t mask, StreamClientCallback callback);

    ~Stream() override;

protected:
    Stream();

    // Raises event: coalesced, delivered later on the scheduled loop (see the contract above).
    // Pending events in withdrawn are dropped first (has-space once the other end is gone).
    void postEvent(NSStreamEvent event, uint32_t withdrawn = 0);
    void setStatus(long status);
    // Status Error with error, and the error event.
    void failWithError(Ref<Error> error);
    // The same with an error of NSCocoaErrorDomain whose code is the system's error number and
    // whose description is the failure's text ("write: Broken pipe").
    void failWithSystemError(const SystemError& error);
    bool isOpenForIO() const;

private:
    void deliverPendingEvents();
    void requestDelivery(std::unique_lock<std::mutex>& lock);
    void deliver(NSStreamEvent event);

    mutable std::mutex eventMutex_;
    uint32_t pendingEvents_ = 0;
    bool deliveryQueued_ = false;
    bool inCallback_ = false;
    Ref<RunLoop> loop_;
    std::vector<Ref<String>> modes_;

    WeakRef<Stream> weakSelf_; // made on the first post
    std::atomic<long> status_ {NSStreamStatusNotOpen};
    Ref<Error> error_;
    WeakRef<Object> delegate_;
    uint32_t clientMask_ = 0;
    StreamClientCallback client_;
    Ref<MutableDictionary> properties_;
};

} // namespace zon
