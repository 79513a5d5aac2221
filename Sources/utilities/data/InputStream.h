#pragma once

#include "platform/runtime/Object.h"

#include <cstddef>
#include <cstdint>

namespace zon {

class Data;

// A source of bytes read in order; run-time class NSInputStream. read_maxLength copies up to
// maxLength bytes into buffer and answers how many it delivered: 0 at the end, a negative count
// on an error. Readers must not assume a short count means the end: a stream may deliver less than
// asked at any time. A stream is used from one thread at a time.
class ZON_EXPORT InputStream : public Object {
    ZON_OBJECT(InputStream, Object)
public:
    // A stream over the bytes of data (held, not copied); nil data reads as empty.
    static Ref<InputStream> inputStreamWithData(const Data* data);

    virtual long read_maxLength(uint8_t* buffer, size_t maxLength) = 0;

protected:
    InputStream() = default;
};

} // namespace zon
