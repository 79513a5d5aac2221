// Round trips and one-way rates between two processes: the message port, the whole IPC service,
// and the floor, a bare Unix stream socket ping-pong written here with the same framing work a
// minimal echo needs (a 4-byte length, one writev, blocking reads). Each is measured with both
// processes pinned to one CPU and unpinned, and the ratios to the floor are printed at the end.
//
// The peers are this program started again in a server role:
//   IPCBenchmarks --serve bare PATH | port NAME | service NAME
// Extra run:
//   IPCBenchmarks --soak N     N synchronous service messages, resident memory along the way

#include "platform/io/MessagePort.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonIPCService.h"

#include <benchmark/benchmark.h>

#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace zon;

namespace {

constexpr uint32_t kOneWayBit = 0x80000000u;
const size_t kSizes[] = {4, 1024, 64 * 1024, 4 * 1024 * 1024};

// ---- The bare floor ----

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

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

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

// ---- The library's servers ----

[[noreturn]] void servePort(const char* name)
{
    auto port = MessagePort::createLocal(String::stringWithUTF8String(name),
        [](MessagePort*, int32_t, Data* data) { return Ref<Data>(data); });
    if (!port || !port->scheduleInRunLoop(RunLoop::currentRunLoop(), NSDefaultRunLoopMode))
        std::exit(1);
    RunLoop::currentRunLoop()->run();
    std::exit(0);
}

class EchoDelegate final : public Object {
    ZON_OBJECT(EchoDelegate, Object)
public:
    static void exportMethods(Class& cls) { cls.exportMethod("ipcService:didRecvString:", &EchoDelegate::echo); }
    Ref<String> echo(TXZonIPCService*, String* string) { return Ref<String>(string); }

private:
    EchoDelegate() = default;
};
ZON_DEFINE_CLASS(EchoDelegate, "BenchmarkEchoDelegate")

[[noreturn]] void serveService(const char* name)
{
    auto service = TXZonIPCService::initWithLocalServiceName(String::stringWithUTF8String(name));
    if (!service)
        std::exit(1);
    auto delegate = makeObject<EchoDelegate>();
    service->setDelegate(delegate);
    RunLoop::currentRunLoop()->run();
    std::exit(0);
}

// ---- Peers and pinning ----

std::string self;
std::string scratch; // the private folder of this run

void pinTo(pid_t pid, bool pinned)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    unsigned count = std::thread::hardware_concurrency();
    for (unsigned cpu = 0; cpu < (pinned ? 1u : count); ++cpu)
        CPU_SET(cpu, &set);
    ::sched_setaffinity(pid, sizeof set, &set);
}

struct Peer {
    pid_t pid = -1;
    void start(std::vector<std::string> arguments, bool pinned)
    {
        pid = ::fork();
        if (pid == 0) {
            pinTo(0, pinned);
            std::vector<char*> argv {self.data()};
            for (auto& argument : arguments)
                argv.push_back(argument.data());
            argv.push_back(nullptr);
            ::execv(self.c_str(), argv.data());
            ::_exit(127);
        }
    }
    void stop()
    {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        pid = -1;
    }
};

