#include "extensions/NSError+ZonExtensions.h"
#include "platform/io/MessageFrameInternal.h"
#include "platform/io/MessagePortDirectory.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/SocketCallsInternal.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/PeerProcess.h"
#include "support/PrivateRuntimeDirectory.h"
#include "support/Values.h"
#include "support/Watchdog.h"
#include "systemManagement/processManagement/TXZonIPCService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <thread>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// The peer program with arguments; its standard output comes back through a pipe.
PeerProcess startPeer(const std::vector<std::string>& arguments)
{
    return PeerProcess(ZON_IPC_PEER_PATH, arguments, {.captureOutput = true});
}

// Runs this thread's loop (so our service keeps answering) until the peer printed line.
bool waitForLine(PeerProcess& peer, const std::string& line)
{
    bool found = runLoopUntil([&] { return peer.printed(line); });
    if (!found)
        ADD_FAILURE() << "peer never printed \"" << line << "\"; it printed:\n" << testing::PrintToString(peer.lines());
    return found;
}

// A delegate that records every callback and answers strings with "answer:TEXT".
class Recorder final : public Object {
    ZON_OBJECT(Recorder, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("ipcService:didRecvString:", &Recorder::didRecvString);
        cls.exportMethod("ipcService:didEstablishConnectionToRemoteService:", &Recorder::established);
        cls.exportMethod("ipcService:didFailToEstablishConnectionToRemoteService:error:", &Recorder::failedToEstablish);
        cls.exportMethod("ipcService:didDisconnectFromRemoteService:", &Recorder::disconnectedFrom);
        cls.exportMethod("ipcService:didFailToSendString:toRemoteService:error:", &Recorder::failedToSend);
        cls.exportMethod("ipcService:didGetStringResponse:fromRemoteService:fromSentString:", &Recorder::gotResponse);
        cls.exportMethod(
            "ipcService:didGetDictionaryResponse:fromRemoteService:fromSentDictionary:", &Recorder::gotDictionary);
        cls.exportMethod("ipcServiceDidEstablishConnectionToRemoteService:", &Recorder::didEstablish);
        cls.exportMethod("ipcServiceDidDisconnectFromRemoteService:", &Recorder::didDisconnect);
    }
    static Ref<Recorder> recorder() { return makeObject<Recorder>(); }

    std::vector<std::string> events() const
    {
        std::lock_guard lock(mutex_);
        return events_;
    }
    bool saw(const std::string& event) const
    {
        auto all = events();
        return std::find(all.begin(), all.end(), event) != all.end();
    }
    void clear()
    {
        std::lock_guard lock(mutex_);
        events_.clear();
    }

private:
    Recorder() = default;
    void record(std::string event)
    {
        std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
    }
    Ref<String> didRecvString(TXZonIPCService*, String* string)
    {
        record("didRecvString " + utf8(string));
        return str("answer:" + utf8(string));
    }
    void established(TXZonIPCService*, String* name) { record("didEstablishConnectionTo " + utf8(name)); }
    void failedToEstablish(TXZonIPCService*, String* name, Error* error)
    {
        record("didFailToEstablishConnectionTo " + utf8(name) + " error " + std::to_string(error->code()));
    }
    void disconnectedFrom(TXZonIPCService*, String* name) { record("didDisconnectFrom " + utf8(name)); }
    void failedToSend(TXZonIPCService*, String* sent, String* remote, Error* error)
    {
        record(
            "didFailToSendString " + utf8(sent) + " to " + utf8(remote) + " error " + std::to_string(error->code()));
    }
    void gotResponse(TXZonIPCService*, String* response, String* remote, String* sent)
    {
        noteStackDepth();
        record("didGetStringResponse " + utf8(response) + " from " + utf8(remote) + " to " + utf8(sent));
    }
    void gotDictionary(TXZonIPCService*, Dictionary* response, String*, Dictionary*)
    {
        record("didGetDictionaryResponse " + utf8(dynamicCast<String>(response->objectForKey(ZSTR("note")))));
    }
    void didEstablish(TXZonIPCService*) { record("didEstablishConnection"); }
    void didDisconnect(TXZonIPCService* service)
    {
        record("didDisconnect remote " + utf8(service->remoteServiceName()));
    }

