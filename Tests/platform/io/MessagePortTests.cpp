#include "platform/io/MessageFrameInternal.h"
#include "platform/io/MessagePort.h"
#include "platform/io/MessagePortDirectory.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/SocketCallsInternal.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/threads/Timer.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/MessagePortRequests.h"
#include "support/PeerProcess.h"
#include "support/PrivateRuntimeDirectory.h"
#include "support/Values.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <span>
#include <thread>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// A local port served by its own thread's run loop.
class PortServer {
public:
    PortServer(String* name, DataHandler handler)
        : PortServer([portName = Ref<String>(name), handler] { return createLocalPort(portName, handler); })
    {
    }
    PortServer(String* name, size_t prefixLength, MessagePort::RequestHandler handler)
        : PortServer([portName = Ref<String>(name), prefixLength, handler] {
            return MessagePort::createLocal(portName, prefixLength, handler);
        })
    {
    }
    explicit PortServer(std::function<Ref<MessagePort>()> create)
    {
        std::promise<bool> ready;
        thread_ = Thread::detachNewThreadWithBody([&ready, create, this] {
            port_ = create();
            loop_ = RunLoop::currentRunLoop();
            ready.set_value(port_ && port_->scheduleInRunLoop(loop_, NSDefaultRunLoopMode));
            while (!stopped_)
                loop_->runInMode(NSDefaultRunLoopMode, 1.0, false);
            if (port_)
                port_->invalidate();
            port_ = nullptr;
        });
        started_ = ready.get_future().get();
    }
    ~PortServer()
    {
        loop_->performBlock({NSDefaultRunLoopMode}, [this] {
            stopped_ = true;
            loop_->stop();
        });
        thread_->waitUntilFinished(std::chrono::seconds(10));
    }
    bool started() const { return started_; }
    MessagePort* port() const { return port_.get(); }
    RunLoop* loop() const { return loop_; }

private:
    Ref<Thread> thread_;
    Ref<MessagePort> port_;
    RunLoop* loop_ = nullptr;
    std::atomic<bool> stopped_ {false};
    bool started_ = false;
};

// A port server whose thread holds on message 1 until release(), so that its sender's socket
// fills; it records what describe makes of every message and answers each with answer.
class HeldReceiver {
public:
    HeldReceiver(String* name, std::function<std::string(int32_t, Data*)> describe, Ref<Data> answer = nullptr)
        : released_(release_.get_future().share()),
          server_(name, [this, describe, answer](MessagePort*, int32_t messageId, Data* data) {
              if (messageId == 1)
                  released_.wait();
              std::lock_guard lock(mutex_);
              received_.push_back(describe(messageId, data));
              return answer;
          })
    {
    }
    void release() { release_.set_value(); }
    std::vector<std::string> received()
    {
        std::lock_guard lock(mutex_);
        return received_;
    }

private:
    std::promise<void> release_;
    std::shared_future<void> released_;
    std::mutex mutex_;
    std::vector<std::string> received_;
    PortServer server_; // last, so that it stops before the rest goes
};

DataHandler echoWithPrefix(std::string prefix)
{
    return [prefix](MessagePort*, int32_t messageId, Data* data) {
        return dataOf(prefix + std::to_string(messageId) + ":" + textOf(data));
    };
}

int connectRaw(const std::string& path)
{
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

std::string socketPathOf(String* name)
{
    return messagePortPaths(name->UTF8String()).value().socketPath;
}

class MessagePortTest : public testing::Test {
protected:
    test::PrivateRuntimeDirectory runtime_;
    HangGuard guard_ {std::chrono::seconds(60)};
};

} // namespace

TEST(MessageFrameReader, ReassemblesFramesSplitAtEveryByte)
{
    std::vector<uint8_t> stream;
    auto append = [&](uint32_t id, std::string_view payload, uint16_t flags) {
        uint8_t header[kMessageFrameHeaderSize];
        encodeMessageFrameHeader({static_cast<uint32_t>(payload.size()), id, -7, flags}, header);
        stream.insert(stream.end(), header, header + sizeof header);
        stream.insert(stream.end(), payload.begin(), payload.end());
    };
    append(1, "hello", MessageFrameReplyWanted);
    append(2, "", MessageFrameIsReply);
    append(3, std::string(70000, 'x'), 0); // larger than the staging area
    for (size_t chunk : {size_t(1), size_t(5), size_t(17), size_t(4096), stream.size()}) {
        MessageFrameReader reader;
        for (size_t at = 0; at < stream.size(); at += chunk)
            ASSERT_EQ(reader.feed({stream.data() + at, std::min(chunk, stream.size() - at)}),
                MessageFrameReader::Status::Ok);
        std::vector<MessageFrame> frames;
        while (reader.hasFrame())
            frames.push_back(reader.takeFrame());
        ASSERT_EQ(frames.size(), 3u) << "chunk " << chunk;
        EXPECT_EQ(std::string(frames[0].payload.begin(), frames[0].payload.end()), "hello");
        EXPECT_EQ(frames[0].header.flags, MessageFrameReplyWanted);
        EXPECT_EQ(frames[0].header.messageId, -7);
        EXPECT_TRUE(frames[1].payload.empty());
        EXPECT_EQ(frames[1].header.requestId, 2u);
        EXPECT_EQ(frames[2].payload.size(), 70000u);
    }
}

