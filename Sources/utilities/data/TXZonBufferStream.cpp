#include "utilities/data/TXZonBufferStream.h"

#include "extensions/NSError+ZonExtensions.h"
#include "extensions/NSObject+ZonExtensions.h"
#include "logger/ZonLog.h"
#include "platform/io/BoundStreamPair.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/ByteVector.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"

namespace zon {

ZON_DEFINE_CLASS(TXZonBufferStream, "TXZonBufferStream")

namespace {

// The lines the write side's log calls carry.
constexpr int kLineOpened = 115;
constexpr int kLineWriteComplete = 121;
constexpr int kLineWrote = 133;
constexpr int kLineWriteError = 137;
constexpr int kLineForcedRun = 141;
constexpr int kLineStreamError = 153;
constexpr int kLinePrematureClosure = 156;
constexpr int kLineUnknownState = 160;

constexpr uint32_t kReadEvents = NSStreamEventOpenCompleted | NSStreamEventHasBytesAvailable
    | NSStreamEventErrorOccurred | NSStreamEventEndEncountered; // 27
constexpr uint32_t kWriteEvents = NSStreamEventOpenCompleted | NSStreamEventHasSpaceAvailable
    | NSStreamEventErrorOccurred | NSStreamEventEndEncountered; // 29
constexpr double kForcedRunSeconds = 0.1;

Ref<Error> bufferError(int code) { return Error::errorWithDomain_code_userInfo(NSCocoaErrorDomain, code, nullptr); }

} // namespace

void TXZonBufferStream::setUp(
    TXZonBufferStreamReadProtocol* delegate, TXZonBufferStreamWriteProtocol* dataSource, int32_t bufferSize)
{
    if (bufferSize <= 0)
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(
            selector("initWithReadStreamDelegate:writeStreamDataSource:bufferSize:"), this, __FILE__, __LINE__,
            "Buffer stream size must be greater than zero, not %d", bufferSize);
    readDelegate_ = delegate;
    writeDataSource_ = dataSource;
    bufferSize_ = bufferSize;
    BoundStreamPair pair = createBoundStreamPair(static_cast<size_t>(bufferSize));
    readStream_ = std::move(pair.readStream);
    writeStream_ = std::move(pair.writeStream);
    RunLoop* loop = RunLoop::currentRunLoop();
    // The ends call back with a plain pointer, as the original's client context holds it unretained;
    // destruction removes both clients first.
    if (readDelegate_) {
        readStream_->setClient(kReadEvents, [this](Stream*, NSStreamEvent event) { readStreamCallback(event); });
        readStream_->scheduleInRunLoop_forMode(loop, NSDefaultRunLoopMode);
        readStream_->open();
    }
    if (writeDataSource_) {
        writeStream_->setClient(kWriteEvents, [this](Stream*, NSStreamEvent event) { writeStreamCallback(event); });
        writeStream_->scheduleInRunLoop_forMode(loop, NSDefaultRunLoopMode);
        writeStream_->open();
    }
}

TXZonBufferStream::~TXZonBufferStream()
{
    for (Stream* end : {static_cast<Stream*>(readStream_.get()), static_cast<Stream*>(writeStream_.get())}) {
        if (!end)
            continue;
        end->setClient(0, nullptr);
        if (end->streamStatus() != NSStreamStatusClosed)
            end->close();
    }
    readDelegate_ = nullptr;
    writeDataSource_ = nullptr;
}

const Object* TXZonBufferStream::dataSourceObject() const { return dynamic_cast<const Object*>(writeDataSource_); }

void TXZonBufferStream::readStreamCallback(NSStreamEvent event)
{
    Ref<TXZonBufferStream> protect(this);
    TXZonBufferStreamReadProtocol* delegate = readDelegate_;
    if (!delegate)
        return;
    switch (event) {
    case NSStreamEventOpenCompleted:
        delegate->bufferStreamDidOpen(this);
        break;
    case NSStreamEventHasBytesAvailable:
        readAvailableBytes();
        break;
    case NSStreamEventErrorOccurred:
        delegate->bufferStream_didEncounterError(this, readStream_->streamError().get());
        break;
    case NSStreamEventEndEncountered:
        delegate->bufferStreamDidClose(this);
        break;
    default:
        delegate->bufferStream_didEncounterError(this, bufferError(0).get());
        break;
    }
}

void TXZonBufferStream::readAvailableBytes()
{
    ByteVector bytes(static_cast<size_t>(bufferSize_));
    const long count = readStream_->read_maxLength(bytes.data(), bytes.size());
    Ref<Error> error;
    if (count > 0) {
        bytes.resize(static_cast<size_t>(count));
        readDelegate_->bufferStream_didGetBytes(this, Data::dataWithVector(std::move(bytes)).get());
    } else if (count < 0) {
        error = readStream_->streamError();
    }
    if (error && readDelegate_)
        readDelegate_->bufferStream_didEncounterError(this, error.get());
}

void TXZonBufferStream::writeStreamCallback(NSStreamEvent event)
{
    Ref<TXZonBufferStream> protect(this);
    TXZonBufferStreamWriteProtocol* dataSource = writeDataSource_;
    if (!dataSource)
        return;
    const Object* source = dataSourceObject();
    switch (event) {
    case NSStreamEventOpenCompleted:
        zon_log_obj(__FILE__, kLineOpened, this, logger::kLevelDetail, kLogNetworkCommIdentifier,
            "%@ *| Buffer Stream Opened for %@", this, source);
        dataSource->bufferStreamDidOpen(this);
        break;
    case NSStreamEventHasSpaceAvailable: {
        Ref<Data> data;
        if (!dataSource->bufferStream_requestingBytes(this, &data)) {
            zon_log_obj(__FILE__, kLineWriteComplete, this, logger::kLevelDetail, kLogNetworkCommIdentifier,
                "%@ *| Buffer Stream Closed for %@ due to data write complete", this, source);
            writeStream_->close();
            dataSource->bufferStreamDidClose(this);
        } else {
            writeAll(data.get());
        }
        break;
    }
    case NSStreamEventErrorOccurred: {
        Ref<Error> error = writeStream_->streamError();
        zon_log_obj(__FILE__, kLineStreamError, this, logger::kLevelDetail, kLogNetworkCommIdentifier,
            "%@ *| Buffer Stream Error %@ with %@", this, error.get(), source);
        reportWriteError(error.get());
        break;
    }
    case NSStreamEventEndEncountered:
        zon_log_obj(__FILE__, kLinePrematureClosure, this, logger::kLevelError, kDefaultLogIdentifier,
            "%@ *| Buffer Stream Closed for %@ due to write stream closure (premature?)", this, source);
        reportWriteError(bufferError(kZonBufferPrematureClosureError).get());
        break;
    default:
        zon_log_obj(__FILE__, kLineUnknownState, this, logger::kLevelError, kDefaultLogIdentifier,
            "%@ *| Buffer Stream Encountered Unknown State (%d) with %@", this, static_cast<int>(event), source);
        reportWriteError(bufferError(kZonBufferUnknownError).get());
        break;
    }
}

void TXZonBufferStream::writeAll(const Data* data)
{
    const size_t length = data ? data->length() : 0;
    const Object* source = dataSourceObject();
    size_t position = 0;
    while (position < length) {
        const long count = writeStream_->write_maxLength(data->span().data() + position, length - position);
        zon_log_obj(__FILE__, kLineWrote, this, logger::kLevelDetail, kLogNetworkCommIdentifier,
            "%@ *| Buffer Stream Wrote %d of %u from %@", this, static_cast<int>(count),
            static_cast<unsigned>(length), source);
        if (count > 0) {
            position += static_cast<size_t>(count);
        } else if (count == 0) {
            RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, kForcedRunSeconds, false);
            zon_log_obj(__FILE__, kLineForcedRun, this, logger::kLevelWarning, kDefaultLogIdentifier,
                "%@ *| Buffer Stream forced run loop run for %@", this, source);
        } else {
            const long status = writeStream_->streamStatus();
            Ref<Error> error = writeStream_->streamError();
            zon_log_obj(__FILE__, kLineWriteError, this, logger::kLevelError, kDefaultLogIdentifier,
                "%@ *| Buffer Stream Write Error(%d) %@ for %@", this, static_cast<int>(status), error.get(), source);
            reportWriteError(error.get());
            return;
        }
    }
}

void TXZonBufferStream::reportWriteError(Error* error)
{
    if (!error || !writeDataSource_)
        return;
    writeDataSource_->bufferStream_didEncounterError(this, error);
    writeStream_->close();
    if (writeDataSource_)
        writeDataSource_->bufferStreamDidClose(this);
}

} // namespace zon
