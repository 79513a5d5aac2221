#include "utilities/data/TXZonInputStream.h"

#include "logger/ZonLog.h"
#include "platform/io/FileInputStreamInternal.h"
#include "platform/io/StandardFolders.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <cstring>

namespace zon {

ZON_DEFINE_CLASS(TXZonInputStream, "TXZonInputStream")

namespace {

// Opens (creating it empty when missing) the data-source form's placeholder file. Neither a link
// nor a FIFO that another user planted at the path is taken: the open does not follow links, does
// not wait for a FIFO's writer, and the file must turn out regular.
SystemResult<FileDescriptor> openPlaceholderFile(const std::string& path)
{
    auto opened = openFile(path, O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (!opened)
        return opened;
    auto status = fileStatus(opened.value().get());
    if (!status)
        return status.error();
    if (const FileKind kind = fileKind(status.value()); kind != FileKind::regular)
        return SystemError {EINVAL, "open", std::string(fileKindName(kind)) + ", not a regular file"};
    return opened;
}

} // namespace

Ref<TXZonInputStream> TXZonInputStream::inputStreamWithFileAtPath(const String* path)
{
    Ref<InputStream> stream = InputStream::inputStreamWithFileAtPath(path);
    return stream ? makeObject<TXZonInputStream>(std::move(stream)) : nullptr;
}

Ref<TXZonInputStream> TXZonInputStream::inputStreamWithData(const Data* data)
{
    return makeObject<TXZonInputStream>(InputStream::inputStreamWithData(data));
}

Ref<TXZonInputStream> TXZonInputStream::inputStreamWithDataSource(Object* dataSource)
{
    Ref<String> folder = NSTemporaryDirectory();
    if (!folder)
        return nullptr;
    Ref<String> path = folder->stringByAppendingPathComponent(ZSTR("stream"));
    auto opened = openPlaceholderFile(path->UTF8String());
    if (!opened) {
        zon_log_obj(__FILE__, __LINE__, staticClass(), logger::kLevelError, kDefaultLogIdentifier,
            "Refusing the data source stream file %@: %s", path.get(), opened.error().text());
        return nullptr;
    }
    Ref<TXZonInputStream> stream = makeObject<TXZonInputStream>(inputStreamWithOpenFile(std::move(opened.value())));
    stream->dataSourceTempFolder_ = std::move(folder);
    stream->dataSource_ = dataSource;
    return stream;
}

long TXZonInputStream::read_maxLength(uint8_t* buffer, size_t maxLength)
{
    if (dataSource_)
        return readFromDataSource(buffer, maxLength);
    const long count = stream_ ? stream_->read_maxLength(buffer, maxLength) : 0;
    if (delegate_)
        reportRead(count);
    return count;
}

void TXZonInputStream::reportRead(long count)
{
    static const SEL didRead = selector("stream:didReadBytes:");
    // Reads mostly deliver the same count, and numbers are immutable: one box serves them all.
    if (!lastCount_ || lastCount_->longValue() != count)
        lastCount_ = Number::numberWithLong(count);
    Object* const arguments[] = {this, lastCount_.get()};
    // One lookup for a delegate that implements the method itself; forwarding ones go the long way.
    if (const Method* method = delegate_->methodForSelector(didRead))
        method->implementation(delegate_, didRead, arguments);
    else if (delegate_->respondsToSelector(didRead))
        delegate_->performSelectorWithArguments(didRead, arguments);
}

long TXZonInputStream::readFromDataSource(uint8_t* buffer, size_t maxLength)
{
    static const SEL dataOfLength = selector("stream:dataOfLength:");
    Ref<Object> answer = dataSource_->performSelector(dataOfLength, this, Number::numberWithUnsignedLong(maxLength).get());
    const Data* data = dynamicCast<Data>(answer.get());
    const size_t length = data ? data->length() : 0;
    if (length > maxLength)
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("read:maxLength:"), this,
            __FILE__, __LINE__, "Data source answered %lu bytes where at most %lu were asked for",
            static_cast<unsigned long>(length), static_cast<unsigned long>(maxLength));
    if (maxLength)
        std::memset(buffer, 0, maxLength);
    if (length)
        std::memcpy(buffer, data->span().data(), length);
    return static_cast<long>(length);
}

bool TXZonInputStream::hasBytesAvailable() const { return dataSource_ || (stream_ && stream_->hasBytesAvailable()); }

void TXZonInputStream::open()
{
    if (stream_)
        stream_->open();
}

void TXZonInputStream::close()
{
    if (stream_)
        stream_->close();
}

long TXZonInputStream::streamStatus() const { return stream_ ? stream_->streamStatus() : NSStreamStatusNotOpen; }

Ref<Error> TXZonInputStream::streamError() const { return stream_ ? stream_->streamError() : nullptr; }

Ref<Object> TXZonInputStream::delegate() const { return stream_ ? stream_->delegate() : nullptr; }

void TXZonInputStream::setDelegate(Object* delegate)
{
    if (stream_)
        stream_->setDelegate(delegate);
}

void TXZonInputStream::scheduleInRunLoop_forMode(RunLoop* loop, String* mode)
{
    if (stream_)
        stream_->scheduleInRunLoop_forMode(loop, mode);
}

void TXZonInputStream::removeFromRunLoop_forMode(RunLoop* loop, String* mode)
{
    if (stream_)
        stream_->removeFromRunLoop_forMode(loop, mode);
}

Ref<Object> TXZonInputStream::propertyForKey(String* key) const { return stream_ ? stream_->propertyForKey(key) : nullptr; }

bool TXZonInputStream::setProperty_forKey(Object* property, String* key)
{
    return stream_ && stream_->setProperty_forKey(property, key);
}

} // namespace zon