TEST(MessageFrameReader, SplitsThePrefixOffEachMessage)
{
    std::vector<uint8_t> stream;
    std::vector<std::string> messages = {"", "ab", "abcd", "abcdefgh" + std::string(70000, 'x')};
    for (auto& message : messages) {
        uint8_t header[kMessageFrameHeaderSize];
        encodeMessageFrameHeader({static_cast<uint32_t>(message.size()), 1, 0, 0}, header);
        stream.insert(stream.end(), header, header + sizeof header);
        stream.insert(stream.end(), message.begin(), message.end());
    }
    for (size_t chunk : {size_t(1), size_t(3), size_t(17), size_t(4096), stream.size()}) {
        MessageFrameReader reader(kMessageFrameMaxLength, 4);
        for (size_t at = 0; at < stream.size(); at += chunk)
            ASSERT_EQ(reader.feed({stream.data() + at, std::min(chunk, stream.size() - at)}),
                MessageFrameReader::Status::Ok);
        std::vector<std::pair<std::string, std::string>> frames;
        while (reader.hasFrame()) {
            MessageFrame frame = reader.takeFrame();
            frames.emplace_back(textOf({frame.prefix.data(), frame.prefixLength}), textOf(frame.payload));
        }
        using Parts = std::pair<std::string, std::string>;
        EXPECT_THAT(frames,
            testing::ElementsAre(Parts("", ""), Parts("ab", ""), Parts("abcd", ""),
                Parts("abcd", "efgh" + std::string(70000, 'x'))))
            << "chunk " << chunk;
    }
}

TEST(MessageFrameReader, RejectsForeignBytesAndOversizedFramesBeforeAllocating)
{
    MessageFrameReader garbage;
    EXPECT_EQ(garbage.feed(std::vector<uint8_t>(32, 0xab)), MessageFrameReader::Status::Corrupt);
    EXPECT_FALSE(garbage.hasFrame());

    uint8_t header[kMessageFrameHeaderSize];
    encodeMessageFrameHeader({kMessageFrameMaxLength + 1, 1, 0, 0}, header);
    MessageFrameReader huge;
    EXPECT_EQ(huge.feed(header), MessageFrameReader::Status::TooLong);
    EXPECT_EQ(huge.failedHeader().length, kMessageFrameMaxLength + 1);

    encodeMessageFrameHeader({4, 1, 0, 0x80}, header); // a flag nobody defined
    MessageFrameReader flags;
    EXPECT_EQ(flags.feed(header), MessageFrameReader::Status::Corrupt);
}

TEST(MessageFrameReader, HoldsWhatArrivedNotWhatAHeaderAnnouncesAndStopsAtItsBudget)
{
    MessageFrameBudget budget(1 << 20);
    uint8_t header[kMessageFrameHeaderSize];
    encodeMessageFrameHeader({200u << 20, 1, 0, 0}, header);
    {
        MessageFrameReader stalled(kMessageFrameMaxLength, 0, &budget);
        ASSERT_EQ(stalled.feed(header), MessageFrameReader::Status::Ok);
        EXPECT_TRUE(stalled.hasPartialFrame());
        EXPECT_LE(budget.held(), 256u * 1024) << "a header alone costs a first piece, not what it announces";

        // Bytes that arrive take the budget until it is spent; then the reader takes no more.
        const std::vector<uint8_t> bytes(4 << 20, 'x');
        ASSERT_EQ(stalled.feed(bytes), MessageFrameReader::Status::Ok);
        EXPECT_EQ(budget.held(), budget.limit());
        EXPECT_TRUE(stalled.buffer().empty());

        bool woken = false;
        budget.whenRoom([&] { woken = true; });
        EXPECT_FALSE(woken);
        MessageFrameReader other(kMessageFrameMaxLength, 0, &budget);
        EXPECT_FALSE(woken);
    } // the stalled reader gives its share back, and whoever waited hears of it
    EXPECT_EQ(budget.held(), 0u);

    // A message within the budget arrives whole, and its share is free again once it is complete.
    MessageFrameReader reader(kMessageFrameMaxLength, 0, &budget);
    std::vector<uint8_t> stream(kMessageFrameHeaderSize);
    encodeMessageFrameHeader({300000, 2, 0, 0}, stream.data());
    stream.resize(stream.size() + 300000, 'y');
    ASSERT_EQ(reader.feed(stream), MessageFrameReader::Status::Ok);
    ASSERT_TRUE(reader.hasFrame());
    EXPECT_EQ(reader.takeFrame().payload.size(), 300000u);
    EXPECT_EQ(budget.held(), 0u);
}

