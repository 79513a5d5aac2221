#pragma once

#include "platform/io/Stream.h"

#include <cstddef>
#include <cstdint>

namespace zon {

class Data;
class String;

// A source of bytes read in order; run-time class NSInputStream. read_maxLength copies up to
// maxLength bytes into buffer and answers how many it delivered: 0 at the end, a negative count
// on an error (streamError says which). Readers must not assume a short count means the end: a
// stream may deliver less than asked at any time. A stream is used from one thread at a time.
//
// Scheduled and open, a stream posts has-bytes while it has something to read (again after each
// read that did not reach the end) and the end event when a read reached the end.
class ZON_EXPORT InputStream : public Stream {
    ZON_OBJECT(InputStream, Stream)
public:
    // A stream over the bytes of data (held, not copied); nil data reads as empty. It reads also
    // before it is opened, which the codec readers rely on.
    static Ref<InputStream> inputStreamWithData(const Data* data);
    // A stream over the file at path, opened by open(): a file that cannot be opened puts it in
    // status Error with an error of NSCocoaErrorDomain whose code is the system's error number and
    // whose description says what failed ("open: No such file or directory"). Reads before open
    // answer -1. Nil for a nil path.
    static Ref<InputStream> inputStreamWithFileAtPath(const String* path);

    virtual long read_maxLength(uint8_t* buffer, size_t maxLength) = 0;
    // Whether a read may deliver bytes now: true for an open stream not known to be at its end.
    virtual bool hasBytesAvailable() const;

protected:
    InputStream() = default;
    // After a read of count bytes by an open stream: the end event at the end, else has-bytes.
    void postEventsAfterRead(long count, bool atEnd);
};

// A sink of bytes written in order; run-time class NSOutputStream. write_maxLength takes up to
// maxLength bytes and answers how many it took: 0 when it can take nothing now, a negative count
// on an error.
class ZON_EXPORT OutputStream : public Stream {
    ZON_OBJECT(OutputStream, Stream)
public:
    virtual long write_maxLength(const uint8_t* buffer, size_t maxLength) = 0;
    virtual bool hasSpaceAvailable() const = 0;

protected:
    OutputStream() = default;
};

} // namespace zon