    // How far apart the stack frames of the callbacks were: nested callbacks lie ever deeper.
    void noteStackDepth()
    {
        const auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        std::lock_guard lock(mutex_);
        lowestFrame_ = std::min(lowestFrame_, frame);
        highestFrame_ = std::max(highestFrame_, frame);
    }

public:
    size_t stackSpread() const
    {
        std::lock_guard lock(mutex_);
        return highestFrame_ >= lowestFrame_ ? highestFrame_ - lowestFrame_ : 0;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> events_;
    uintptr_t lowestFrame_ = UINTPTR_MAX;
    uintptr_t highestFrame_ = 0;
};
ZON_DEFINE_CLASS(Recorder, "IPCTestRecorder")

class TXZonIPCServiceTest : public testing::Test {
protected:
    // A service on this thread, listening as "local", with a recorder as its delegate.
    Ref<TXZonIPCService> makeService(const char* name = "local")
    {
        auto service = TXZonIPCService::initWithLocalServiceName(str(name));
        if (service)
            service->setDelegate(recorder_);
        return service;
    }
    Ref<TXZonIPCService> connectedToPeer(PeerProcess& peer, const char* peerName = "peer")
    {
        EXPECT_TRUE(waitForLine(peer, "ready"));
        auto service = makeService();
        Ref<Error> error;
        EXPECT_TRUE(service->connectToRemoteServiceNamed_error(str(peerName), &error))
            << utf8(error ? error->description() : nullptr);
        EXPECT_TRUE(runLoopUntil([&] { return recorder_->saw("didEstablishConnection"); }));
        recorder_->clear();
        return service;
    }

    test::PrivateRuntimeDirectory runtime_;
    test::HangGuard guard_ {std::chrono::seconds(120)};
    Ref<Recorder> recorder_ = Recorder::recorder();
};

} // namespace

TEST_F(TXZonIPCServiceTest, HandshakeStartedHereConnectsBothWays)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    EXPECT_TRUE(waitForLine(peer, "event established"));
    EXPECT_TRUE(waitForLine(peer, "event established with local"));
    EXPECT_EQ(utf8(service->remoteServiceName()), "peer");
    EXPECT_TRUE(service->remoteServiceStarted());
    EXPECT_TRUE(service->connected());
    EXPECT_TRUE(service->disconnect());
    EXPECT_TRUE(waitForLine(peer, "event disconnected"));
    EXPECT_EQ(service->remoteServiceName(), nullptr);
    EXPECT_FALSE(service->remoteServiceStarted());
}

TEST_F(TXZonIPCServiceTest, HandshakeStartedByThePeerTellsTheDelegateTwoWaysInOrder)
{
    auto service = makeService();
    auto peer = startPeer({"connect", "peer", "local"});
    EXPECT_TRUE(waitForLine(peer, "connected"));
    EXPECT_TRUE(runLoopUntil([&] { return recorder_->saw("didEstablishConnectionTo peer"); }));
    EXPECT_THAT(recorder_->events(), ElementsAre("didEstablishConnection", "didEstablishConnectionTo peer"));
    EXPECT_TRUE(waitForLine(peer, "event established"));
    EXPECT_EQ(utf8(service->remoteServiceName()), "peer");
}