TEST(MessagePortDirectory, NamesOfAnyFormMapToDistinctShortFileNames)
{
    test::PrivateRuntimeDirectory runtime;
    std::string longName(5000, 'n');
    std::vector<std::string> names = {"com.example.server", "a/b", "a_b", "../../etc/passwd", "",
        "\xe2\x98\x83 snow", longName, longName + "x"};
    std::set<std::string> sockets;
    for (auto& name : names) {
        auto found = messagePortPaths(name);
        ASSERT_TRUE(found) << name;
        const MessagePortPaths& paths = found.value();
        EXPECT_LT(paths.socketPath.size(), sizeof(sockaddr_un::sun_path));
        EXPECT_EQ(paths.socketPath.rfind(runtime.path() + "/zon-ports/", 0), 0u) << paths.socketPath;
        EXPECT_EQ(paths.socketPath.find('/', runtime.path().size() + 11), std::string::npos);
        sockets.insert(paths.socketPath);
    }
    EXPECT_EQ(sockets.size(), names.size());
    EXPECT_THAT(messagePortFileStem("com.example.server"), testing::StartsWith("com.example.server-"));
}

TEST(MessagePortDirectory, RefusesADirectoryOthersCanEnterOrALink)
{
    test::PrivateRuntimeDirectory runtime;
    std::string dir = runtime.path() + "/zon-ports";
    ASSERT_EQ(::mkdir(dir.c_str(), 0755), 0);
    auto refused = messagePortDirectory();
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.error().text(), HasSubstr("not a private directory"));

    ASSERT_EQ(::rmdir(dir.c_str()), 0);
    std::string elsewhere = runtime.path() + "/elsewhere";
    ASSERT_EQ(::mkdir(elsewhere.c_str(), 0700), 0);
    ASSERT_EQ(::symlink(elsewhere.c_str(), dir.c_str()), 0);
    EXPECT_FALSE(messagePortDirectory());
    EXPECT_EQ(createLocalPort(ZSTR("x"), echoWithPrefix("")), nullptr);
}

