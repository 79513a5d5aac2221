#include "platform/io/Stream.h"

#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <bit>

namespace zon {

ZON_DEFINE_CLASS(Stream, "NSStream")
ZON_STRING_CONSTANT(NSStreamFileCurrentOffsetKey, "kCFStreamPropertyFileCurrentOffset");

Stream::Stream() = default;
Stream::~Stream() = default;

void Stream::open()
{
    long expected = NSStreamStatusNotOpen;
    if (status_.compare_exchange_strong(expected, NSStreamStatusOpen))
        postEvent(NSStreamEventOpenCompleted);
}

void Stream::close()
{
    status_.store(NSStreamStatusClosed);
    std::lock_guard lock(eventMutex_);
    pendingEvents_ = 0;
}

long Stream::streamStatus() const { return status_.load(); }

Ref<Error> Stream::streamError() const
{
    std::lock_guard lock(eventMutex_);
    return error_;
}

Ref<Object> Stream::delegate() const
{
    std::lock_guard lock(eventMutex_);
    return delegate_.load();
}

void Stream::setDelegate(Object* delegate)
{
    WeakRef<Object> weak(delegate);
    std::lock_guard lock(eventMutex_);
    std::swap(delegate_, weak);
}

void Stream::scheduleInRunLoop_forMode(RunLoop* loop, String* mode)
{
    if (!loop || !mode)
        return;
    std::unique_lock lock(eventMutex_);
    if (loop_.get() != loop) {
        loop_ = loop;
        modes_.clear();
    }
    for (const Ref<String>& scheduled : modes_)
        if (scheduled->isEqual(mode))
            return;
    modes_.emplace_back(mode);
    requestDelivery(lock);
}

void Stream::removeFromRunLoop_forMode(RunLoop* loop, String* mode)
{
    std::lock_guard lock(eventMutex_);
    if (!mode || loop_.get() != loop)
        return;
    std::erase_if(modes_, [&](const Ref<String>& scheduled) { return scheduled->isEqual(mode); });
    if (modes_.empty())
        loop_ = nullptr;
}

Ref<Object> Stream::propertyForKey(String* key) const
{
    std::lock_guard lock(eventMutex_);
    return properties_ && key ? Ref<Object>(properties_->objectForKey(key)) : nullptr;
}

bool Stream::setProperty_forKey(Object* property, String* key)
{
    if (!key)
        return false;
    std::lock_guard lock(eventMutex_);
    if (!properties_)
        properties_ = MutableDictionary::dictionary();
    if (property)
        properties_->setObject_forKey(property, key);
    else
        properties_->removeObjectForKey(key);
    return true;
}

bool Stream::setClient(uint32_t mask, StreamClientCallback callback)
{
    std::lock_guard lock(eventMutex_);
    clientMask_ = callback ? mask : 0;
    client_ = clientMask_ ? std::move(callback) : nullptr;
    return true;
}

void Stream::setStatus(long status) { status_.store(status); }

void Stream::failWithError(Ref<Error> error)
{
    {
        std::lock_guard lock(eventMutex_);
        error_ = std::move(error);
    }
    status_.store(NSStreamStatusError);
    postEvent(NSStreamEventErrorOccurred);
}

void Stream::failWithSystemError(const SystemError& error)
{
    failWithError(Error::errorWithDomain_code_description(
        NSCocoaErrorDomain, error.code, String::stringWithUTF8String(error.text()).get()));
}

bool Stream::isOpenForIO() const
{
    const long status = status_.load();
    return status == NSStreamStatusOpen || status == NSStreamStatusAtEnd;
}

void Stream::postEvent(NSStreamEvent event, uint32_t withdrawn)
{
    std::unique_lock lock(eventMutex_);
    if (status_.load() == NSStreamStatusClosed)
        return;
    pendingEvents_ = (pendingEvents_ & ~withdrawn) | event;
    requestDelivery(lock);
}

// Queues one delivery block unless one is queued already or this stream's callback is running
// (that callback's end requests delivery again).
void Stream::requestDelivery(std::unique_lock<std::mutex>& lock)
{
    if (deliveryQueued_ || inCallback_ || !loop_ || !pendingEvents_)
        return;
    deliveryQueued_ = true;
    if (!weakSelf_.load())
        weakSelf_ = WeakRef<Stream>(this);
    Ref<RunLoop> loop = loop_;
    String* modes[4] = {};
    const size_t count = std::min(modes_.size(), std::size(modes));
    for (size_t i = 0; i < count; ++i)
        modes[i] = modes_[i].get();
    WeakRef<Stream> weak = weakSelf_;
    lock.unlock();
    loop->performBlock(RunLoopModes(modes, count), [weak = std::move(weak)] {
        if (Ref<Stream> stream = weak.load())
            stream->deliverPendingEvents();
    });
    lock.lock();
}

void Stream::deliverPendingEvents()
{
    Ref<Stream> protect(this);
    std::unique_lock lock(eventMutex_);
    deliveryQueued_ = false;
    if (inCallback_)
        return;
    uint32_t events = pendingEvents_;
    pendingEvents_ = 0;
    inCallback_ = true;
    struct CallbackScope {
        Stream& stream;
        std::unique_lock<std::mutex>& lock;
        ~CallbackScope()
        {
            if (!lock.owns_lock())
                lock.lock();
            stream.inCallback_ = false;
            stream.requestDelivery(lock);
        }
    } scope {*this, lock};
    while (events && status_.load() != NSStreamStatusClosed) {
        const auto event = static_cast<NSStreamEvent>(events & -events);
        events &= ~event;
        lock.unlock();
        deliver(event);
        lock.lock();
    }
}

void Stream::deliver(NSStreamEvent event)
{
    StreamClientCallback client;
    {
        std::lock_guard lock(eventMutex_);
        if (clientMask_ & event)
            client = client_;
    }
    if (client)
        client(this, event);
    if (status_.load() == NSStreamStatusClosed)
        return;
    if (Ref<Object> target = Stream::delegate()) {
        static const SEL sel = selector("stream:handleEvent:");
        if (target->respondsToSelector(sel))
            target->performSelector(sel, this, Number::numberWithUnsignedInteger(event).get());
    }
}

} // namespace zon
