// The library's IPC link against the alternatives a developer could pick instead, in one run and
// on the same machine state: Qt's QLocalSocket, D-Bus peer to peer and ZeroMQ, each where it was
// found at build time, beside the bare Unix-socket floor, the message port and the service.
// Synchronous round trips of 4 B to 4 MiB and one-way message rates, with both processes pinned
// to one CPU and then unpinned; the tables at the end give times and ratios to the floor.
//
// The peers are this program started again in a server role:
//   IPCAlternativesBenchmarks --serve bare|port|service|Qt|DBus|ZeroMQ ADDRESS

#include "IPCAlternatives.h"
#include "IPCBenchmarkSupport.h"

#include "platform/runtime/AutoreleasePool.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

using namespace zon;
using namespace zon::bench::ipc;

namespace {

const std::vector<const Alternative*>& alternatives()
{
    static const std::vector<const Alternative*> found {
#ifdef ZON_BENCH_HAVE_QT
        &qtLocalSocketAlternative,
#endif
#ifdef ZON_BENCH_HAVE_DBUS
        &dbusPeerAlternative,
#endif
#ifdef ZON_BENCH_HAVE_ZEROMQ
        &zeroMQAlternative,
#endif
    };
    return found;
}

// One server and client per alternative and pinning mode.
struct AlternativeRig {
    test::PeerProcess server;
    std::unique_ptr<AlternativeClient> client;
};
std::map<std::string, AlternativeRig> rigs[2]; // by role; unpinned, pinned

std::string addressOf(const Alternative& alternative, bool pinned)
{
    std::string address = scratchFolder();
    address += '/';
    address += alternative.role;
    address += pinned ? "-pinned" : "-unpinned";
    return address;
}

void startAlternatives(bool pinned)
{
    pinTo(0, pinned);
    for (const Alternative* alternative : alternatives()) {
        AlternativeRig& rig = rigs[pinned][alternative->role];
        std::string address = addressOf(*alternative, pinned);
        startSelf(rig.server, {"--serve", alternative->role, address}, pinned);
        rig.client = retry([&] { return alternative->connect(address); });
        if (!rig.client)
            std::fprintf(stderr, "%s: no server at %s\n", alternative->title, address.c_str());
    }
}

void stopAlternatives(bool pinned)
{
    for (auto& [role, rig] : rigs[pinned]) {
        rig.client = nullptr;
        rig.server.stop();
    }
}

void BM_RoundTrip(benchmark::State& state, AlternativeRig* rig)
{
    std::vector<char> payload(state.range(0), 'x'), reply;
    if (!rig->client)
        return state.SkipWithError("no server");
    for (auto _ : state)
        if (!rig->client->roundTrip(payload, reply) || reply.size() != payload.size())
            state.SkipWithError("round trip failed");
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
}

// As for the own link, the clock stops once the server has taken every message.
void BM_OneWay(benchmark::State& state, AlternativeRig* rig)
{
    std::vector<char> payload(4, 'x');
    if (!rig->client)
        return state.SkipWithError("no server");
    for (auto _ : state)
        if (!rig->client->sendOneWay(payload))
            state.SkipWithError("send failed");
    if (!rig->client->drainOneWay())
        state.SkipWithError("drain failed");
    state.SetItemsProcessed(state.iterations());
}

void registerAlternatives(bool pinned)
{
    for (const Alternative* alternative : alternatives()) {
        AlternativeRig* rig = &rigs[pinned][alternative->role];
        std::string role = alternative->role;
        for (size_t size : kSizes)
            benchmark::RegisterBenchmark(nameOf(role + "RoundTrip", pinned).c_str(), BM_RoundTrip, rig)
                ->Arg(static_cast<int64_t>(size));
        repeatedOneWay(benchmark::RegisterBenchmark(nameOf(role + "OneWay", pinned).c_str(), BM_OneWay, rig));
    }
}

// The columns of the tables: the floor, the own link, then each alternative found.
struct Column {
    std::string title, kind;
};

std::vector<Column> columns()
{
    std::vector<Column> all {
        {"bare", "Bare"}, {"port", "Port"}, {"service", "Service"}, {"service data", "ServiceData"}};
    for (const Alternative* alternative : alternatives())
        all.push_back({alternative->title, alternative->role});
    return all;
}

void printTables(const TimeReporter& reporter)
{
    auto all = columns();
    auto header = [&](const char* first) {
        std::printf("%-5s %8s", "cpus", first);
        for (const Column& column : all)
            std::printf(" %15s", column.title.c_str());
        std::printf("\n");
    };
    std::printf("\nRound trip, us (lower is better); then the ratio to the bare socket:\n");
    header("bytes");
    for (bool ratios : {false, true})
        for (bool pinned : {true, false})
            for (size_t size : kSizes) {
                std::printf("%-5s %8zu", pinned ? "one" : "any", size);
                double bare = reporter.micros(nameOf("BareRoundTrip", pinned, size));
                for (const Column& column : all) {
                    double micros = reporter.micros(nameOf(column.kind + "RoundTrip", pinned, size));
                    if (ratios)
                        std::printf(" %14.2fx", bare ? micros / bare : 0);
                    else
                        std::printf(" %15.1f", micros);
                }
                std::printf("\n");
            }
    std::printf("\nOne-way messages per second (higher is better), and the share of the bare socket's:\n");
    header("");
    for (bool pinned : {true, false}) {
        std::printf("%-5s %8s", pinned ? "one" : "any", "");
        double bare = reporter.micros(nameOf("BareOneWay", pinned));
        for (const Column& column : all) {
            double micros = reporter.micros(nameOf(column.kind + "OneWay", pinned));
            char cell[32];
            std::snprintf(cell, sizeof cell, "%.0f (%.0f%%)", micros ? 1e6 / micros : 0, micros ? 100 * bare / micros : 0);
            std::printf(" %15s", cell);
        }
        std::printf("\n");
    }
}

bool serveRole(const std::string& role, const std::string& address)
{
    for (const Alternative* alternative : alternatives())
        if (role == alternative->role) {
            alternative->serve(address);
            return true;
        }
    return serveOwnRole(role, address);
}

} // namespace

int main(int argc, char** argv)
{
    AutoreleasePool pool;
    if (argc == 4 && std::strcmp(argv[1], "--serve") == 0)
        return serveRole(argv[2], argv[3]) ? 0 : 2;
    setUpRun();
    initializeWithInterleaving(&argc, argv);
    if (alternatives().empty())
        std::printf("No alternative was found when this program was built; only the own link is measured.\n");
    for (bool pinned : {true, false}) {
        registerOwn(pinned);
        registerAlternatives(pinned);
    }
    TimeReporter reporter;
    // The own link first and on its own: its service client answers pings only while it sends, so
    // it is closed before the alternatives' runs rather than left idle beside them.
    runPinnedThenUnpinned(reporter, "Bare|Port|Service", startOwn, stopOwn);
    std::string roles;
    for (const Alternative* alternative : alternatives()) {
        if (!roles.empty())
            roles += '|';
        roles += alternative->role;
    }
    if (!roles.empty())
        runPinnedThenUnpinned(reporter, roles, startAlternatives, stopAlternatives);
    printTables(reporter);
    benchmark::Shutdown();
    return tearDownRun() ? 0 : 1;
}
