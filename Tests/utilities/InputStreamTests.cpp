#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/Raised.h"
#include "support/ScratchFolder.h"
#include "utilities/data/TXZonInputStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// Hears the counts of reads.
class Progress final : public Object {
    ZON_OBJECT(Progress, Object)
public:
    static void exportMethods(Class& cls) { cls.exportMethod("stream:didReadBytes:", &Progress::didRead); }
    void didRead(TXZonInputStream*, long count) { counts.push_back(count); }
    std::vector<long> counts;
};

// Answers the queued answers in turn, then nil.
class Source final : public Object {
    ZON_OBJECT(Source, Object)
public:
    static void exportMethods(Class& cls) { cls.exportMethod("stream:dataOfLength:", &Source::dataOfLength); }
    Ref<Data> dataOfLength(TXZonInputStream*, unsigned long length)
    {
        asked.push_back(length);
        if (answers.empty())
            return nullptr;
        Ref<Data> next = answers.front();
        answers.erase(answers.begin());
        return next;
    }
    std::vector<Ref<Data>> answers;
    std::vector<unsigned long> asked;
};

ZON_DEFINE_CLASS(Progress, "InputStreamTestProgress")
ZON_DEFINE_CLASS(Source, "InputStreamTestSource")

Ref<String> text(const std::string& value) { return String::stringWithUTF8String(value); }

// Points NSTemporaryDirectory at a scratch folder for one test.
struct TemporaryFolder {
    TemporaryFolder() { environment.set("TMPDIR", folder.path + "/"); }
    ScratchFolder folder;
    ScopedEnvironment environment;
};

} // namespace

TEST(TXZonInputStream, DataSourceReadZeroesTheBufferCopiesTheAnswerAndTellsNobody)
{
    TemporaryFolder temporary;
    Ref<Source> source = makeObject<Source>();
    source->answers = {Data::dataWithBytes("abc", 3), Data::dataWithBytes("", 0)};
    Ref<TXZonInputStream> stream = TXZonInputStream::inputStreamWithDataSource(source.get());
    ASSERT_TRUE(stream);
    Ref<Progress> progress = makeObject<Progress>();
    stream->setTXDelegate(progress.get());
    uint8_t buffer[8];
    std::memset(buffer, 0xEE, sizeof buffer);
    EXPECT_EQ(stream->read_maxLength(buffer, 6), 3);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 8), std::string("abc\0\0\0\xEE\xEE", 8));
    EXPECT_EQ(stream->read_maxLength(buffer, 6), 0);
    std::memset(buffer, 0xEE, sizeof buffer);
    EXPECT_EQ(stream->read_maxLength(buffer, 4), 0) << "nil answer";
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 8), std::string("\0\0\0\0\xEE\xEE\xEE\xEE", 8));
    EXPECT_TRUE(stream->hasBytesAvailable());
    EXPECT_THAT(source->asked, ElementsAre(6, 6, 4));
    EXPECT_TRUE(progress->counts.empty());

    EXPECT_EQ(stream->_dataSourceTempFolder()->UTF8String(), temporary.folder.path + "/");
    struct stat status {};
    ASSERT_EQ(::lstat(temporary.folder.file("stream").c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_size, 0);

    source->answers = {Data::dataWithBytes("12345", 5)};
    EXPECT_EQ(inconsistencyReason([&] { stream->read_maxLength(buffer, 4); }),
        "Data source answered 5 bytes where at most 4 were asked for");
}

TEST(TXZonInputStream, PlantedLinkOrFifoAtTheStreamPathIsRefused)
{
    TemporaryFolder temporary;
    const std::string path = temporary.folder.file("stream");
    const std::string target = temporary.folder.write("elsewhere", "secret");
    Ref<Source> source = makeObject<Source>();
    LogCapture capture;

    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
    EXPECT_EQ(TXZonInputStream::inputStreamWithDataSource(source.get()), nullptr);
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("Refusing the data source stream file")));

    ASSERT_EQ(::unlink(path.c_str()), 0);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(TXZonInputStream::inputStreamWithDataSource(source.get()), nullptr) << "and it did not wait for a writer";
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("a FIFO, not a regular file")));
}