TEST_F(MessagePortTest, RequestsGetTheirRepliesAtEverySize)
{
    PortServer server(ZSTR("echo"), [](MessagePort*, int32_t, Data* data) { return Ref<Data>(data); });
    ASSERT_TRUE(server.started());
    auto remote = MessagePort::createRemote(ZSTR("echo"));
    ASSERT_TRUE(remote);
    for (size_t size : {size_t(0), size_t(1), size_t(4096), size_t(200000), size_t(16) << 20}) {
        ByteVector bytes(size);
        for (size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<uint8_t>(i * 131 + size);
        auto request = Data::dataWithVector(bytes);
        Ref<Data> reply;
        ASSERT_EQ(sendRequest(remote, 1, request, 10, 30, NSDefaultRunLoopMode, &reply), MessagePortStatus::Success);
        if (size == 0)
            EXPECT_EQ(reply, nullptr) << "an empty reply is no reply";
        else
            EXPECT_TRUE(reply && reply->isEqualToData(request)) << size;
    }
}

TEST_F(MessagePortTest, MessagesInTwoPartsArriveWholeOrSplitAsEachEndAsks)
{
    std::mutex mutex;
    std::vector<std::string> seen; // "prefix|body|wanted" as the handler got them
    PortServer server(ZSTR("split"), 3, [&](MessagePort*, int32_t, MessagePortMessage request, bool replyWanted) {
        std::lock_guard lock(mutex);
        seen.push_back(textOf(request.prefixBytes()) + "|" + textOf(request.body.data()) + "|"
            + (replyWanted ? "wanted" : "dropped"));
        return MessagePortMessage(spanOf("R:"), dataOf("echo"));
    });
    ASSERT_TRUE(server.started());
    auto remote = MessagePort::createRemote(ZSTR("split"), 2);
    MessagePortMessage reply;
    ASSERT_EQ(sendRequest(remote, 1, spanOf("ab"), dataOf("cdef"), 5, 5, NSDefaultRunLoopMode, &reply),
        MessagePortStatus::Success);
    EXPECT_EQ(textOf(reply.prefixBytes()), "R:");
    EXPECT_EQ(textOf(reply.body.span()), "echo");
    EXPECT_EQ(sendRequest(remote, 2, spanOf("x"), HeldBytes::copyOf(spanOf("yz")), 5, 0, nullptr, nullptr),
        MessagePortStatus::Success);
    EXPECT_EQ(sendRequest(remote, 3, {}, dataOf("q"), 5, 5, NSDefaultRunLoopMode, &reply), MessagePortStatus::Success);
    Ref<Data> joined;
    EXPECT_EQ(
        sendRequest(remote, 4, dataOf("plain"), 5, 5, NSDefaultRunLoopMode, &joined), MessagePortStatus::Success);
    EXPECT_EQ(textOf(joined), "R:echo");
    {
        std::lock_guard lock(mutex);
        EXPECT_THAT(seen, ElementsAre("abc|def|wanted", "xyz||dropped", "q||wanted", "pla|in|wanted"));
    }

    // A receiver that asked for no prefix gets the parts joined.
    PortServer plain(ZSTR("plain"), echoWithPrefix(""));
    EXPECT_EQ(sendRequest(MessagePort::createRemote(ZSTR("plain")).get(), 7, spanOf("ab"),
                  HeldBytes::copyOf(spanOf("cd")), 5, 5,
                  NSDefaultRunLoopMode, &reply),
        MessagePortStatus::Success);
    EXPECT_EQ(textOf(reply.body.span()), "7:abcd");
}

TEST_F(MessagePortTest, CopiedAndHandedOverBytesCutShortByASendTimeoutStillArriveWhole)
{
    // The receiver is held, so a 4 MiB message fills the socket and its send times out part way.
    // The stream must carry the rest later: copied bytes after the sender has reused and freed its
    // buffer, bytes of an object handed to the port (a string's text) after the sender has let go
    // of the object.
    const std::function<MessagePortStatus(MessagePort*)> cutShortSends[] = {
        [](MessagePort* remote) {
            std::vector<uint8_t> lent(4 << 20, 7);
            const auto status = sendRequest(remote, 2, {}, HeldBytes::copyOf(lent), 0.05, 0, nullptr, nullptr);
            std::fill(lent.begin(), lent.end(), 0);
            return status;
        },
        [](MessagePort* remote) {
            Ref<String> text = String::stringWithUTF8String(std::string(4 << 20, '\7'));
            const std::span<const uint8_t> bytes(
                reinterpret_cast<const uint8_t*>(text->asciiCharacters()), text->length());
            return sendRequest(remote, 2, {}, HeldBytes(bytes, std::move(text)), 0.05, 0, nullptr, nullptr);
        },
    };
    for (const auto& sendCutShort : cutShortSends) {
        HeldReceiver server(ZSTR("held"), [](int32_t messageId, Data* data) {
            const auto bytes = data->span();
            const bool intact = std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 7; });
            return std::to_string(messageId) + ":" + std::to_string(bytes.size()) + (intact ? "" : " changed");
        });
        auto remote = MessagePort::createRemote(ZSTR("held"));
        ASSERT_EQ(sendRequest(remote, 1, {}, HeldBytes::copyOf(spanOf("\7")), 5, 0, nullptr, nullptr),
            MessagePortStatus::Success);
        EXPECT_EQ(sendCutShort(remote.get()), MessagePortStatus::SendTimeout);
        server.release();
        Ref<Data> reply;
        EXPECT_EQ(
            sendRequest(remote, 3, dataOf("\7"), 30, 30, NSDefaultRunLoopMode, &reply), MessagePortStatus::Success);
        EXPECT_THAT(server.received(), ElementsAre("1:1", "2:4194304", "3:1"));
    }
}

TEST_F(MessagePortTest, MessageIdsReachTheCallbackAndNilAnswersNothing)
{
    std::atomic<int> seen {0};
    PortServer server(ZSTR("quiet"), [&](MessagePort*, int32_t messageId, Data*) {
        seen = messageId;
        return Ref<Data>();
    });
    auto remote = MessagePort::createRemote(ZSTR("quiet"));
    Ref<Data> reply = dataOf("stale");
    EXPECT_EQ(sendRequest(remote, -42, dataOf("x"), 5, 5, NSDefaultRunLoopMode, &reply), MessagePortStatus::Success);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(seen, -42);
}

