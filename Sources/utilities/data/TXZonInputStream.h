#pragma once

// An input stream that wraps another and forwards every operation to it, except that reads can be
// served by a data source that makes the bytes on demand, and that a delegate hears how many bytes
// each read of the wrapped stream delivered (for progress reports).
//
// It is a C++ subclass of InputStream, so every consumer of input streams takes it; it therefore
// answers yes to isKindOfClass(InputStream), which the original, a forwarding object, did not.
// Messages it has no method of its own for go to the wrapped stream.
//
// The delegate (TXZonInputStreamProtocol) and the data source (TXZonInputStreamDataSourceProtocol)
// are not owned and are called by selector:
// - "stream:didReadBytes:" (this stream, the count as a long), only when the delegate responds;
// - "stream:dataOfLength:" (this stream, the maximum as an unsigned long), answering a Data or nil.

#include "platform/io/InputStream.h"
#include "platform/values/Number.h"

namespace zon {

class ZON_EXPORT TXZonInputStream : public InputStream {
    ZON_OBJECT(TXZonInputStream, InputStream)
public:
    static Ref<TXZonInputStream> inputStreamWithFileAtPath(const String* path);
    static Ref<TXZonInputStream> inputStreamWithData(const Data* data);
    // Reads go to dataSource. The wrapped stream, which serves the other operations, is a file
    // stream on the file "stream" in NSTemporaryDirectory(), created empty when missing. That file
    // is opened without following a link and without waiting, and must be a regular file: a link
    // or a FIFO planted there is refused, logged at level 1 and answered with nil.
    static Ref<TXZonInputStream> inputStreamWithDataSource(Object* dataSource);

    Object* TXDelegate() const { return delegate_; }
    void setTXDelegate(Object* delegate) { delegate_ = delegate; }
    Object* TXDataSource() const { return dataSource_; }
    void setTXDataSource(Object* dataSource) { dataSource_ = dataSource; }
    Object* _TXDelegate() const { return TXDelegate(); }
    void set_TXDelegate(Object* delegate) { setTXDelegate(delegate); }
    Object* _TXDataSource() const { return TXDataSource(); }
    void set_TXDataSource(Object* dataSource) { setTXDataSource(dataSource); }
    InputStream* _stream() const { return stream_.get(); }
    void set_stream(InputStream* stream) { stream_ = stream; }
    String* _dataSourceTempFolder() const { return dataSourceTempFolder_.get(); }
    void set_dataSourceTempFolder(String* folder) { dataSourceTempFolder_ = folder; }

    // With a data source: asks it for at most maxLength bytes, zeroes the first maxLength bytes of
    // buffer, copies the answer in and answers its length (0 for nil); the delegate is not told. An
    // answer longer than maxLength fails through the assertion handler ("Data source answered %lu
    // bytes where at most %lu were asked for") instead of overflowing buffer.
    // Without one: reads the wrapped stream and tells the delegate every count, 0 and negative too.
    long read_maxLength(uint8_t* buffer, size_t maxLength) override;
    // True whenever a data source is set; else the wrapped stream's answer.
    bool hasBytesAvailable() const override;

    // Forwarded unchanged to the wrapped stream (nothing happens, and 0 or nil is answered, when
    // there is none).
    void open() override;
    void close() override;
    long streamStatus() const override;
    Ref<Error> streamError() const override;
    Ref<Object> delegate() const override;
    void setDelegate(Object* delegate) override;
    void scheduleInRunLoop_forMode(RunLoop* loop, String* mode) override;
    void removeFromRunLoop_forMode(RunLoop* loop, String* mode) override;
    Ref<Object> propertyForKey(String* key) const override;
    bool setProperty_forKey(Object* property, String* key) override;

protected:
    explicit TXZonInputStream(Ref<InputStream> stream) : stream_(std::move(stream)) {}
    Object* forwardingTargetForSelector(SEL) const override { return stream_.get(); }

private:
    long readFromDataSource(uint8_t* buffer, size_t maxLength);
    // Tells the delegate the count of a read of the wrapped stream, when it responds.
    void reportRead(long count);

    Ref<InputStream> stream_;
    Object* delegate_ = nullptr;
    Object* dataSource_ = nullptr;
    Ref<String> dataSourceTempFolder_;
    Ref<Number> lastCount_;
};

} // namespace zon