TEST_F(TXZonIPCServiceTest, RefusesConnectionsWhileConnectedAndAfterAFailedOpen)
{
    LogCapture capture;
    auto first = startPeer({"serve", "peer"});
    auto service = connectedToPeer(first);
    auto second = startPeer({"connect", "second", "local"});
    EXPECT_TRUE(waitForLine(second, "connect failed 2"));
    EXPECT_EQ(utf8(service->remoteServiceName()), "peer");

    Ref<Error> error;
    EXPECT_FALSE(service->startConnectionTo_error(ZSTR("second"), &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 0);
    EXPECT_EQ(utf8(error->localizedDescription()),
        "Already connected to a client, must disconnect from client to establish new connection");
    EXPECT_THAT(capture.records(),
        ContainsLine(1, "Failed to establish connection to 'second' as currently connected to 'peer'"));

    auto lonely = makeService("lonely");
    EXPECT_FALSE(lonely->connectToRemoteServiceNamed_error(ZSTR("nobody"), &error));
    EXPECT_EQ(error->code(), 4);
    EXPECT_EQ(utf8(error->localizedDescription()), "Failed to get client servicePort");
    EXPECT_TRUE(lonely->remoteServiceStarted());
    auto third = startPeer({"connect", "third", "lonely"});
    EXPECT_TRUE(waitForLine(third, "connect failed 2"));
}

TEST_F(TXZonIPCServiceTest, SendsEveryKindInEveryStyle)
{
    LogCapture capture;
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    Ref<Error> error;

    EXPECT_EQ(utf8(service->sendString_error(ZSTR("ping"), &error)), "pong");

    auto dictionary = service->sendDictionary_withResponseTimeout_error(
        Dictionary::dictionaryWithObject_forKey(ZSTR("v"), ZSTR("k")), 30, &error);
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(utf8(dictionary->objectForKey<String>(ZSTR("note"))), "from peer");
    auto echoed = dictionary->objectForKey<Dictionary>(ZSTR("echo"));
    ASSERT_TRUE(echoed);
    EXPECT_EQ(utf8(echoed->objectForKey<String>(ZSTR("k"))), "v");

    // A data request gets the property-list bytes of the dictionary the peer answered.
    auto data = service->sendData_error(Data::dataWithBytes("abc", 3), &error);
    ASSERT_TRUE(data);
    std::string xml(static_cast<const char*>(data->bytes()), data->length());
    EXPECT_THAT(xml, HasSubstr("<key>__TXZonIPCPacketInternalNSValueEncoding__</key>"));
    EXPECT_THAT(xml, HasSubstr("<integer>3</integer>"));

    EXPECT_TRUE(service->sendOnewayString_error(ZSTR("one way"), &error));
    EXPECT_TRUE(waitForLine(peer, "string one way"));
    EXPECT_TRUE(service->sendOnewayString_withResponseTimeout_error(ZSTR("two"), 5.0, &error));
    EXPECT_THAT(capture.records(),
        ContainsLine(
            2, "Received Response Packet: Packet Type: Data (String) Size: 8 when no packet response was expected"));

    service->sendString(ZSTR("later"));
    service->sendDictionary(Dictionary::dictionary());
    EXPECT_TRUE(runLoopUntil([&] { return recorder_->saw("didGetDictionaryResponse from peer"); }));
    EXPECT_TRUE(recorder_->saw("didGetStringResponse echo:later from peer to later"));

    service->disconnect();
    service->sendString(ZSTR("lost"));
    EXPECT_TRUE(runLoopUntil([&] { return recorder_->saw("didFailToSendString lost to (nil) error 1"); }));
    EXPECT_EQ(service->sendString_error(ZSTR("lost"), &error), nullptr);
    EXPECT_EQ(error->code(), 1);
}

TEST_F(TXZonIPCServiceTest, CarriesMessagesFromEmptyToSixteenMegabytes)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    for (size_t size : {size_t(0), size_t(1), size_t(1024), size_t(65536), size_t(4) << 20, size_t(16) << 20}) {
        Ref<Error> error;
        auto reply = service->sendData_error(Data::dataWithVector(ByteVector(size, 0x5a)), &error);
        ASSERT_TRUE(reply) << size;
        std::string xml(static_cast<const char*>(reply->bytes()), reply->length());
        EXPECT_THAT(xml, HasSubstr("<integer>" + std::to_string(size) + "</integer>"));
    }
}

