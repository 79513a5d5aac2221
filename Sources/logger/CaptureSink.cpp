#include "CaptureSink.h"

#include <algorithm>

namespace zon::logger {

void CaptureSink::write(const Record& record) noexcept
{
    try {
        CapturedRecord copy {std::string(record.file), record.line, std::string(record.category), record.level,
            std::string(record.identifier), std::string(record.message), record.thread};
        {
            std::lock_guard guard(lock_);
            records_.push_back(std::move(copy));
        }
        arrived_.notify_all();
    } catch (...) {
        // Out of memory: the record is dropped.
    }
}

std::vector<CapturedRecord> CaptureSink::records() const
{
    std::lock_guard guard(lock_);
    return records_;
}

std::vector<std::string> CaptureSink::lines() const
{
    std::lock_guard guard(lock_);
    std::vector<std::string> messages;
    messages.reserve(records_.size());
    for (auto& record : records_)
        messages.push_back(record.message);
    return messages;
}

void CaptureSink::clear()
{
    std::lock_guard guard(lock_);
    records_.clear();
}

bool CaptureSink::waitForRecord(const std::function<bool(const CapturedRecord&)>& matches, std::chrono::milliseconds timeout)
{
    std::unique_lock guard(lock_);
    return arrived_.wait_for(guard, timeout, [&] { return std::any_of(records_.begin(), records_.end(), matches); });
}

bool CaptureSink::waitForLine(std::string_view message, std::chrono::milliseconds timeout)
{
    return waitForRecord([message](const CapturedRecord& record) { return record.message == message; }, timeout);
}

} // namespace zon::logger
