#pragma once

// The frames that carry message-port requests and replies over a stream socket.
//
// A frame is a fixed 16-byte header followed by the message bytes:
//
//   offset 0  uint32  payload length in bytes (at most kMessageFrameMaxLength)
//   offset 4  uint32  request id: chosen by the sender of a request, echoed by its reply
//   offset 8  int32   message id given by the caller of the send (handed to the receiver as is)
//   offset 12 uint16  flags (MessageFrameFlag)
//   offset 14 uint16  kMessageFrameMagic
//
// Integers are in host byte order: both ends are processes of one machine. The magic and the
// unused flag bits let a reader drop a connection that carries something else at once.

#include "platform/io/MessagePort.h"
#include "platform/values/ByteVector.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <span>
#include <vector>
#include <sys/uio.h>

namespace zon {

// A frame that announces more than a port accepts closes the connection before anything is
// allocated for it.
inline constexpr uint32_t kMessageFrameMaxLength = kMessagePortMaxLength;
inline constexpr uint16_t kMessageFrameMagic = 0x5a43;
inline constexpr size_t kMessageFrameHeaderSize = 16;

enum MessageFrameFlag : uint16_t {
    MessageFrameReplyWanted = 1u << 0, // a request whose sender waits for a reply
    MessageFrameIsReply = 1u << 1,     // the reply to the request with the same request id; an
                                       // empty one says the receiver had nothing to answer
};
inline constexpr uint16_t kMessageFrameKnownFlags = MessageFrameReplyWanted | MessageFrameIsReply;

struct MessageFrameHeader {
    uint32_t length = 0;
    uint32_t requestId = 0;
    int32_t messageId = 0;
    uint16_t flags = 0;
};

ZON_EXPORT void encodeMessageFrameHeader(const MessageFrameHeader& header, uint8_t out[kMessageFrameHeaderSize]);

// What goes out before a message's body: the frame header, then the message's prefix.
struct MessageFrameLead {
    MessageFrameLead() = default;
    MessageFrameLead(const MessageFrameHeader& header, std::span<const uint8_t> prefix);

    std::span<const uint8_t> span() const { return {bytes, length}; }

    uint8_t bytes[kMessageFrameHeaderSize + kMessagePrefixMaxLength];
    uint8_t length = 0;
};

// A message being written: its lead, its body and how much of both is out. Only the first of a
// queue of these is ever partly written, so messages never interleave on the stream.
struct MessageFrameWrite {
    MessageFrameLead lead;
    HeldBytes body;
    size_t written = 0;

    size_t length() const { return lead.length + body.size(); }
    bool isDone() const { return written == length(); }
    // Adds the unwritten parts to parts (room for two); answers how many were added.
    size_t unwrittenParts(iovec* parts) const;
};

// One message: its first prefixLength bytes (when the reader was asked to split them off) and
// the rest. Splitting a short header off lets the rest become data of its own without a copy.
struct MessageFrame {
    MessageFrameHeader header;
    std::array<uint8_t, kMessagePrefixMaxLength> prefix {};
    uint8_t prefixLength = 0;
    ByteVector payload;
};

// What the partial messages of the readers that share it may hold together. A reader that would
// pass it stops reading until another one gives bytes back, as a sender waits on a full socket.
class ZON_EXPORT MessageFrameBudget {
public:
    explicit MessageFrameBudget(size_t limit) : limit_(limit) {}
    // The budget of every message port's incoming connections in this process: 512 MiB, twice
    // the largest message.
    static MessageFrameBudget& incoming();

