// Round trips and one-way rates between two processes: the message port, the whole IPC service
// (with strings, which both sides convert, and with data, whose reply is a property list), and
// the floor, a bare Unix stream socket ping-pong written here with the same framing work a
// minimal echo needs (a 4-byte length, one writev, blocking reads). Each is measured with both
// processes pinned to one CPU and unpinned, and the ratios to the floor are printed at the end.
//
// The peers are this program started again in a server role:
//   IPCBenchmarks --serve bare PATH | port NAME | service NAME
// Extra run:
//   IPCBenchmarks --soak N     N synchronous service messages, resident memory along the way

#include "IPCBenchmarkSupport.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonIPCService.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

using namespace zon;
using namespace zon::bench::ipc;

namespace {

// The measured links after the floor: the port, the service carrying strings, and carrying data.
constexpr const char* kLinks[] = {"Port", "Service", "ServiceData"};

void printRatios(const TimeReporter& reporter)
{
    std::printf("\nRound trip in us, then the ratio to the bare stream socket (lower is better):\n");
    std::printf("%-5s %9s %10s %10s %10s %10s %8s %8s %8s\n", "cpus", "bytes", "bare", "port", "service",
        "svc data", "port", "service", "svc data");
    for (bool pinned : {true, false})
        for (size_t size : kSizes) {
            double bare = reporter.micros(nameOf("BareRoundTrip", pinned, size));
            std::printf("%-5s %9zu %10.1f", pinned ? "one" : "any", size, bare);
            for (const char* link : kLinks)
                std::printf(" %10.1f", reporter.micros(nameOf(std::string(link) + "RoundTrip", pinned, size)));
            for (const char* link : kLinks) {
                double micros = reporter.micros(nameOf(std::string(link) + "RoundTrip", pinned, size));
                std::printf(" %7.2fx", bare ? micros / bare : 0);
            }
            std::printf("\n");
        }
    std::printf("\nOne-way messages per second and the share of the bare socket's (higher is better):\n");
    for (bool pinned : {true, false}) {
        double bare = reporter.micros(nameOf("BareOneWay", pinned));
        std::printf("%-5s bare %.0f", pinned ? "one" : "any", bare ? 1e6 / bare : 0);
        for (const char* link : kLinks) {
            double micros = reporter.micros(nameOf(std::string(link) + "OneWay", pinned));
            std::printf("  %s %.0f (%.0f%%)", link, micros ? 1e6 / micros : 0, micros ? 100 * bare / micros : 0);
        }
        std::printf("\n");
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
    startOwn(false);
    TXZonIPCService* client = ownServiceClient(false);
    auto payload = String::stringWithUTF8String("soak message");
    for (long i = 1; i <= count; ++i) {
        AutoreleasePool pool;
        if (!client->sendString_error(payload, nullptr)) {
            std::fprintf(stderr, "message %ld got no reply\n", i);
            return 1;
        }
        if (i % (count / 10 ? count / 10 : 1) == 0)
            std::printf("%9ld messages: resident %ld kB\n", i, residentKilobytes());
    }
    stopOwn(false);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    AutoreleasePool pool;
    if (argc == 4 && std::strcmp(argv[1], "--serve") == 0)
        return serveOwnRole(argv[2], argv[3]) ? 0 : 2;
    setUpRun();
    if (argc == 3 && std::strcmp(argv[1], "--soak") == 0) {
        int status = soak(std::atol(argv[2]));
        return tearDownRun() ? status : 1;
    }

    // --kinds=REGEX runs only the rows whose name starts so ("Service" or "Bare|Port").
    std::string kinds = ".*";
    if (argc > 1 && std::strncmp(argv[1], "--kinds=", 8) == 0) {
        kinds = argv[1] + 8;
        argv[1] = argv[0];
        --argc;
        ++argv;
    }
    initializeWithInterleaving(&argc, argv);
    for (bool pinned : {true, false})
        registerOwn(pinned);
    TimeReporter reporter;
    runPinnedThenUnpinned(reporter, kinds, startOwn, stopOwn);
    printRatios(reporter);
    benchmark::Shutdown();
    return tearDownRun() ? 0 : 1;
}