TEST_F(MessagePortTest, OneWayMessagesArriveInOrderEvenWhenTheSenderLeavesAtOnce)
{
    std::mutex mutex;
    std::vector<std::string> received;
    PortServer server(ZSTR("sink"), [&](MessagePort*, int32_t, Data* data) {
        std::lock_guard lock(mutex);
        received.push_back(textOf(data));
        return dataOf("ignored");
    });
    {
        auto remote = MessagePort::createRemote(ZSTR("sink"));
        for (int i = 0; i < 100; ++i)
            ASSERT_EQ(sendRequest(remote, 0, dataOf(std::to_string(i)), 5, 0, nullptr, nullptr),
                MessagePortStatus::Success);
    }
    auto remote = MessagePort::createRemote(ZSTR("sink"));
    Ref<Data> reply;
    EXPECT_EQ(sendRequest(remote, 0, dataOf("last"), 5, 5, NSDefaultRunLoopMode, &reply), MessagePortStatus::Success);
    std::lock_guard lock(mutex);
    ASSERT_EQ(received.size(), 101u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(received[i], std::to_string(i));
}

TEST_F(MessagePortTest, ANameIsHeldByOneLivePortAndReclaimedFromADeadOne)
{
    auto first = createLocalPort(ZSTR("held"), echoWithPrefix(""));
    ASSERT_TRUE(first);
    EXPECT_EQ(createLocalPort(ZSTR("held"), echoWithPrefix("")), nullptr);
    first->invalidate();
    EXPECT_FALSE(first->isValid());
    auto second = createLocalPort(ZSTR("held"), echoWithPrefix(""));
    ASSERT_TRUE(second);
    second = nullptr;

    // What a killed owner leaves: a socket file nobody listens on, a lock file nobody holds.
    std::string path = socketPathOf(ZSTR("stale"));
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(fd);
    EXPECT_EQ(MessagePort::createRemote(ZSTR("stale")), nullptr);
    PortServer server(ZSTR("stale"), echoWithPrefix("new:"));
    ASSERT_TRUE(server.started());
    Ref<Data> reply;
    EXPECT_EQ(
        sendRequest(MessagePort::createRemote(ZSTR("stale")).get(), 3, dataOf("hi"), 5, 5, NSDefaultRunLoopMode, &reply),
        MessagePortStatus::Success);
    EXPECT_EQ(textOf(reply), "new:3:hi");
}

TEST_F(MessagePortTest, AVanishedPeerIsInvalidAtOnceNotATimeout)
{
    EXPECT_EQ(MessagePort::createRemote(ZSTR("nobody")), nullptr);

    PortServer server(ZSTR("leaving"), [](MessagePort* port, int32_t, Data*) {
        port->invalidate();
        return dataOf("never sent");
    });
    auto remote = MessagePort::createRemote(ZSTR("leaving"));
    Ref<Data> reply;
    EXPECT_EQ(sendRequest(remote, 0, dataOf("bye"), 200, 200, NSDefaultRunLoopMode, &reply),
        MessagePortStatus::IsInvalid);
    EXPECT_FALSE(remote->isValid());
    EXPECT_EQ(sendRequest(remote, 0, dataOf("again"), 200, 0, nullptr, nullptr), MessagePortStatus::IsInvalid);
}

TEST_F(MessagePortTest, ASlowReceiverGivesAReceiveTimeoutAndTheLinkStaysUsable)
{
    std::promise<void> release;
    auto released = release.get_future().share();
    PortServer server(ZSTR("slow"), [released](MessagePort*, int32_t messageId, Data*) {
        if (messageId == 1)
            released.wait();
        return dataOf(std::to_string(messageId));
    });
    auto remote = MessagePort::createRemote(ZSTR("slow"));
    Ref<Data> reply;
    EXPECT_EQ(sendRequest(remote, 1, dataOf(""), 5, 0.05, NSDefaultRunLoopMode, &reply),
        MessagePortStatus::ReceiveTimeout);
    release.set_value();
    // The late reply to request 1 is dropped; request 2 gets its own.
    EXPECT_EQ(sendRequest(remote, 2, dataOf(""), 5, 10, NSDefaultRunLoopMode, &reply), MessagePortStatus::Success);
    EXPECT_EQ(textOf(reply), "2");
}

TEST_F(MessagePortTest, ConcurrentSendsOnOneLinkEachGetTheirOwnReply)
{
    PortServer server(ZSTR("busy"), echoWithPrefix("re:"));
    auto remote = MessagePort::createRemote(ZSTR("busy"));
    std::vector<std::thread> senders;
    std::atomic<int> mismatches {0};
    for (int t = 0; t < 4; ++t) {
        senders.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                std::string body = std::to_string(t) + "/" + std::to_string(i);
                Ref<Data> reply;
                if (sendRequest(remote, t, dataOf(body), 10, 10, NSDefaultRunLoopMode, &reply)
                        != MessagePortStatus::Success
                    || textOf(reply) != "re:" + std::to_string(t) + ":" + body)
                    ++mismatches;
            }
        });
    }
    for (auto& sender : senders)
        sender.join();
    EXPECT_EQ(mismatches, 0);
}

