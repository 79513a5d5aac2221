#pragma once

// Two streams joined by a ring buffer of exactly the size asked for: bytes written into the write
// end come out of the read end in order.
//
// - The write end takes what fits and answers the count; into a full buffer it answers 0 and never
//   blocks. Writing after the read end closed fails (-1, "write: Broken pipe", code EPIPE).
// - The read end delivers what is buffered. Reading an empty buffer while the write end is open
//   waits for bytes or the writer's close, as the platform's pair does, so a reader on the
//   writer's thread reads on has-bytes events only.
// - Events (Stream.h): the read end posts has-bytes after each write that put bytes in, and its
//   end event once the writer closed and the buffer is empty; the write end posts has-space after
//   each read that made room, and its end event when the read end closes first.
// - Each end may be used and scheduled on its own thread; the buffer is locked.

#include "platform/io/InputStream.h"

#include <cstddef>

namespace zon {

struct BoundStreamPair {
    Ref<InputStream> readStream;
    Ref<OutputStream> writeStream;
};

// A size of 0 fails through the assertion handler: "A bound stream pair needs a buffer of at least
// one byte".
ZON_EXPORT BoundStreamPair createBoundStreamPair(size_t bufferSize);

} // namespace zon
