#pragma once

// Makes log output assertable: a LogCapture installs a capture sink at level 5 for its lifetime,
// and ContainsLine matches its records:
//
//   LogCapture capture;
//   service->handlePacket(nullptr);
//   EXPECT_THAT(capture.records(), ContainsLine(1, "Recieved NULL Packet"));
//   EXPECT_THAT(capture.records(), ContainsLine(2, testing::HasSubstr("already exists")));

#include "logger/CaptureSink.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace zon::logger {

// Lets GoogleTest print records in failure messages.
void PrintTo(const CapturedRecord& record, std::ostream* out);

} // namespace zon::logger

namespace zon {

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<logger::CapturedRecord> records() const { return sink_->records(); }
    std::vector<std::string> lines() const { return sink_->lines(); }
    void clear() { sink_->clear(); }
    // For lines logged on other threads: waits until one with this message arrives.
    bool waitForLine(std::string_view message, std::chrono::milliseconds timeout = std::chrono::seconds(10))
    {
        return sink_->waitForLine(message, timeout);
    }
    logger::CaptureSink& sink() { return *sink_; }

private:
    std::shared_ptr<logger::CaptureSink> sink_;
};

// Matches captured records that include one of this level whose message matches `message` (a
// string for equality, or any string matcher).
template <class MessageMatcher>
auto ContainsLine(int level, MessageMatcher message)
{
    return ::testing::Contains(::testing::AllOf(
        ::testing::Field("level", &logger::CapturedRecord::level, level),
        ::testing::Field("message", &logger::CapturedRecord::message,
            ::testing::SafeMatcherCast<const std::string&>(message))));
}

// Any level.
template <class MessageMatcher>
auto ContainsLine(MessageMatcher message)
{
    return ::testing::Contains(::testing::Field("message", &logger::CapturedRecord::message,
        ::testing::SafeMatcherCast<const std::string&>(message)));
}

} // namespace zon