TEST_F(MessagePortTest, ARequestArrivingDuringAWaitIsHandledInsideIt)
{
    // Thread A serves "a" and asks "b"; b's handler asks "a" before it answers. A must serve
    // that nested request while it waits for b's reply.
    Ref<MessagePort> toA;
    PortServer a(ZSTR("a"), echoWithPrefix("from a "));
    PortServer b(ZSTR("b"), [&toA](MessagePort*, int32_t, Data* data) {
        Ref<Data> inner;
        sendRequest(toA, 7, data, 5, 10, NSDefaultRunLoopMode, &inner);
        return dataOf("b saw [" + textOf(inner) + "]");
    });
    toA = MessagePort::createRemote(ZSTR("a"));
    std::promise<std::string> answer;
    a.loop()->performBlock({NSDefaultRunLoopMode}, [&] {
        auto toB = MessagePort::createRemote(ZSTR("b"));
        Ref<Data> reply;
        auto status = sendRequest(toB, 1, dataOf("ping"), 5, 10, NSDefaultRunLoopMode, &reply);
        answer.set_value(status == MessagePortStatus::Success ? textOf(reply) : "failed");
    });
    EXPECT_EQ(answer.get_future().get(), "b saw [from a 7:ping]");
}

TEST_F(MessagePortTest, AReplyReadByASendNestedInATimerEndsTheEnclosingWait)
{
    // The wait for a's reply is interrupted by a timer whose send to b waits in its turn; a's
    // reply arrives during that inner wait. The outer wait must end then, not at its timeout.
    std::promise<void> bReceived, aReplied;
    auto bReceivedFuture = bReceived.get_future().share();
    auto aRepliedFuture = aReplied.get_future().share();
    PortServer a(ZSTR("a"), [&](MessagePort*, int32_t, Data*) {
        bReceivedFuture.wait();
        // Runs after this callback has written the reply.
        RunLoop::currentRunLoop()->performBlock({NSDefaultRunLoopMode}, [&] { aReplied.set_value(); });
        return dataOf("from a");
    });
    PortServer b(ZSTR("b"), [&](MessagePort*, int32_t, Data*) {
        bReceived.set_value();
        aRepliedFuture.wait();
        return dataOf("from b");
    });
    auto toA = MessagePort::createRemote(ZSTR("a"));
    auto toB = MessagePort::createRemote(ZSTR("b"));
    Ref<Data> inner;
    auto timer = Timer::scheduledTimer(std::chrono::milliseconds(1), [&] {
        sendRequest(toB, 0, dataOf("b?"), 5, 200, NSDefaultRunLoopMode, &inner);
    });
    Ref<Data> outer;
    EXPECT_EQ(sendRequest(toA, 0, dataOf("a?"), 5, 200, NSDefaultRunLoopMode, &outer), MessagePortStatus::Success);
    EXPECT_EQ(textOf(outer), "from a");
    EXPECT_EQ(textOf(inner), "from b");
}

TEST_F(MessagePortTest, ASendNestedInALongWriteQueuesBehindIt)
{
    // The receiver is busy, so a 16 MiB request fills the socket and its sender waits for room;
    // a timer firing in that wait sends on the same port. Both frames must arrive whole.
    std::promise<void> release;
    auto released = release.get_future().share();
    PortServer server(ZSTR("slow reader"), [released](MessagePort*, int32_t messageId, Data* data) {
        if (messageId == 1)
            released.wait();
        return dataOf(std::to_string(messageId) + ":" + std::to_string(data->length()));
    });
    auto remote = MessagePort::createRemote(ZSTR("slow reader"));
    ASSERT_EQ(sendRequest(remote, 1, dataOf("hold"), 5, 0, nullptr, nullptr), MessagePortStatus::Success);
    Ref<Data> small;
    MessagePortStatus smallStatus = MessagePortStatus::TransportError;
    auto timer = Timer::scheduledTimer(std::chrono::milliseconds(1), [&] {
        release.set_value();
        smallStatus = sendRequest(remote, 3, dataOf("small"), 30, 30, NSDefaultRunLoopMode, &small);
    });
    Ref<Data> big;
    EXPECT_EQ(sendRequest(remote, 2, Data::dataWithVector(ByteVector(16 << 20, 7)), 30, 30,
                  NSDefaultRunLoopMode, &big),
        MessagePortStatus::Success);
    EXPECT_EQ(textOf(big), "2:16777216");
    EXPECT_EQ(smallStatus, MessagePortStatus::Success);
    EXPECT_EQ(textOf(small), "3:5");
}

