#pragma once

#include "RatioReporter.h"
#include "support/PeerProcess.h"

// What the IPC benchmark programs share: the bare Unix-socket floor (its framing and echo server),
// the library's own echo servers (message port and service), peers started as child processes of
// the program itself, CPU pinning, and the driver that runs every benchmark pinned to one CPU and
// then unpinned, collecting the time per message for the ratio tables each program prints.
//
// A program hands its peers' roles to serveRole() first thing in main: the peer is the same binary
// started again as `PROGRAM --serve ROLE ADDRESS`.

#include <benchmark/benchmark.h>

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace zon {
class TXZonIPCService;
}

namespace zon::bench::ipc {

// Set in a frame's 4-byte header: the peer does not answer.
inline constexpr uint32_t kOneWayBit = 0x80000000u;
inline constexpr size_t kSizes[] = {4, 1024, 64 * 1024, 4 * 1024 * 1024};

// ---- Framing of the bare floor: a 4-byte length (with kOneWayBit), then the bytes ----

bool readFully(int fd, void* buffer, size_t length);
bool writeFrame(int fd, uint32_t header, const void* payload, size_t length);
int connectUnix(const std::string& path); // -1 when nobody listens (yet)

// ---- Peers ----

// The running program's path, and a private folder for this run's sockets (also made the
// message ports' folder, which the peers inherit). setUpRun() finds the one and makes the other,
// in the measuring process only; tearDownRun() removes the folder.
const std::string& selfPath();
const std::string& scratchFolder();
void setUpRun();
bool tearDownRun();

// Lets this process run on CPU 0 only, or on every CPU.
void pinTo(pid_t pid, bool pinned);

// Starts peer as this program again with the given arguments, pinned or not; peer.stop() ends it.
void startSelf(test::PeerProcess& peer, const std::vector<std::string>& arguments, bool pinned);

// Calls attempt every 10 ms until it answers something true, for at most 5 s (a peer starting).
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

// ---- The floor and the library's own link, measured by both programs ----

// Serves `--serve bare|port|service ADDRESS` and never returns; answers false for other roles.
bool serveOwnRole(const std::string& role, const std::string& address);

// Starts and stops the three own servers and their clients for one pinning mode.
void startOwn(bool pinned);
void stopOwn(bool pinned);
TXZonIPCService* ownServiceClient(bool pinned); // between startOwn and stopOwn

// Registers the own round trips (every size) and one-way runs for one pinning mode, named
// "BareRoundTrip/pinned/4", "PortOneWay/unpinned" and so on (see nameOf). The service is measured
// with strings ("Service...") and with data ("ServiceData...").
void registerOwn(bool pinned);

std::string nameOf(const std::string& kind, bool pinned, size_t size = 0);

// ---- Running and reporting ----

// The console reporter, keeping each run's wall time per iteration (the peer's work is part of a
// round trip, so CPU time of the client alone would flatter everyone).
class TimeReporter : public RatioReporter {
public:
    TimeReporter() : RatioReporter(realTime) {}
    // Microseconds per iteration of a run, 0 when it did not run or failed.
    double micros(const std::string& name) const { return nanoseconds(name) / 1000; }
};

// One-way rows run this many times and report their median: a one-way rate follows the host's
// scheduling more than a round trip does. With interleaving on (see initializeWithInterleaving)
// their runs are spread at random among the other rows', so a slow moment of the host does not
// fall on one link alone.
inline constexpr int kOneWayRepetitions = 5;
benchmark::internal::Benchmark* repeatedOneWay(benchmark::internal::Benchmark* benchmark);
// benchmark::Initialize with random interleaving on unless the command line says otherwise.
void initializeWithInterleaving(int* argc, char** argv);

// Runs the pinned benchmarks whose kind (the name's first part) matches kinds, a regular
// expression, with start(true) done before and stop(true) after, then the unpinned ones the same way.
void runPinnedThenUnpinned(TimeReporter& reporter, const std::string& kinds, const std::function<void(bool)>& start,
    const std::function<void(bool)>& stop);

} // namespace zon::bench::ipc
