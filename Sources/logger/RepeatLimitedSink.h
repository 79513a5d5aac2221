#pragma once

#include "Logger.h"
#include "RepeatFilter.h"

#include <mutex>

namespace zon::logger {

// The base of the sinks that write where a flood could fill a disk (standard error, files, the
// journal): records pass a RepeatFilter before they are written, under the sink's one lock.
// A sink that derives from it calls flush() in its destructor, so that counted repeats are
// written before it goes.
class ZON_LOGGER_EXPORT RepeatLimitedSink : public Sink {
public:
    void write(const Record& record) noexcept final;
    void flush() noexcept final;

protected:
    using Sink::Sink;
    // Writes one record or summary; called with lock_ held. May throw: the record is dropped.
    virtual void writeLocked(const Record& record) = 0;

    std::mutex lock_;

private:
    RepeatFilter repeats_;
};

} // namespace zon::logger