TEST_F(MessagePortTest, OneWayFramesQueuedBehindAFullSocketArriveWholeAndInOrder)
{
    // A 4 MiB message fills the socket of a held receiver; the small messages of three threads
    // queue behind it and go out several to a write once it drains.
    HeldReceiver server(
        ZSTR("held"),
        [](int32_t messageId, Data* data) {
            return std::to_string(messageId) + ":" + std::to_string(data->length()) + ":"
                + (data->length() < 64 ? textOf(data) : "");
        },
        dataOf("ignored"));
    auto remote = MessagePort::createRemote(ZSTR("held"));
    ASSERT_EQ(sendRequest(remote, 1, dataOf("hold"), 5, 0, nullptr, nullptr), MessagePortStatus::Success);
    std::vector<std::thread> senders;
    senders.emplace_back([&] {
        auto big = Data::dataWithVector(ByteVector(4 << 20, 7));
        EXPECT_EQ(sendRequest(remote, 2, big, 30, 0, nullptr, nullptr), MessagePortStatus::Success);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // lets the large message go first
    for (int t = 3; t < 6; ++t)
        senders.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i)
                EXPECT_EQ(sendRequest(remote, t, dataOf(std::to_string(i)), 30, 0, nullptr, nullptr),
                    MessagePortStatus::Success);
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    server.release();
    for (auto& sender : senders)
        sender.join();
    Ref<Data> reply;
    EXPECT_EQ(
        sendRequest(remote, 9, dataOf("last"), 30, 30, NSDefaultRunLoopMode, &reply), MessagePortStatus::Success);
    const std::vector<std::string> received = server.received();
    ASSERT_EQ(received.size(), 303u);
    std::map<std::string, int> next;
    for (auto& entry : received) {
        std::string id = entry.substr(0, entry.find(':'));
        if (id == "1" || id == "2" || id == "9")
            continue;
        EXPECT_EQ(entry, id + ":" + std::to_string(std::to_string(next[id]).size()) + ":" + std::to_string(next[id]));
        ++next[id];
    }
    EXPECT_THAT(received, ::testing::Contains("2:4194304:"));
}

TEST_F(MessagePortTest, GarbageOversizedAndHalfFramesCloseOnlyTheirConnection)
{
    LogCapture capture;
    PortServer server(ZSTR("robust"), echoWithPrefix(""));
    std::string path = socketPathOf(ZSTR("robust"));
    auto remote = MessagePort::createRemote(ZSTR("robust"));
    auto roundTrip = [&] {
        Ref<Data> reply;
        return sendRequest(remote, 1, dataOf("ok"), 5, 10, NSDefaultRunLoopMode, &reply) == MessagePortStatus::Success
            && textOf(reply) == "1:ok";
    };

    int half = connectRaw(path);
    uint8_t header[kMessageFrameHeaderSize];
    encodeMessageFrameHeader({1000, 1, 0, MessageFrameReplyWanted}, header);
    ASSERT_EQ(::write(half, header, sizeof header), ssize_t(sizeof header));
    ASSERT_EQ(::write(half, "abc", 3), 3);
    EXPECT_TRUE(roundTrip()) << "a peer stuck in the middle of a frame must not stall the port";

    int garbage = connectRaw(path);
    ASSERT_EQ(::write(garbage, "GET / HTTP/1.1\r\n\r\n", 18), 18);
    char byte;
    EXPECT_EQ(::read(garbage, &byte, 1), 0) << "closed by the port";
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("sent something other than messages")));

    int huge = connectRaw(path);
    encodeMessageFrameHeader({0xffffffffu, 1, 0, MessageFrameReplyWanted}, header);
    ASSERT_EQ(::write(huge, header, sizeof header), ssize_t(sizeof header));
    EXPECT_EQ(::read(huge, &byte, 1), 0);
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("a message of 4294967295 bytes is over the limit")));

    EXPECT_TRUE(roundTrip());
    for (int fd : {half, garbage, huge})
        ::close(fd);
}

