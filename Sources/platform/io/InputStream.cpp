#include "platform/io/InputStream.h"

#include "platform/runtime/Class.h"
#include "platform/values/Data.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace zon {

ZON_DEFINE_CLASS(InputStream, "NSInputStream")
ZON_DEFINE_CLASS(OutputStream, "NSOutputStream")

bool InputStream::hasBytesAvailable() const { return streamStatus() == NSStreamStatusOpen; }

void InputStream::postEventsAfterRead(long count, bool atEnd)
{
    if (!isOpenForIO() || count < 0)
        return;
    if (atEnd) {
        setStatus(NSStreamStatusAtEnd);
        postEvent(NSStreamEventEndEncountered);
    } else {
        postEvent(NSStreamEventHasBytesAvailable);
    }
}

namespace {

class DataInputStream final : public InputStream {
    ZON_OBJECT(DataInputStream, InputStream)
public:
    void open() override
    {
        if (streamStatus() != NSStreamStatusNotOpen)
            return;
        InputStream::open();
        postEventsAfterRead(0, bytesLeft() == 0);
    }

    long read_maxLength(uint8_t* buffer, size_t maxLength) override
    {
        const size_t count = std::min({maxLength, bytesLeft(), size_t {LONG_MAX}});
        if (count) {
            std::memcpy(buffer, data_->span().data() + position_, count);
            position_ += count;
        }
        postEventsAfterRead(static_cast<long>(count), bytesLeft() == 0);
        return static_cast<long>(count);
    }

    bool hasBytesAvailable() const override
    {
        const long status = streamStatus();
        return status != NSStreamStatusClosed && status != NSStreamStatusError && bytesLeft() > 0;
    }

private:
    explicit DataInputStream(const Data* data) : data_(const_cast<Data*>(data)) {}

    // A mutable data may have shrunk since the last read.
    size_t bytesLeft() const { return data_ && data_->length() > position_ ? data_->length() - position_ : 0; }

    Ref<Data> data_;
    size_t position_ = 0;
};

ZON_DEFINE_CLASS(DataInputStream, "NSDataInputStream")

} // namespace

Ref<InputStream> InputStream::inputStreamWithData(const Data* data) { return makeObject<DataInputStream>(data); }

} // namespace zon
