#include "IPCBenchmarkSupport.h"

#include "platform/io/MessagePort.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonIPCService.h"

#include <sched.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>

namespace zon::bench::ipc {

using namespace std::chrono_literals;

// ---- Framing ----

bool readFully(int fd, void* buffer, size_t length)
{
    auto* p = static_cast<char*>(buffer);
    while (length) {
        ssize_t n = ::read(fd, p, length);
        if (n <= 0)
            return false;
        p += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

bool writeFrame(int fd, uint32_t header, const void* payload, size_t length)
{
    iovec parts[2] = {{&header, 4}, {const_cast<void*>(payload), length}};
    size_t total = 4 + length;
    msghdr message {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    while (total) {
        ssize_t n = ::sendmsg(fd, &message, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        total -= static_cast<size_t>(n);
        while (n > 0) { // advance the iovecs past what was written
            size_t step = std::min<size_t>(n, message.msg_iov->iov_len);
            message.msg_iov->iov_base = static_cast<char*>(message.msg_iov->iov_base) + step;
            message.msg_iov->iov_len -= step;
            n -= static_cast<ssize_t>(step);
            if (message.msg_iov->iov_len == 0) {
                ++message.msg_iov;
                --message.msg_iovlen;
            }
        }
    }
    return true;
}

namespace {

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

} // namespace

int connectUnix(const std::string& path)
{
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    auto address = addressOf(path);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return fd;
    ::close(fd);
    return -1;
}

// ---- The servers ----

namespace {

[[noreturn]] void serveBare(const std::string& path)
{
    int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    auto address = addressOf(path);
    ::unlink(path.c_str());
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(listener, 8);
    std::vector<char> buffer;
    for (;;) {
        int fd = ::accept(listener, nullptr, nullptr);
        uint32_t header;
        while (readFully(fd, &header, 4)) {
            buffer.resize(header & ~kOneWayBit);
            if (!readFully(fd, buffer.data(), buffer.size()))
                break;
            if (!(header & kOneWayBit))
                writeFrame(fd, header, buffer.data(), buffer.size());
        }
        ::close(fd);
    }
}

[[noreturn]] void servePort(const std::string& name)
{
    auto port = MessagePort::createLocal(String::stringWithUTF8String(name), 0,
        [](MessagePort*, int32_t, MessagePortMessage request, bool) { return request; });
    if (!port || !port->scheduleInRunLoop(RunLoop::currentRunLoop(), NSDefaultRunLoopMode))
        std::exit(1);
    RunLoop::currentRunLoop()->run();
    std::exit(0);
}

// Strings come back as they are. A data request is answered with a dictionary (the reply of the
// data kind is always one), holding the bytes that came: its reply carries them back as the
// base64 of an XML property list.
class EchoDelegate final : public Object {
    ZON_OBJECT(EchoDelegate, Object)
public:
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("ipcService:didRecvString:", &EchoDelegate::echoString);
        cls.exportMethod("ipcService:didRecvData:", &EchoDelegate::echoData);
    }
    Ref<String> echoString(TXZonIPCService*, String* string) { return Ref<String>(string); }
    Ref<Dictionary> echoData(TXZonIPCService*, Data* data)
    {
        return Dictionary::dictionaryWithObject_forKey(data, ZSTR("echo"));
    }

private:
    EchoDelegate() = default;
};
ZON_DEFINE_CLASS(EchoDelegate, "BenchmarkEchoDelegate")

[[noreturn]] void serveService(const std::string& name)
{
    auto service = TXZonIPCService::initWithLocalServiceName(String::stringWithUTF8String(name));
    if (!service)
        std::exit(1);
    auto delegate = makeObject<EchoDelegate>();
    service->setDelegate(delegate);
    RunLoop::currentRunLoop()->run();
    std::exit(0);
}

} // namespace

bool serveOwnRole(const std::string& role, const std::string& address)
{
    if (role == "bare")
        serveBare(address);
    if (role == "port")
        servePort(address);
    if (role == "service")
        serveService(address);
    return false;
}

// ---- Peers and pinning ----

namespace {
std::string self;
std::string scratch;
} // namespace

const std::string& selfPath() { return self; }
const std::string& scratchFolder() { return scratch; }

void setUpRun()
{
    self = "/proc/self/exe";
    char resolved[4096];
    if (ssize_t n = ::readlink("/proc/self/exe", resolved, sizeof resolved - 1); n > 0)
        self.assign(resolved, static_cast<size_t>(n));
    char pattern[] = "/tmp/zon-ipc-bench-XXXXXX";
    scratch = ::mkdtemp(pattern);
    ::setenv("XDG_RUNTIME_DIR", scratch.c_str(), 1);
}

bool tearDownRun()
{
    std::string cleanup = "rm -rf '" + scratch + "'";
    return std::system(cleanup.c_str()) == 0;
}

void pinTo(pid_t pid, bool pinned)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    unsigned count = std::thread::hardware_concurrency();
    for (unsigned cpu = 0; cpu < (pinned ? 1u : count); ++cpu)
        CPU_SET(cpu, &set);
    ::sched_setaffinity(pid, sizeof set, &set);
}

void startSelf(test::PeerProcess& peer, const std::vector<std::string>& arguments, bool pinned)
{
    peer.start(self, arguments, {.beforeExec = [pinned] { pinTo(0, pinned); }});
}

// ---- The own rig: the three servers and a client of each, per pinning mode ----

namespace {

struct OwnRig {
    test::PeerProcess bare, port, service;
    int bareFd = -1;
    Ref<MessagePort> remotePort;
    Ref<TXZonIPCService> client;
};

OwnRig rigs[2]; // unpinned, pinned

} // namespace

void startOwn(bool pinned)
{
    OwnRig& rig = rigs[pinned];
    std::string tag = pinned ? "pinned" : "unpinned";
    pinTo(0, pinned);
    std::string barePath = scratch + "/bare-" + tag;
    startSelf(rig.bare, {"--serve", "bare", barePath}, pinned);
    startSelf(rig.port, {"--serve", "port", "bench-port-" + tag}, pinned);
    startSelf(rig.service, {"--serve", "service", "bench-service-" + tag}, pinned);
    rig.bareFd = retry([&] { return connectUnix(barePath) + 1; }) - 1;
    rig.remotePort
        = retry([&] { return MessagePort::createRemote(String::stringWithUTF8String("bench-port-" + tag)); });
    rig.client = TXZonIPCService::initWithLocalServiceName(String::stringWithUTF8String("bench-client-" + tag));
    retry([&] {
        return rig.client->connectToRemoteServiceNamed_error(
            String::stringWithUTF8String("bench-service-" + tag), nullptr);
    });
}

void stopOwn(bool pinned)
{
    OwnRig& rig = rigs[pinned];
    rig.client->disconnect();
    rig.client = nullptr;
    rig.remotePort = nullptr;
    ::close(rig.bareFd);
    rig.bare.stop();
    rig.port.stop();
    rig.service.stop();
}

TXZonIPCService* ownServiceClient(bool pinned) { return rigs[pinned].client; }

// ---- The own benchmarks ----

namespace {

void BM_BareRoundTrip(benchmark::State& state, bool pinned)
{
    std::vector<char> payload(state.range(0), 'x'), reply(state.range(0));
    int fd = rigs[pinned].bareFd;
    for (auto _ : state) {
        uint32_t header;
        if (!writeFrame(fd, static_cast<uint32_t>(payload.size()), payload.data(), payload.size())
            || !readFully(fd, &header, 4) || !readFully(fd, reply.data(), header))
            state.SkipWithError("bare peer failed");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
}

MessagePortRequest portRequest(Data* payload, MessagePortReplyWait reply)
{
    return {.messageId = 0, .message = HeldBytes(Ref<Data>(payload)), .sendTimeout = 200s, .reply = reply};
}

void BM_PortRoundTrip(benchmark::State& state, bool pinned)
{
    auto payload = Data::dataWithVector(zon::ByteVector(state.range(0), 'x'));
    MessagePort* port = rigs[pinned].remotePort;
    for (auto _ : state) {
        if (port->send(portRequest(payload, MessagePortReplyWait::inMode(NSDefaultRunLoopMode, 200s))).status
            != MessagePortStatus::Success)
            state.SkipWithError("port peer failed");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
}

// Times synchronous service sends: send(client) sends one message and answers its reply.
template <class Send>
void timeServiceRoundTrips(benchmark::State& state, bool pinned, Send send)
{
    TXZonIPCService* client = rigs[pinned].client;
    for (auto _ : state) {
        AutoreleasePool pool;
        if (!send(client))
            state.SkipWithError("service peer failed");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
}

void BM_ServiceRoundTrip(benchmark::State& state, bool pinned)
{
    auto payload = String::stringWithUTF8String(std::string(state.range(0), 'x'));
    timeServiceRoundTrips(
        state, pinned, [&](TXZonIPCService* client) { return client->sendString_error(payload, nullptr); });
}

// The data kind: raw bytes out, no text conversion; the reply is the property list of the
// dictionary the peer answered, which holds the bytes (see EchoDelegate).
void BM_ServiceDataRoundTrip(benchmark::State& state, bool pinned)
{
    auto payload = Data::dataWithVector(zon::ByteVector(state.range(0), 'x'));
    timeServiceRoundTrips(
        state, pinned, [&](TXZonIPCService* client) { return client->sendData_error(payload, nullptr); });
}

// One-way: the clock stops only once the peer has handled everything (a final round trip).
void BM_BareOneWay(benchmark::State& state, bool pinned)
{
    char payload[4] = {};
    int fd = rigs[pinned].bareFd;
    for (auto _ : state)
        writeFrame(fd, 4 | kOneWayBit, payload, 4);
    uint32_t header;
    char reply[4];
    writeFrame(fd, 4, payload, 4);
    readFully(fd, &header, 4);
    readFully(fd, reply, 4);
    state.SetItemsProcessed(state.iterations());
}

void BM_PortOneWay(benchmark::State& state, bool pinned)
{
    auto payload = Data::dataWithBytes("xxxx", 4);
    MessagePort* port = rigs[pinned].remotePort;
    for (auto _ : state)
        port->send(portRequest(payload, MessagePortReplyWait::none()));
    port->send(portRequest(payload, MessagePortReplyWait::inMode(NSDefaultRunLoopMode, 200s)));
    state.SetItemsProcessed(state.iterations());
}

// Times one-way service sends (send(client) sends one), ended by a round trip.
template <class Send>
void timeServiceOneWay(benchmark::State& state, bool pinned, Send send)
{
    TXZonIPCService* client = rigs[pinned].client;
    for (auto _ : state) {
        AutoreleasePool pool;
        send(client);
    }
    client->sendString_error(ZSTR("xxxx"), nullptr);
    state.SetItemsProcessed(state.iterations());
}

void BM_ServiceOneWay(benchmark::State& state, bool pinned)
{
    timeServiceOneWay(
        state, pinned, [](TXZonIPCService* client) { client->sendOnewayString_error(ZSTR("xxxx"), nullptr); });
}

void BM_ServiceDataOneWay(benchmark::State& state, bool pinned)
{
    auto payload = Data::dataWithBytes("xxxx", 4);
    timeServiceOneWay(
        state, pinned, [&](TXZonIPCService* client) { client->sendOnewayData_error(payload, nullptr); });
}

} // namespace

std::string nameOf(const std::string& kind, bool pinned, size_t size)
{
    std::string name = kind;
    name += pinned ? "/pinned" : "/unpinned";
    if (size) {
        name += '/';
        name += std::to_string(size);
    }
    return name;
}

benchmark::internal::Benchmark* repeatedOneWay(benchmark::internal::Benchmark* benchmark)
{
    return benchmark->Repetitions(kOneWayRepetitions)->ReportAggregatesOnly(true);
}

void initializeWithInterleaving(int* argc, char** argv)
{
    std::vector<char*> arguments(argv, argv + *argc);
    static char interleaving[] = "--benchmark_enable_random_interleaving=true";
    const bool given = std::any_of(arguments.begin(), arguments.end(),
        [](const char* argument) { return std::strstr(argument, "random_interleaving") != nullptr; });
    if (!given)
        arguments.insert(arguments.begin() + 1, interleaving);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
}

void registerOwn(bool pinned)
{
    for (size_t size : kSizes) {
        // The benchmark library appends the size to each name.
        auto arg = static_cast<int64_t>(size);
        benchmark::RegisterBenchmark(nameOf("BareRoundTrip", pinned).c_str(), BM_BareRoundTrip, pinned)->Arg(arg);
        benchmark::RegisterBenchmark(nameOf("PortRoundTrip", pinned).c_str(), BM_PortRoundTrip, pinned)->Arg(arg);
        benchmark::RegisterBenchmark(nameOf("ServiceRoundTrip", pinned).c_str(), BM_ServiceRoundTrip, pinned)
            ->Arg(arg);
        benchmark::RegisterBenchmark(nameOf("ServiceDataRoundTrip", pinned).c_str(), BM_ServiceDataRoundTrip, pinned)
            ->Arg(arg);
    }
    repeatedOneWay(benchmark::RegisterBenchmark(nameOf("BareOneWay", pinned).c_str(), BM_BareOneWay, pinned));
    repeatedOneWay(benchmark::RegisterBenchmark(nameOf("PortOneWay", pinned).c_str(), BM_PortOneWay, pinned));
    repeatedOneWay(benchmark::RegisterBenchmark(nameOf("ServiceOneWay", pinned).c_str(), BM_ServiceOneWay, pinned));
    repeatedOneWay(
        benchmark::RegisterBenchmark(nameOf("ServiceDataOneWay", pinned).c_str(), BM_ServiceDataOneWay, pinned));
}

// ---- Running and reporting ----

void runPinnedThenUnpinned(TimeReporter& reporter, const std::string& kinds, const std::function<void(bool)>& start,
    const std::function<void(bool)>& stop)
{
    // The peers are pinned or released when they start, so each mode gets its own set of them.
    for (bool pinned : {true, false}) {
        start(pinned);
        benchmark::RunSpecifiedBenchmarks(&reporter, "^(" + kinds + ")[A-Za-z]*" + (pinned ? "/pinned" : "/unpinned"));
        stop(pinned);
    }
}

} // namespace zon::bench::ipc
