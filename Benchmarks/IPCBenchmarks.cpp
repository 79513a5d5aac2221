// Round trips and one-way rates between two processes: the message port, the whole IPC service,
// and the floor, a bare Unix stream socket ping-pong written here with the same framing work a
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

void printRatios(const TimeReporter& reporter)
{
    std::printf("\nRatios to the bare stream socket (time per message; lower is better):\n");
    std::printf(
        "%-10s %9s %12s %12s %12s %8s %8s\n", "cpus", "bytes", "bare us", "port us", "service us", "port", "service");
    for (bool pinned : {true, false})
        for (size_t size : kSizes) {
            double bare = reporter.micros(nameOf("BareRoundTrip", pinned, size));
            double port = reporter.micros(nameOf("PortRoundTrip", pinned, size));
            double service = reporter.micros(nameOf("ServiceRoundTrip", pinned, size));
            std::printf("%-10s %9zu %12.1f %12.1f %12.1f %7.2fx %7.2fx\n", pinned ? "one" : "any", size, bare, port,
                service, bare ? port / bare : 0, bare ? service / bare : 0);
        }
    std::printf("\nOne-way rate as a share of the bare socket's (higher is better):\n");
    for (bool pinned : {true, false}) {
        double bare = reporter.micros(nameOf("BareOneWay", pinned)), port = reporter.micros(nameOf("PortOneWay", pinned)),
               service = reporter.micros(nameOf("ServiceOneWay", pinned));
        std::printf("%-10s bare %.0f/s  port %.0f/s (%.0f%%)  service %.0f/s (%.0f%%)\n", pinned ? "one" : "any",
            bare ? 1e6 / bare : 0, port ? 1e6 / port : 0, port ? 100 * bare / port : 0, service ? 1e6 / service : 0,
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

    benchmark::Initialize(&argc, argv);
    for (bool pinned : {true, false})
        registerOwn(pinned);
    TimeReporter reporter;
    runPinnedThenUnpinned(reporter, ".*", startOwn, stopOwn);
    printRatios(reporter);
    benchmark::Shutdown();
    return tearDownRun() ? 0 : 1;
}