template <class F>
auto retry(F&& attempt)
{
    for (int i = 0; i < 500; ++i) {
        if (auto result = attempt())
            return result;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return decltype(attempt())();
}

// Everything one pinning mode needs: the three servers and a client of each.
struct Rig {
    Peer bare, port, service;
    int bareFd = -1;
    Ref<MessagePort> remotePort;
    Ref<TXZonIPCService> client;

    void start(bool pinned)
    {
        std::string tag = pinned ? "pinned" : "unpinned";
        pinTo(0, pinned);
        std::string barePath = scratch + "/bare-" + tag;
        bare.start({"--serve", "bare", barePath}, pinned);
        port.start({"--serve", "port", "bench-port-" + tag}, pinned);
        service.start({"--serve", "service", "bench-service-" + tag}, pinned);
        bareFd = retry([&] {
            int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
            auto address = addressOf(barePath);
            if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
                return fd + 1;
            ::close(fd);
            return 0;
        }) - 1;
        remotePort
            = retry([&] { return MessagePort::createRemote(String::stringWithUTF8String("bench-port-" + tag)); });
        client = TXZonIPCService::initWithLocalServiceName(String::stringWithUTF8String("bench-client-" + tag));
        retry([&] {
            return client->connectToRemoteServiceNamed_error(
                String::stringWithUTF8String("bench-service-" + tag), nullptr);
        });
    }
    void stop()
    {
        client->disconnect();
        client = nullptr;
        remotePort = nullptr;
        ::close(bareFd);
        bare.stop();
        port.stop();
        service.stop();
    }
};

Rig rigs[2]; // unpinned, pinned

// ---- Benchmarks ----

void BM_BareRoundTrip(benchmark::State& state, int pinned)
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

void BM_PortRoundTrip(benchmark::State& state, int pinned)
{
    auto payload = Data::dataWithVector(std::vector<uint8_t>(state.range(0), 'x'));
    MessagePort* port = rigs[pinned].remotePort;
    for (auto _ : state) {
        Ref<Data> reply;
        if (port->sendRequest(0, payload, 200, 200, NSDefaultRunLoopMode, &reply) != MessagePortStatus::Success)
            state.SkipWithError("port peer failed");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
}

void BM_ServiceRoundTrip(benchmark::State& state, int pinned)
{
    auto payload = String::stringWithUTF8String(std::string(state.range(0), 'x'));
    TXZonIPCService* client = rigs[pinned].client;
    for (auto _ : state) {
        AutoreleasePool pool;
        if (!client->sendString_error(payload, nullptr))
            state.SkipWithError("service peer failed");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
}

// One-way: the clock stops only once the peer has handled everything (a final round trip).
void BM_BareOneWay(benchmark::State& state, int pinned)
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

void BM_PortOneWay(benchmark::State& state, int pinned)
{
    auto payload = Data::dataWithBytes("xxxx", 4);
    MessagePort* port = rigs[pinned].remotePort;
    for (auto _ : state)
        port->sendRequest(0, payload, 200, 0, nullptr, nullptr);
    Ref<Data> reply;
    port->sendRequest(0, payload, 200, 200, NSDefaultRunLoopMode, &reply);
    state.SetItemsProcessed(state.iterations());
}

void BM_ServiceOneWay(benchmark::State& state, int pinned)
{
    TXZonIPCService* client = rigs[pinned].client;
    for (auto _ : state) {
        AutoreleasePool pool;
        client->sendOnewayString_error(ZSTR("xxxx"), nullptr);
    }
    client->sendString_error(ZSTR("xxxx"), nullptr);
    state.SetItemsProcessed(state.iterations());
}

// Collects the time per iteration of every run for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (auto& run : runs)
            if (!run.error_occurred)
                nanos[run.benchmark_name()] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> nanos;
};

std::string nameOf(const char* kind, int pinned, size_t size = 0)
{
    std::string name = std::string(kind) + (pinned ? "/pinned" : "/unpinned");
    if (size)
        name += "/" + std::to_string(size);
    return name;
}

void printRatios(const RatioReporter& reporter)
{
    auto at = [&](const std::string& name) {
        auto it = reporter.nanos.find(name);
        return it == reporter.nanos.end() ? 0.0 : it->second;
    };
    std::printf("\nRatios to the bare stream socket (time per message; lower is better):\n");
    std::printf(
        "%-10s %9s %12s %12s %12s %8s %8s\n", "cpus", "bytes", "bare us", "port us", "service us", "port", "service");
    for (int pinned : {1, 0})
        for (size_t size : kSizes) {
            double bare = at(nameOf("BareRoundTrip", pinned, size)) / 1000;
            double port = at(nameOf("PortRoundTrip", pinned, size)) / 1000;
            double service = at(nameOf("ServiceRoundTrip", pinned, size)) / 1000;
            std::printf("%-10s %9zu %12.1f %12.1f %12.1f %7.2fx %7.2fx\n", pinned ? "one" : "any", size, bare, port,
                service, bare ? port / bare : 0, bare ? service / bare : 0);
        }
    std::printf("\nOne-way rate as a share of the bare socket's (higher is better):\n");
    for (int pinned : {1, 0}) {
        double bare = at(nameOf("BareOneWay", pinned)), port = at(nameOf("PortOneWay", pinned)),
               service = at(nameOf("ServiceOneWay", pinned));
        std::printf("%-10s bare %.0f/s  port %.0f/s (%.0f%%)  service %.0f/s (%.0f%%)\n", pinned ? "one" : "any",
            bare ? 1e9 / bare : 0, port ? 1e9 / port : 0, port ? 100 * bare / port : 0, service ? 1e9 / service : 0,
            service ? 100 * bare / service : 0);
    }
}

long residentKilobytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return 0;
}

int soak(long count)
{
    rigs[0].start(false);
    auto payload = String::stringWithUTF8String("soak message");
    for (long i = 1; i <= count; ++i) {
        AutoreleasePool pool;
        if (!rigs[0].client->sendString_error(payload, nullptr)) {
            std::fprintf(stderr, "message %ld got no reply\n", i);
            return 1;
        }
        if (i % (count / 10 ? count / 10 : 1) == 0)
            std::printf("%9ld messages: resident %ld kB\n", i, residentKilobytes());
    }
    rigs[0].stop();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    AutoreleasePool pool;
    self = "/proc/self/exe";
    char resolved[4096];
    if (ssize_t n = ::readlink("/proc/self/exe", resolved, sizeof resolved - 1); n > 0)
        self.assign(resolved, static_cast<size_t>(n));
    if (argc == 4 && std::strcmp(argv[1], "--serve") == 0) {
        std::string role = argv[2];
        if (role == "bare")
            serveBare(argv[3]);
        if (role == "port")
            servePort(argv[3]);
        if (role == "service")
            serveService(argv[3]);
        return 2;
    }
    char pattern[] = "/tmp/zon-ipc-bench-XXXXXX";
    scratch = ::mkdtemp(pattern);
    ::setenv("XDG_RUNTIME_DIR", scratch.c_str(), 1);
    if (argc == 3 && std::strcmp(argv[1], "--soak") == 0)
        return soak(std::atol(argv[2]));

    benchmark::Initialize(&argc, argv);
    for (int pinned : {1, 0}) {
        for (size_t size : kSizes) {
            // The benchmark library appends the size to each name.
            benchmark::RegisterBenchmark(nameOf("BareRoundTrip", pinned).c_str(), BM_BareRoundTrip, pinned)
                ->Arg(static_cast<int64_t>(size));
            benchmark::RegisterBenchmark(nameOf("PortRoundTrip", pinned).c_str(), BM_PortRoundTrip, pinned)
                ->Arg(static_cast<int64_t>(size));
            benchmark::RegisterBenchmark(nameOf("ServiceRoundTrip", pinned).c_str(), BM_ServiceRoundTrip, pinned)
                ->Arg(static_cast<int64_t>(size));
        }
        benchmark::RegisterBenchmark(nameOf("BareOneWay", pinned).c_str(), BM_BareOneWay, pinned);
        benchmark::RegisterBenchmark(nameOf("PortOneWay", pinned).c_str(), BM_PortOneWay, pinned);
        benchmark::RegisterBenchmark(nameOf("ServiceOneWay", pinned).c_str(), BM_ServiceOneWay, pinned);
    }
    rigs[1].start(true);
    RatioReporter reporter;
    // Pinned runs first, then the same set with every CPU allowed.
    benchmark::RunSpecifiedBenchmarks(&reporter, ".*/pinned.*");
    rigs[1].stop();
    rigs[0].start(false);
    benchmark::RunSpecifiedBenchmarks(&reporter, ".*/unpinned.*");
    rigs[0].stop();
    printRatios(reporter);
    benchmark::Shutdown();
    std::string cleanup = "rm -rf '" + scratch + "'";
    return std::system(cleanup.c_str()) == 0 ? 0 : 1;
}
