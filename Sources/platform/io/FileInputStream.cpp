// The file input stream behind InputStream::inputStreamWithFileAtPath.

#include "platform/io/FileInputStreamInternal.h"

#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <climits>

namespace zon {

namespace {

class FileInputStream final : public InputStream {
    ZON_OBJECT(FileInputStream, InputStream)
public:
    void open() override
    {
        if (streamStatus() != NSStreamStatusNotOpen)
            return;
        setStatus(NSStreamStatusOpening);
        if (!fd_) {
            auto opened = openFile(path_, O_RDONLY);
            if (!opened) {
                failWithSystemError(opened.error());
                return;
            }
            fd_ = std::move(opened.value());
        }
        if (startOffset_ > 0) {
            if (auto moved = seekFile(fd_.get(), startOffset_, SEEK_SET); !moved) {
                failWithSystemError(moved.error());
                return;
            }
        }
        setStatus(NSStreamStatusNotOpen);
        InputStream::open();
        postEvent(NSStreamEventHasBytesAvailable);
    }

    void close() override
    {
        InputStream::close();
        fd_.reset();
    }

    long read_maxLength(uint8_t* buffer, size_t maxLength) override
    {
        if (!isOpenForIO() || !fd_)
            return -1;
        auto read = readSome(fd_.get(), std::span(buffer, std::min(maxLength, size_t {LONG_MAX})));
        if (!read) {
            failWithSystemError(read.error());
            return -1;
        }
        const auto count = static_cast<long>(read.value());
        postEventsAfterRead(count, count == 0 && maxLength > 0);
        return count;
    }

    bool hasBytesAvailable() const override { return streamStatus() == NSStreamStatusOpen; }

    // The offset is the one property a file stream knows: read before open it is where reading
    // will start.
    Ref<Object> propertyForKey(String* key) const override
    {
        if (!key || !key->isEqual(NSStreamFileCurrentOffsetKey))
            return InputStream::propertyForKey(key);
        if (streamStatus() == NSStreamStatusNotOpen)
            return Number::numberWithLongLong(startOffset_);
        auto offset = seekFile(fd_.get(), 0, SEEK_CUR);
        return offset ? Number::numberWithLongLong(offset.value()) : nullptr;
    }

    bool setProperty_forKey(Object* property, String* key) override
    {
        if (!key || !key->isEqual(NSStreamFileCurrentOffsetKey))
            return InputStream::setProperty_forKey(property, key);
        auto* number = dynamicCast<Number>(property);
        if (!number || number->longLongValue() < 0)
            return false;
        if (streamStatus() == NSStreamStatusNotOpen) {
            startOffset_ = number->longLongValue();
            return true;
        }
        return seekFile(fd_.get(), number->longLongValue(), SEEK_SET).ok();
    }

private:
    explicit FileInputStream(std::string path) : path_(std::move(path)) {}
    explicit FileInputStream(FileDescriptor fd) : fd_(std::move(fd)) {}

    std::string path_;
    FileDescriptor fd_;
    long long startOffset_ = 0;
};

ZON_DEFINE_CLASS(FileInputStream, "NSFileInputStream")

} // namespace

Ref<InputStream> InputStream::inputStreamWithFileAtPath(const String* path)
{
    return path ? makeObject<FileInputStream>(path->UTF8String()) : nullptr;
}

} // namespace zon

namespace zon {

Ref<InputStream> inputStreamWithOpenFile(FileDescriptor fd) { return makeObject<FileInputStream>(std::move(fd)); }

} // namespace zon
