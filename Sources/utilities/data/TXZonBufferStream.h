#pragma once

// A producer and a consumer of bytes joined through a bound stream pair whose buffer has a fixed
// size.
//
// Contract:
// - Both ends are scheduled on the run loop of the creating thread in the default mode, and every
//   callback runs there while that loop runs. Either side may be absent.
// - The write side asks its data source for bytes whenever the write end can take some, and writes
//   all of an answer before the callback returns: when the buffer is full it runs the loop in the
//   default mode for 0.1 s at a time (to the end of the 0.1 s), so that a reader on the same
//   thread drains it. Data sources that answer at most the buffer size never wait.
// - The read side hands the delegate each chunk read (at most the buffer size, never empty).
// - Delegate and data source are not owned; each must implement its protocol below and be an
//   object (a class derived from zon::Object), since the log lines describe it.
// - The delegate or data source may drop the last reference to the buffer stream inside a
//   callback: it lives until that callback returns. Destruction closes the ends still open.

#include "platform/runtime/Object.h"

#include <cstdint>

namespace zon {

class Data;
class Error;
class InputStream;
class OutputStream;
class TXZonBufferStream;
enum NSStreamEvent : uint32_t;

// The buffer size of every initialiser but the full one.
inline constexpr int32_t kTXZonBufferStreamDefaultSize = 4096;

class ZON_EXPORT TXZonBufferStreamReadProtocol {
public:
    virtual void bufferStreamDidOpen(TXZonBufferStream* stream) = 0;
    virtual void bufferStream_didGetBytes(TXZonBufferStream* stream, Data* data) = 0;
    virtual void bufferStreamDidClose(TXZonBufferStream* stream) = 0;
    virtual void bufferStream_didEncounterError(TXZonBufferStream* stream, Error* error) = 0;

protected:
    ~TXZonBufferStreamReadProtocol() = default;
};

class ZON_EXPORT TXZonBufferStreamWriteProtocol {
public:
    virtual void bufferStreamDidOpen(TXZonBufferStream* stream) = 0;
    // True with the bytes to write in *data, false when there are no more.
    virtual bool bufferStream_requestingBytes(TXZonBufferStream* stream, Ref<Data>* data) = 0;
    // Writing is over: finished, failed or ended early.
    virtual void bufferStreamDidClose(TXZonBufferStream* stream) = 0;
    virtual void bufferStream_didEncounterError(TXZonBufferStream* stream, Error* error) = 0;

protected:
    ~TXZonBufferStreamWriteProtocol() = default;
};

class ZON_EXPORT TXZonBufferStream : public Object {
    ZON_OBJECT(TXZonBufferStream, Object)
public:
    // A size of zero or less fails through the assertion handler: "Buffer stream size must be
    // greater than zero, not %d".
    static Ref<TXZonBufferStream> initWithReadStreamDelegate_writeStreamDataSource_bufferSize(
        TXZonBufferStreamReadProtocol* delegate, TXZonBufferStreamWriteProtocol* dataSource, int32_t bufferSize)
    {
        return make<TXZonBufferStream>(delegate, dataSource, bufferSize);
    }
    static Ref<TXZonBufferStream> init() { return make<TXZonBufferStream>(nullptr, nullptr, kTXZonBufferStreamDefaultSize); }
    static Ref<TXZonBufferStream> initWithReadStreamDelegate(TXZonBufferStreamReadProtocol* delegate)
    {
        return make<TXZonBufferStream>(delegate, nullptr, kTXZonBufferStreamDefaultSize);
    }
    static Ref<TXZonBufferStream> initWithWriteStreamDataSource(TXZonBufferStreamWriteProtocol* dataSource)
    {
        return make<TXZonBufferStream>(nullptr, dataSource, kTXZonBufferStreamDefaultSize);
    }
    // Autoreleased instances of the receiving class Self, with the default size.
    template <class Self = TXZonBufferStream>
    static Self* bufferStreamWithReadDelegate(TXZonBufferStreamReadProtocol* delegate)
    {
        return static_cast<Self*>(make<Self>(delegate, nullptr, kTXZonBufferStreamDefaultSize).leakRef()->autorelease());
    }
    template <class Self = TXZonBufferStream>
    static Self* bufferStreamWithWriteDataSource(TXZonBufferStreamWriteProtocol* dataSource)
    {
        return static_cast<Self*>(make<Self>(nullptr, dataSource, kTXZonBufferStreamDefaultSize).leakRef()->autorelease());
    }

    int32_t streamBufferSize() const { return bufferSize_; }
    OutputStream* writeStream() const { return writeStream_.get(); }
    InputStream* readStream() const { return readStream_.get(); }
    // Crossed on purpose: the input of the pair is where bytes go in.
    OutputStream* inputStream() const { return writeStream(); }
    InputStream* outputStream() const { return readStream(); }

    TXZonBufferStreamReadProtocol* _readStreamDelegate() const { return readDelegate_; }
    void set_readStreamDelegate(TXZonBufferStreamReadProtocol* delegate) { readDelegate_ = delegate; }
    TXZonBufferStreamWriteProtocol* _writeStreamDataSource() const { return writeDataSource_; }
    void set_writeStreamDataSource(TXZonBufferStreamWriteProtocol* dataSource) { writeDataSource_ = dataSource; }

    // The ends' client callbacks, one event each (public so that any event code can be handed in).
    void readStreamCallback(NSStreamEvent event);
    void writeStreamCallback(NSStreamEvent event);

protected:
    TXZonBufferStream() = default;
    ~TXZonBufferStream() override;

private:
    template <class Self>
    static Ref<Self> make(
        TXZonBufferStreamReadProtocol* delegate, TXZonBufferStreamWriteProtocol* dataSource, int32_t bufferSize)
    {
        Ref<Self> stream = makeObject<Self>();
        stream->setUp(delegate, dataSource, bufferSize);
        return stream;
    }
    void setUp(TXZonBufferStreamReadProtocol* delegate, TXZonBufferStreamWriteProtocol* dataSource, int32_t bufferSize);
    void readAvailableBytes();
    // Writes all of data, running the loop while the buffer is full; stops at a write error.
    void writeAll(const Data* data);
    // Tells the data source about error, closes the write end and says writing is over.
    void reportWriteError(Error* error);
    // The data source as an object, for log lines.
    const Object* dataSourceObject() const;

    TXZonBufferStreamReadProtocol* readDelegate_ = nullptr;
    TXZonBufferStreamWriteProtocol* writeDataSource_ = nullptr;
    int32_t bufferSize_ = 0;
    Ref<OutputStream> writeStream_;
    Ref<InputStream> readStream_;
};

} // namespace zon