    bool tryTake(size_t bytes);
    void giveBack(size_t bytes);
    // Calls wake once, on the thread that next gives bytes back (at once when some are free).
    void whenRoom(std::function<void()> wake);
    size_t held() const;
    size_t limit() const { return limit_; }

private:
    const size_t limit_;
    mutable std::mutex mutex_;
    size_t held_ = 0;
    std::vector<std::function<void()>> waiting_;
};

// What an empty payload becomes: a request always has a body; an empty reply says that the
// receiver answered nothing.
enum class EmptyPayload { Data, Nil };
// A received frame as a message: its prefix, and its payload as the body, without a copy.
MessagePortMessage messageOfFrame(MessageFrame&& frame, EmptyPayload empty);

// Reassembles frames from a byte stream that arrives in pieces of any size.
//
// Reads go into buffer(): a staging area for headers and small messages, or, once a large
// message's header is known, straight into that message's own storage, so big payloads are not
// copied twice. That storage grows with the bytes that arrive, not with the length a header
// announces, and with a budget it grows only as far as the budget allows. Complete frames queue
// up until takeFrame() hands them out; taking them one at a time lets a handler that runs the
// event loop again read more without disturbing the frames already waiting.
class ZON_EXPORT MessageFrameReader {
public:
    enum class Status {
        Ok,
        Corrupt, // bad magic or flags: the stream is not ours
        TooLong, // a frame announced more than kMessageFrameMaxLength
    };

    // Frames split off the first prefixLength bytes (at most kMessagePrefixMaxLength) of their
    // message into MessageFrame::prefix; a shorter message goes there whole.
    explicit MessageFrameReader(
        uint32_t maxLength = kMessageFrameMaxLength, size_t prefixLength = 0, MessageFrameBudget* budget = nullptr);
    ~MessageFrameReader();
    MessageFrameReader(const MessageFrameReader&) = delete;
    MessageFrameReader& operator=(const MessageFrameReader&) = delete;

    // Where the next read should put its bytes; empty only when the budget has no room for more.
    std::span<uint8_t> buffer();
    // Takes the first n bytes of the last buffer(). After an error the reader stays failed and
    // ignores further input.
    Status commit(size_t n);
    // Copies bytes in through buffer() and commit(): for callers that already hold the bytes.
    Status feed(std::span<const uint8_t> bytes);

    enum class ReadOutcome {
        Drained, // nothing more to read now; the event loop reports the descriptor again later
        Ended,   // the peer closed its end (or the read failed); frames read before stay takeable
        Refused, // the bytes are not frames: status() says why
        Starved, // the budget has no room for more: read again once it has (MessageFrameBudget::whenRoom)
    };
    // Reads what a non-blocking descriptor holds, through buffer() and commit(), until it is
    // drained or a frame is complete (frames are handed out before more is read).
    ReadOutcome readAvailable(int fd);

    Status status() const { return status_; }
    bool hasFrame() const { return !frames_.empty(); }
    // A message has begun and not ended.
    bool hasPartialFrame() const { return inPayload_ || end_ > begin_; }
    MessageFrame takeFrame();
    // The header of the frame that is being read when it failed with TooLong or Corrupt.
    const MessageFrameHeader& failedHeader() const { return failed_; }

private:
    static constexpr size_t kStagingSize = 64 * 1024;

    // The first storage of a payload; it grows fourfold from there as bytes arrive. A peer must
    // send a quarter of what it makes the reader hold, and every connection a process can keep
    // (see MessagePortListenerInternal.h) holding this much stays well inside the budget.
    // Fourfold keeps the copies of growing a 4 MiB message to a third of its size
    // (IPCBenchmarks' 4 MiB port and service rows).
    static constexpr size_t kFirstPayloadSize = 256 * 1024;

    Status parseStaging();
    // Makes room for more of the payload (up to four times as much, never past its length); false
    // when the budget has none.
    bool growPayload();
    void finishPayload();

    uint32_t maxLength_;
    size_t prefixLength_;
    MessageFrameBudget* budget_;
    size_t charged_ = 0; // what the payload being read holds of the budget
    Status status_ = Status::Ok;
    ByteVector staging_;
    size_t begin_ = 0; // unparsed bytes are staging_[begin_, end_)
    size_t end_ = 0;
    bool inPayload_ = false; // a header was read and its payload is being filled
    bool lastBufferWasPayload_ = false;
    MessageFrame current_;
    size_t expected_ = 0; // the payload length the header announced
    size_t filled_ = 0;
    MessageFrameHeader failed_;
    std::deque<MessageFrame> frames_;
};

} // namespace zon
