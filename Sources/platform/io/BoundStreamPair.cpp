#include "platform/io/BoundStreamPair.h"

#include "platform/runtime/Class.h"
#include "platform/values/AssertionHandler.h"

#include <algorithm>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>

namespace zon {

namespace {

class BoundReadStream;
class BoundWriteStream;

// The state both ends share. The ends find each other through weak references, so either end may
// go first.
struct PairBuffer {
    explicit PairBuffer(size_t size) : bytes(std::make_unique<uint8_t[]>(size)), capacity(size) {}

    // Copies up to count bytes in; answers how many fit.
    size_t put(const uint8_t* source, size_t count)
    {
        count = std::min(count, capacity - size);
        const size_t tail = (head + size) % capacity;
        const size_t first = std::min(count, capacity - tail);
        std::memcpy(bytes.get() + tail, source, first);
        std::memcpy(bytes.get(), source + first, count - first);
        size += count;
        return count;
    }

    size_t take(uint8_t* target, size_t count)
    {
        count = std::min(count, size);
        const size_t first = std::min(count, capacity - head);
        std::memcpy(target, bytes.get() + head, first);
        std::memcpy(target + first, bytes.get(), count - first);
        head = (head + count) % capacity;
        size -= count;
        return count;
    }

    std::mutex mutex;
    std::condition_variable readable;
    std::unique_ptr<uint8_t[]> bytes;
    const size_t capacity;
    size_t head = 0;
    size_t size = 0;
    bool writerClosed = false;
    bool readerClosed = false;
    WeakRef<BoundReadStream> reader;
    WeakRef<BoundWriteStream> writer;
};

// One end; raise() lets the other end post events and set the status of this one.
template <class Base>
class BoundEnd : public Base {
public:
    void raise(NSStreamEvent event, long status)
    {
        if (!this->isOpenForIO())
            return;
        if (status >= 0)
            this->setStatus(status);
        // At its end an end can neither read nor write: what it was told before is void.
        const uint32_t withdrawn = event == NSStreamEventEndEncountered
            ? NSStreamEventHasBytesAvailable | NSStreamEventHasSpaceAvailable
            : 0;
        this->postEvent(event, withdrawn);
    }

protected:
    explicit BoundEnd(std::shared_ptr<PairBuffer> buffer) : buffer_(std::move(buffer)) {}
    std::shared_ptr<PairBuffer> buffer_;
};

class BoundReadStream final : public BoundEnd<InputStream> {
    ZON_OBJECT(BoundReadStream, InputStream)
public:
    void open() override;
    void close() override;
    long read_maxLength(uint8_t* buffer, size_t maxLength) override;
    bool hasBytesAvailable() const override
    {
        std::lock_guard lock(buffer_->mutex);
        return isOpenForIO() && buffer_->size > 0;
    }

private:
    using BoundEnd::BoundEnd;
};

class BoundWriteStream final : public BoundEnd<OutputStream> {
    ZON_OBJECT(BoundWriteStream, OutputStream)
public:
    void open() override;
    void close() override;
    long write_maxLength(const uint8_t* buffer, size_t maxLength) override;
    bool hasSpaceAvailable() const override
    {
        std::lock_guard lock(buffer_->mutex);
        return streamStatus() == NSStreamStatusOpen && buffer_->size < buffer_->capacity;
    }

private:
    using BoundEnd::BoundEnd;
};

ZON_DEFINE_CLASS(BoundReadStream, "__NSCFInputStream")
ZON_DEFINE_CLASS(BoundWriteStream, "__NSCFOutputStream")

void BoundReadStream::open()
{
    if (streamStatus() != NSStreamStatusNotOpen)
        return;
    InputStream::open();
    std::unique_lock lock(buffer_->mutex);
    const bool hasBytes = buffer_->size > 0;
    const bool atEnd = !hasBytes && buffer_->writerClosed;
    lock.unlock();
    if (hasBytes)
        raise(NSStreamEventHasBytesAvailable, -1);
    else if (atEnd)
        raise(NSStreamEventEndEncountered, NSStreamStatusAtEnd);
}

void BoundReadStream::close()
{
    if (streamStatus() == NSStreamStatusClosed)
        return;
    InputStream::close();
    std::unique_lock lock(buffer_->mutex);
    buffer_->readerClosed = true;
    buffer_->readable.notify_all();
    Ref<BoundWriteStream> writer = buffer_->writer.load();
    lock.unlock();
    if (writer)
        writer->raise(NSStreamEventEndEncountered, NSStreamStatusAtEnd);
}

long BoundReadStream::read_maxLength(uint8_t* target, size_t maxLength)
{
    if (!isOpenForIO())
        return -1;
    std::unique_lock lock(buffer_->mutex);
    if (maxLength > 0)
        buffer_->readable.wait(lock, [&] { return buffer_->size > 0 || buffer_->writerClosed || buffer_->readerClosed; });
    const size_t count = buffer_->take(target, std::min(maxLength, size_t {LONG_MAX}));
    const bool bytesLeft = buffer_->size > 0;
    const bool atEnd = !bytesLeft && buffer_->writerClosed;
    Ref<BoundWriteStream> writer = count ? buffer_->writer.load() : nullptr;
    lock.unlock();
    if (writer)
        writer->raise(NSStreamEventHasSpaceAvailable, -1);
    if (bytesLeft)
        raise(NSStreamEventHasBytesAvailable, -1);
    else if (atEnd)
        raise(NSStreamEventEndEncountered, NSStreamStatusAtEnd);
    return static_cast<long>(count);
}

void BoundWriteStream::open()
{
    if (streamStatus() != NSStreamStatusNotOpen)
        return;
    OutputStream::open();
    std::unique_lock lock(buffer_->mutex);
    const bool readerClosed = buffer_->readerClosed;
    const bool hasSpace = buffer_->size < buffer_->capacity;
    lock.unlock();
    if (readerClosed)
        raise(NSStreamEventEndEncountered, NSStreamStatusAtEnd);
    else if (hasSpace)
        raise(NSStreamEventHasSpaceAvailable, -1);
}

void BoundWriteStream::close()
{
    if (streamStatus() == NSStreamStatusClosed)
        return;
    OutputStream::close();
    std::unique_lock lock(buffer_->mutex);
    buffer_->writerClosed = true;
    buffer_->readable.notify_all();
    const bool drained = buffer_->size == 0;
    Ref<BoundReadStream> reader = drained ? buffer_->reader.load() : nullptr;
    lock.unlock();
    if (reader)
        reader->raise(NSStreamEventEndEncountered, NSStreamStatusAtEnd);
}

long BoundWriteStream::write_maxLength(const uint8_t* source, size_t maxLength)
{
    const long status = streamStatus();
    if (status != NSStreamStatusOpen && status != NSStreamStatusAtEnd)
        return -1;
    std::unique_lock lock(buffer_->mutex);
    if (buffer_->readerClosed) {
        lock.unlock();
        failWithSystemError({EPIPE, "write", {}});
        return -1;
    }
    const size_t count = buffer_->put(source, std::min(maxLength, size_t {LONG_MAX}));
    const bool spaceLeft = buffer_->size < buffer_->capacity;
    if (count)
        buffer_->readable.notify_one();
    Ref<BoundReadStream> reader = count ? buffer_->reader.load() : nullptr;
    lock.unlock();
    if (reader)
        reader->raise(NSStreamEventHasBytesAvailable, -1);
    if (count && spaceLeft)
        raise(NSStreamEventHasSpaceAvailable, -1);
    return static_cast<long>(count);
}

} // namespace

BoundStreamPair createBoundStreamPair(size_t bufferSize)
{
    ZON_ASSERT(bufferSize > 0, "A bound stream pair needs a buffer of at least one byte");
    auto buffer = std::make_shared<PairBuffer>(bufferSize);
    Ref<BoundReadStream> reader = makeObject<BoundReadStream>(buffer);
    Ref<BoundWriteStream> writer = makeObject<BoundWriteStream>(buffer);
    buffer->reader = WeakRef<BoundReadStream>(reader);
    buffer->writer = WeakRef<BoundWriteStream>(writer);
    return {std::move(reader), std::move(writer)};
}

} // namespace zon
