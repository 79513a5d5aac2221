#include "RepeatLimitedSink.h"

namespace zon::logger {

void RepeatLimitedSink::write(const Record& record) noexcept
{
    try {
        std::lock_guard guard(lock_);
        if (repeats_.admit(record, [this](const Record& summary) { writeLocked(summary); }))
            writeLocked(record);
    } catch (...) {
        // Out of memory while formatting or tracking: the record is dropped.
    }
}

void RepeatLimitedSink::flush() noexcept
{
    try {
        std::lock_guard guard(lock_);
        repeats_.flush(std::chrono::system_clock::now(), [this](const Record& summary) { writeLocked(summary); });
    } catch (...) {
    }
}

} // namespace zon::logger