TEST_F(TXZonIPCServiceTest, StringsOfEveryLengthAndScriptArriveIntact)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    // Short text is encoded on the stack and long text into data: both sides of the limit, with
    // characters of every UTF-8 length. (The peer prints each request to a pipe we read only
    // between sends, so the texts stay well below a pipe's 64 KiB.)
    std::string texts[] = {"", "x", "héllo 日本 😀", std::string(256, 'a'), std::string(257, 'b'), "",
        std::string(20000, 'c') + "é"};
    for (int i = 0; i < 256; ++i)
        texts[5] += "日";
    for (const std::string& sent : texts)
        EXPECT_EQ(utf8(service->sendString_error(str(sent), nullptr)), "echo:" + sent) << sent.size();
    const char16_t lone[] = {u'a', 0xD800, u'z'};
    EXPECT_EQ(utf8(service->sendString_error(String::stringWithCharacters(lone, 3), nullptr)), "echo:a\uFFFDz")
        << "a lone surrogate travels as U+FFFD";
}

TEST_F(TXZonIPCServiceTest, ADelegateWithoutAnswersAndUnknownTypesGiveNoReplyAndNoError)
{
    auto peer = startPeer({"serve", "peer", "silent"});
    auto service = connectedToPeer(peer);
    LogCapture capture;
    Ref<Error> error;
    EXPECT_EQ(service->sendString_error(ZSTR("anyone?"), &error), nullptr);
    EXPECT_EQ(error, nullptr);
    // No packet object is made for a string or data; the lines read as if one had been.
    EXPECT_THAT(capture.records(), ContainsLine(5, "Sending Packet: Packet Type: Data (String) Size: 7"));
    EXPECT_THAT(capture.records(),
        ContainsLine(2,
            "Did not receive response packet when one was expected -- sent Packet Type: Data (String) Size: 7"));
    EXPECT_EQ(service->sendData_error(Data::dataWithBytes("abc", 3), &error), nullptr);
    EXPECT_THAT(capture.records(), ContainsLine(5, "Sending Packet: Packet Type: Data Size: 3"));
    Ref<TXZonIPCPacket> reply = TXZonIPCPacket::pingPacket();
    EXPECT_TRUE(service->sendPacket_withResponse_error(
        TXZonIPCPacket::initWithData_ofType(Data::dataWithBytes("x", 1), 6), &reply, &error));
    EXPECT_EQ(reply, nullptr);
    EXPECT_TRUE(service->connected()) << "the peer still answers pings";
}

TEST_F(TXZonIPCServiceTest, ThePeersDisconnectClosesTheLinkBeforeTheCallback)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    EXPECT_EQ(utf8(service->sendString_error(ZSTR("disconnect"), nullptr)), "bye");
    EXPECT_TRUE(runLoopUntil([&] { return !recorder_->events().empty(); }));
    EXPECT_THAT(recorder_->events(), ElementsAre("didDisconnect remote (nil)"));
    EXPECT_FALSE(service->remoteServiceStarted());
}

TEST_F(TXZonIPCServiceTest, AKilledPeerIsNoticedByThePingAndALaterOneCanConnect)
{
    LogCapture capture;
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    peer.stop();
    EXPECT_TRUE(runLoopUntil([&] { return service->remoteServiceName() == nullptr; }, NSDefaultRunLoopMode,
        std::chrono::seconds(15)));
    EXPECT_THAT(capture.records(), ContainsLine(2, "Was connected to 'peer', but can no longer communicate"));
    EXPECT_TRUE(recorder_->events().empty()) << "the delegate is not told";

    peer = startPeer({"serve", "peer"});
    EXPECT_TRUE(waitForLine(peer, "ready"));
    Ref<Error> error;
    EXPECT_TRUE(service->connectToRemoteServiceNamed_error(ZSTR("peer"), &error));
    EXPECT_EQ(utf8(service->sendString_error(ZSTR("ping"), &error)), "pong");
}