TEST_F(MessagePortTest, AnotherUserIsRefusedAndLogged)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to act as another user";
    passwd* nobody = ::getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    LogCapture capture;
    PortServer server(ZSTR("mine"), echoWithPrefix(""));
    std::string path = socketPathOf(ZSTR("mine"));
    // Open the way through the file system so that only the credential check stands.
    ::chmod(runtime_.path().c_str(), 0755);
    ::chmod((runtime_.path() + "/zon-ports").c_str(), 0711);
    ::chmod(path.c_str(), 0777);
    PeerProcess child;
    ASSERT_TRUE(child.runInChild([&] {
        if (::setuid(nobody->pw_uid) != 0)
            return 2;
        int fd = connectRaw(path);
        if (fd < 0)
            return 3;
        uint8_t header[kMessageFrameHeaderSize];
        encodeMessageFrameHeader({2, 1, 0, MessageFrameReplyWanted}, header);
        (void)!::send(fd, header, sizeof header, MSG_NOSIGNAL);
        (void)!::send(fd, "hi", 2, MSG_NOSIGNAL);
        char byte;
        return ::read(fd, &byte, 1) <= 0 ? 0 : 4; // closed without an answer
    }));
    int status = child.wait();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_THAT(capture.records(),
        ContainsLine(1, HasSubstr("refused a connection from user " + std::to_string(nobody->pw_uid))));
}

TEST_F(MessagePortTest, AMessageThatStallsClosesItsConnectionAndAnIdleOneStays)
{
    PortServer server(ZSTR("stall"), echoWithPrefix(""));
    ASSERT_TRUE(server.started());
    server.port()->setStalledMessageTimeout(MessagePortSeconds(0.2));
    const std::string path = socketPathOf(ZSTR("stall"));
    auto idle = connectToLocalSocket(path, std::chrono::seconds(5));
    auto stalling = connectToLocalSocket(path, std::chrono::seconds(5));
    ASSERT_TRUE(idle && stalling);
    uint8_t header[kMessageFrameHeaderSize + 3];
    encodeMessageFrameHeader({100, 1, 0, 0}, header);
    std::memcpy(header + kMessageFrameHeaderSize, "abc", 3);
    iovec part {header, sizeof header};
    ASSERT_EQ(sendParts(stalling.value().get(), {&part, 1}).value(), sizeof header);

    // The port shuts the stalled connection down: its end reads as ended.
    pollfd ended {stalling.value().get(), POLLIN, 0};
    ASSERT_EQ(::poll(&ended, 1, 10000), 1);
    uint8_t byte;
    EXPECT_EQ(readSome(stalling.value().get(), {&byte, 1}).value(), 0u);
    pollfd quiet {idle.value().get(), POLLIN, 0};
    EXPECT_EQ(::poll(&quiet, 1, 0), 0) << "a connection without a message in progress is left alone";
    Ref<Data> reply;
    EXPECT_EQ(sendRequest(MessagePort::createRemote(ZSTR("stall")).get(), 5, dataOf("still"), 5, 5, NSDefaultRunLoopMode,
                  &reply),
        MessagePortStatus::Success);
    EXPECT_EQ(textOf(reply), "5:still");
}

TEST_F(MessagePortTest, ALockFileThatCannotBeTakenSaysWhy)
{
    const std::string lockPath = messagePortPaths("locked").value().lockPath;
    ASSERT_EQ(::mkdir(lockPath.c_str(), 0700), 0);
    {
        LogCapture capture;
        EXPECT_EQ(createLocalPort(ZSTR("locked"), echoWithPrefix("")), nullptr);
        EXPECT_THAT(capture.records(), ContainsLine(2, HasSubstr("the lock file is a folder")));
    }
    ASSERT_EQ(::rmdir(lockPath.c_str()), 0);
    ASSERT_EQ(::symlink("/nowhere", lockPath.c_str()), 0);
    {
        LogCapture capture;
        EXPECT_EQ(createLocalPort(ZSTR("locked"), echoWithPrefix("")), nullptr);
        EXPECT_THAT(capture.records(), ContainsLine(2, HasSubstr("the lock file is a symbolic link")));
    }
    ASSERT_EQ(::unlink(lockPath.c_str()), 0);
    auto held = createLocalPort(ZSTR("locked"), echoWithPrefix(""));
    ASSERT_TRUE(held);
    LogCapture capture;
    EXPECT_EQ(createLocalPort(ZSTR("locked"), echoWithPrefix("")), nullptr);
    EXPECT_THAT(capture.records(), ContainsLine(3, HasSubstr("is held by a live process")));
}

TEST(MessagePortDirectory, AFolderOfAnotherUserNamesThatUserAndTheRemedy)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to give a folder to another user";
    test::PrivateRuntimeDirectory runtime;
    const std::string dir = runtime.path() + "/zon-ports";
    ASSERT_EQ(::mkdir(dir.c_str(), 0700), 0);
    ASSERT_EQ(::chown(dir.c_str(), 1, 1), 0);
    auto refused = messagePortDirectory();
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.error().text(), HasSubstr("belongs to user"));
    EXPECT_THAT(refused.error().text(), HasSubstr("(uid 1)"));
    EXPECT_THAT(refused.error().text(), HasSubstr("set XDG_RUNTIME_DIR"));
}
