#include "logger/CaptureSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace zon::logger;
using namespace std::chrono_literals;

namespace {

TEST(CaptureSink, KeepsOwnedCopiesOfEveryField)
{
    CaptureSink sink;
    {
        std::string message = "IPC Service Started with name: %@";
        std::string category = "IPCService";
        sink.write(Record {"Sources/x/Y.cpp", 7, category, kLevelInfo, "default", message});
        message.assign(message.size(), '#');
        category.assign(category.size(), '#');
    }
    auto records = sink.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].file, "Sources/x/Y.cpp");
    EXPECT_EQ(records[0].line, 7);
    EXPECT_EQ(records[0].category, "IPCService");
    EXPECT_EQ(records[0].level, kLevelInfo);
    EXPECT_EQ(records[0].identifier, "default");
    EXPECT_EQ(records[0].message, "IPC Service Started with name: %@");

    sink.clear();
    EXPECT_TRUE(sink.lines().empty());
}

TEST(CaptureSink, WaitForLineSeesEarlierAndLaterRecordsAndTimesOut)
{
    CaptureSink sink;
    sink.write(Record {"f", 1, "default", 1, "default", "early"});
    EXPECT_TRUE(sink.waitForLine("early", 0ms));

    std::thread writer([&] { sink.write(Record {"f", 2, "default", 1, "default", "late"}); });
    EXPECT_TRUE(sink.waitForLine("late", 10s));
    writer.join();

    EXPECT_FALSE(sink.waitForLine("never", 10ms));
    EXPECT_FALSE(sink.waitForLine("earl", 0ms)) << "lines match whole";
}

} // namespace