TEST_F(TXZonIPCServiceTest, NestedAndSimultaneousSendsBetweenServiceThreadsComplete)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    // The peer's handler sends to us while we wait for its reply.
    EXPECT_EQ(utf8(service->sendString_error(ZSTR("send-back:hello"), nullptr)), "got:answer:hello");

    // Both service threads send synchronously to each other at once.
    EXPECT_EQ(utf8(service->sendString_error(ZSTR("race:50"), nullptr)), "ok");
    int answered = 0;
    for (int i = 0; i < 50; ++i)
        answered += utf8(service->sendString_error(str("mine " + std::to_string(i)), nullptr))
            == "echo:mine " + std::to_string(i);
    EXPECT_EQ(answered, 50);
    EXPECT_TRUE(waitForLine(peer, "race done 50"));
}

TEST_F(TXZonIPCServiceTest, ConcurrentSendsFromSeveralThreadsEachGetTheirOwnReply)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    std::atomic<int> wrong {0};
    std::vector<std::thread> senders;
    for (int t = 0; t < 4; ++t)
        senders.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                std::string body = std::to_string(t) + "." + std::to_string(i);
                if (utf8(service->sendString_error(str(body), nullptr)) != "echo:" + body)
                    ++wrong;
            }
        });
    for (auto& sender : senders)
        sender.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(TXZonIPCServiceTest, ANameHeldByALiveProcessIsRefusedAndOneOfADeadProcessIsNot)
{
    LogCapture capture;
    auto owner = startPeer({"serve", "taken"});
    ASSERT_TRUE(waitForLine(owner, "ready"));
    EXPECT_EQ(TXZonIPCService::initWithLocalServiceName(ZSTR("taken")), nullptr);
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("Cannot create service taken due to")));
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("Failed to get servicePort")));
    owner.stop();
    EXPECT_NE(TXZonIPCService::initWithLocalServiceName(ZSTR("taken")), nullptr);
}

TEST_F(TXZonIPCServiceTest, StrangeBytesOnThePeersSocketDoNotDisturbIt)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    auto found = messagePortPaths("peer");
    ASSERT_TRUE(found);
    const MessagePortPaths paths = found.value();
    std::vector<int> strangers;
    for (std::string bytes :
        { std::string("garbage that is no frame"), std::string("\xff\xff\xff\xff", 4) + std::string(12, 'x') }) {
        int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, paths.socketPath.c_str());
        ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), ssize_t(bytes.size()));
        strangers.push_back(fd);
    }
    EXPECT_EQ(utf8(service->sendString_error(ZSTR("ping"), nullptr)), "pong");
    for (int fd : strangers)
        ::close(fd);
}

// ---- Hostile peers of the same user ----

// A peer program whose process runs under a resource limit.
PeerProcess startLimitedPeer(int resource, rlim_t limit)
{
    return PeerProcess(ZON_IPC_PEER_PATH, {"serve", "peer"},
        {.captureOutput = true, .beforeExec = [resource, limit] {
             rlimit value {limit, limit};
             ::setrlimit(resource, &value);
         }});
}

// A figure of the peer's /proc status ("VmRSS", "VmSize") in KiB.
size_t peerStatusKiB(const PeerProcess& peer, const std::string& field)
{
    auto file = openFile("/proc/" + std::to_string(peer.pid()) + "/status", O_RDONLY);
    auto text = file ? readToEnd(file.value().get(), 1 << 20) : SystemResult<std::string>(file.error());
    if (!text)
        return 0;
    const size_t at = text.value().find(field + ":");
    return at == std::string::npos ? 0 : std::stoul(text.value().substr(at + field.size() + 1));
}