TEST(TXZonInputStream, FileReadsReportEveryCountToTheDelegate)
{
    ScratchFolder folder;
    const std::string path = folder.write("file", std::string(10, 'x'));
    Ref<TXZonInputStream> stream = TXZonInputStream::inputStreamWithFileAtPath(text(path).get());
    Ref<Progress> progress = makeObject<Progress>();
    stream->set_TXDelegate(progress.get());
    uint8_t buffer[4];
    EXPECT_EQ(stream->read_maxLength(buffer, 4), -1) << "not open yet";
    stream->open();
    while (stream->read_maxLength(buffer, 4) > 0) {
    }
    EXPECT_THAT(progress->counts, ElementsAre(-1, 4, 4, 2, 0));
    EXPECT_EQ(TXZonInputStream::inputStreamWithFileAtPath(nullptr), nullptr);

    // A delegate that does not respond is not told; a plain object is fine.
    Ref<Object> silent = makeObject<Source>();
    stream->setTXDelegate(silent.get());
    EXPECT_EQ(stream->read_maxLength(buffer, 4), 0);
}

TEST(TXZonInputStream, ForwardsEveryStreamOperationAndIsAnInputStream)
{
    Ref<TXZonInputStream> stream = TXZonInputStream::inputStreamWithData(Data::dataWithBytes("hello", 5).get());
    InputStream* wrapped = stream->_stream();
    ASSERT_TRUE(wrapped);
    EXPECT_TRUE(stream->isKindOfClass(InputStream::staticClass()));
    EXPECT_EQ(stream->streamStatus(), NSStreamStatusNotOpen);
    stream->open();
    EXPECT_EQ(wrapped->streamStatus(), NSStreamStatusOpen);
    EXPECT_TRUE(stream->hasBytesAvailable());

    Ref<Progress> delegate = makeObject<Progress>();
    stream->setDelegate(delegate.get());
    EXPECT_EQ(wrapped->delegate().get(), delegate.get());
    EXPECT_EQ(stream->delegate().get(), delegate.get());
    EXPECT_TRUE(stream->setProperty_forKey(Number::numberWithInt(3).get(), text("key").get()));
    EXPECT_EQ(wrapped->propertyForKey(text("key").get()).get(), stream->propertyForKey(text("key").get()).get());

    std::vector<NSStreamEvent> events;
    wrapped->setClient(31, [&](Stream*, NSStreamEvent event) { events.push_back(event); });
    stream->scheduleInRunLoop_forMode(RunLoop::currentRunLoop(), NSDefaultRunLoopMode);
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.0, false);
    EXPECT_THAT(events, ElementsAre(NSStreamEventOpenCompleted, NSStreamEventHasBytesAvailable));
    stream->removeFromRunLoop_forMode(RunLoop::currentRunLoop(), NSDefaultRunLoopMode);
    uint8_t buffer[8];
    EXPECT_EQ(stream->read_maxLength(buffer, 8), 5);
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.0, false);
    EXPECT_EQ(events.size(), 2u) << "unscheduled through the wrapper";
    stream->close();
    EXPECT_EQ(wrapped->streamStatus(), NSStreamStatusClosed);
    EXPECT_EQ(stream->streamError(), nullptr);

    // Accessors under both names.
    Ref<Source> source = makeObject<Source>();
    stream->set_TXDataSource(source.get());
    EXPECT_EQ(stream->TXDataSource(), source.get());
    EXPECT_EQ(stream->_TXDelegate(), nullptr);
    stream->set_dataSourceTempFolder(text("/x/").get());
    EXPECT_EQ(stream->_dataSourceTempFolder()->UTF8String(), "/x/");
    Ref<InputStream> other = InputStream::inputStreamWithData(nullptr);
    stream->set_stream(other.get());
    EXPECT_EQ(stream->_stream(), other.get());
}