TEST_F(TXZonIPCServiceTest, IdleConnectionsCannotTakeTheDescriptorsTheServiceNeeds)
{
    // 300 idle connections against a limit of 256 descriptors: the peer keeps some in reserve,
    // so our connection is accepted, its connection back to us is made, and it answers.
    auto peer = startLimitedPeer(RLIMIT_NOFILE, 256);
    ASSERT_TRUE(waitForLine(peer, "ready"));
    const std::string path = messagePortPaths("peer").value().socketPath;
    std::vector<FileDescriptor> idle;
    for (int i = 0; i < 300; ++i)
        if (auto connection = connectToLocalSocket(path, std::chrono::seconds(5)))
            idle.push_back(std::move(connection).value());
    EXPECT_EQ(idle.size(), 300u);
    auto service = connectedToPeer(peer);
    EXPECT_EQ(utf8(service->sendString_error(ZSTR("ping"), nullptr)), "pong");
}

TEST_F(TXZonIPCServiceTest, HeadersAnnouncingHugeMessagesCostOnlyWhatArrives)
{
    // 200 connections each announce 256 MiB and send a few bytes. Under a 4 GiB address-space
    // limit the peer must stay small and keep serving.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    auto peer = startPeer({"serve", "peer"}); // the sanitizers need their own address space
#else
    auto peer = startLimitedPeer(RLIMIT_AS, rlim_t(4) << 30);
#endif
    auto service = connectedToPeer(peer);
    const std::string path = messagePortPaths("peer").value().socketPath;
    std::vector<FileDescriptor> stalled;
    uint8_t frame[kMessageFrameHeaderSize + 100] {};
    encodeMessageFrameHeader({kMessageFrameMaxLength, 1, 0, MessageFrameReplyWanted}, frame);
    for (int i = 0; i < 200; ++i) {
        auto connection = connectToLocalSocket(path, std::chrono::seconds(5));
        ASSERT_TRUE(connection);
        iovec part {frame, sizeof frame};
        ASSERT_TRUE(sendParts(connection.value().get(), {&part, 1}));
        stalled.push_back(std::move(connection).value());
    }
    EXPECT_EQ(utf8(service->sendString_error(ZSTR("ping"), nullptr)), "pong");
    EXPECT_LT(peerStatusKiB(peer, "VmRSS"), 256u * 1024);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(peerStatusKiB(peer, "VmSize"), 2u * 1024 * 1024);
#endif
}

// ---- Within one process ----

TEST_F(TXZonIPCServiceTest, PrimitiveSendFailuresCarryTheirCodes)
{
    auto service = makeService();
    LogCapture capture;
    Ref<Error> error;
    EXPECT_FALSE(service->sendPacket_withResponse_error(TXZonIPCPacket::pingPacket(), nullptr, &error));
    EXPECT_EQ(error->code(), 1);
    EXPECT_EQ(error->domain()->UTF8String(), "ZonErrorDomain");
    EXPECT_TRUE(capture.records().empty()) << "nothing is logged or sent when not connected";

    // A link to ourselves is enough to reach the nil-packet check.
    ASSERT_TRUE(service->startConnectionTo_error(ZSTR("local"), &error));
    EXPECT_FALSE(service->sendPacket_withResponse_error(nullptr, nullptr, &error));
    EXPECT_EQ(error->code(), 3);
    EXPECT_EQ(service->sendDictionary_error(nullptr, &error), nullptr);
    EXPECT_EQ(error->code(), 3);
    service->stopClientService();
}

TEST_F(TXZonIPCServiceTest, TheDispatcherAnswersUnknownTypesWithNothing)
{
    LogCapture capture;
    auto service = makeService();
    EXPECT_EQ(service->handlePacket(TXZonIPCPacket::initWithData_ofType(Data::data(), 6)), nullptr);
    EXPECT_EQ(service->handlePacket(TXZonIPCPacket::initWithData_ofType(Data::data(), -3)), nullptr);
    EXPECT_THAT(capture.records(), ContainsLine(2, "Unknown Packet Type being handled: 6"));
    EXPECT_THAT(capture.records(), ContainsLine(2, "Unknown Packet Type being handled: -3"));
    EXPECT_THAT(capture.records(), ContainsLine(5, "Responding With Packet: Nothing"));
    auto ping = service->handlePacket(TXZonIPCPacket::pingPacket());
    ASSERT_TRUE(ping);
    EXPECT_EQ(ping->type(), 1);
}

TEST_F(TXZonIPCServiceTest, AOneWayRequestsAnswerIsStillLoggedAtTheDetailLevel)
{
    // A link to ourselves: the request is handled by this thread's loop. Nobody reads the reply,
    // but the detail line describes it, so it is built.
    auto service = makeService();
    LogCapture capture;
    ASSERT_TRUE(service->startConnectionTo_error(ZSTR("local"), nullptr));
    EXPECT_TRUE(service->sendOnewayString_error(ZSTR("hi"), nullptr));
    EXPECT_TRUE(runLoopUntil([&] { return recorder_->saw("didRecvString hi"); }));
    EXPECT_THAT(capture.records(), ContainsLine(5, "Responding With Packet: Packet Type: Data (String) Size: 9"));
    service->stopClientService();
}

TEST_F(TXZonIPCServiceTest, ConnectionCallbacksReachTheDelegateInTheirForwardingOrder)
{
    auto service = makeService();
    service->ipcService_didEstablishConnectionToRemoteService(service, ZSTR("x"));
    service->ipcService_didDisconnectFromRemoteService(service, ZSTR("y"));
    EXPECT_THAT(recorder_->events(),
        ElementsAre("didEstablishConnection", "didEstablishConnectionTo x", "didDisconnect remote (nil)",
            "didDisconnectFrom y"));
    service->setDelegate(nullptr);
    EXPECT_EQ(service->ipcService_didRecvString(service, ZSTR("z")), nullptr);
}

TEST_F(TXZonIPCServiceTest, AsynchronousSendsRunOneAtATimeInTheOrderQueued)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    // The first is answered after 1.5 s; the second is queued 0.3 s in, from another thread, while
    // the first waits; the third makes the peer send a request back here inside its handler, which
    // must be served while that send waits.
    service->sendString(str("slow:1500:first"));
    std::thread later([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        service->sendString(str("second"));
        service->sendString(str("send-back:hello"));
    });
    EXPECT_TRUE(runLoopUntil([&] { return recorder_->events().size() == 4; }));
    later.join();
    EXPECT_THAT(recorder_->events(),
        ElementsAre("didGetStringResponse echo:first from peer to slow:1500:first",
            "didGetStringResponse echo:second from peer to second", "didRecvString hello",
            "didGetStringResponse got:answer:hello from peer to send-back:hello"));
}

TEST_F(TXZonIPCServiceTest, ABurstOfQueuedSendsIsAnsweredInOrderOnAFlatStack)
{
    auto peer = startPeer({"serve", "peer"});
    auto service = connectedToPeer(peer);
    constexpr int kSends = 10000;
    ASSERT_TRUE(service->sendString_error(str("quiet"), nullptr));
    // The peer holds the first for a while, so the rest queue up behind it.
    service->sendString(str("slow:300:0"));
    for (int i = 1; i < kSends; ++i)
        service->sendString(str(std::to_string(i)));
    EXPECT_TRUE(runLoopUntil(
        [&] { return recorder_->events().size() == kSends; }, NSDefaultRunLoopMode, std::chrono::seconds(100)));
    const auto events = recorder_->events();
    ASSERT_EQ(events.size(), size_t(kSends));
    for (int i = 1; i < kSends; ++i)
        ASSERT_EQ(events[i], "didGetStringResponse echo:" + std::to_string(i) + " from peer to " + std::to_string(i));
    // Each callback ran at the same depth: no send started inside another's wait.
    EXPECT_LT(recorder_->stackSpread(), 64u * 1024);
}
