// The observer center and the dictionary store against the floor under them and against Qt.
//
// Broadcast rows: one broadcast to 1,000 observers spread over 4 run-loop threads, timed on the
// dispatch thread (the broadcaster here), beside 1,000 bare RunLoop::performBlock posts (the floor:
// what queuing one call costs at all) and Qt's queued QMetaObject::invokeMethod to 1,000 objects on
// 4 QThreads (ObserverAlternativeQt.cpp). Delivery is waited for outside the timed part.
//
// Store rows: writes from a worker thread to an attribute with one change observer on the main
// thread, while the main loop drains (will/did calls and the binding mirror), per write in wall
// time; beside a Qt object whose setter stores under a mutex and posts a queued change
// notification to a receiver on the main thread. And a read of a thread-safe store.

#include "RatioReporter.h"

#include "genericObjects/TXZonDictionaryStore.h"
#include "genericObjects/TXZonObserver.h"
#include "genericObjects/TXZonObserverCenter.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Array.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

using namespace zon;

namespace {

constexpr int kObservers = 1000;
constexpr int kThreads = 4;
constexpr int kWrites = 1000;

class Tally final : public Object {
    ZON_OBJECT(Tally, Object)
public:
    static inline std::atomic<long> calls {0};
    static void exportMethods(Class& cls) { cls.exportMethod("tick:", &Tally::tick); }
    void tick(Object*) { calls.fetch_add(1, std::memory_order_relaxed); }
};
ZON_DEFINE_CLASS(Tally, "ObserverBenchmarkTally")

struct Workers {
    AutoreleasePool pool;
    std::vector<Ref<Thread>> threads;
    Workers()
    {
        for (int i = 0; i < kThreads; ++i)
            threads.push_back(Thread::detachRunloopThread());
    }
    ~Workers()
    {
        for (auto& thread : threads)
            thread->cancel();
        for (auto& thread : threads)
            thread->waitUntilFinished(std::chrono::seconds(10));
    }
};

void waitFor(const std::atomic<long>& counter, long target)
{
    while (counter.load(std::memory_order_relaxed) < target)
        std::this_thread::yield();
}

// Runs one broadcast per iteration; with timedDelivery false only the broadcasting thread's part
// is timed and delivery is waited for outside it.
template <class Broadcast>
void runBroadcasts(benchmark::State& state, const std::atomic<long>& calls, bool timedDelivery, Broadcast broadcast)
{
    long expected = calls.load();
    for (auto _ : state) {
        broadcast();
        expected += kObservers;
        if (!timedDelivery)
            state.PauseTiming();
        waitFor(calls, expected);
        if (!timedDelivery)
            state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kObservers);
}

void BM_Broadcast_ObserverCenter(benchmark::State& state)
{
    Workers workers;
    auto center = TXZonObserverCenter::observerCenterWithDispatchThread(Thread::currentThread());
    std::vector<Ref<Tally>> tallies;
    for (int i = 0; i < kObservers; ++i) {
        tallies.push_back(makeObject<Tally>());
        center->addZonObserver(TXZonObserver::observerForDelegate_withThread(tallies.back(), workers.threads[i % kThreads]));
    }
    const SEL tick = selector("tick:");
    auto arguments = Array::arrayWithObject(Number::numberWithInt(1));
    runBroadcasts(state, Tally::calls, state.range(0), [&] { center->notifyObserversWithSelector_objects(tick, arguments); });
}
BENCHMARK(BM_Broadcast_ObserverCenter)->ArgName("delivered")->Arg(0)->Arg(1)->UseRealTime();

// The floor: the same number of bare posts, woken per post, and woken once per loop per burst.
void postBlocks(Workers& workers, std::atomic<long>& calls)
{
    for (int i = 0; i < kObservers; ++i)
        workers.threads[i % kThreads]->runLoop()->performBlock(
            {NSRunLoopCommonModes}, [&calls] { calls.fetch_add(1, std::memory_order_relaxed); });
}

void BM_Broadcast_RunLoopBlocks(benchmark::State& state)
{
    Workers workers;
    std::atomic<long> calls {0};
    runBroadcasts(state, calls, state.range(0), [&] { postBlocks(workers, calls); });
}
BENCHMARK(BM_Broadcast_RunLoopBlocks)->ArgName("delivered")->Arg(0)->Arg(1)->UseRealTime();

void BM_Broadcast_RunLoopBlocksOneWakeUp(benchmark::State& state)
{
    Workers workers;
    std::atomic<long> calls {0};
    runBroadcasts(state, calls, state.range(0), [&] {
        RunLoop::DeferredWakeUps burst;
        postBlocks(workers, calls);
    });
}
BENCHMARK(BM_Broadcast_RunLoopBlocksOneWakeUp)->ArgName("delivered")->Arg(0)->Arg(1)->UseRealTime();

class StoreWatcher final : public Object {
    ZON_OBJECT(StoreWatcher, Object)
public:
    static inline std::atomic<long> changes {0};
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("dictionaryStore:didChangeAttribute:to:", &StoreWatcher::didChange);
    }
    void didChange(TXZonDictionaryStore*, String*, Object*) { changes.fetch_add(1, std::memory_order_relaxed); }
};
ZON_DEFINE_CLASS(StoreWatcher, "ObserverBenchmarkStoreWatcher")

void BM_StoreWrite_WorkerThreadMainObserver(benchmark::State& state)
{
    AutoreleasePool pool;
    auto store = TXZonDictionaryStore::threadSafeStoreWithOptionalLogicDelegate(nullptr);
    store->registerAttributeWithIdentifier_defaultValue(ZSTR("volume"), Number::numberWithInt(0));
    auto watcher = makeObject<StoreWatcher>();
    store->addChangeObserver(watcher); // on this, the main, thread
    Ref<Thread> writer = Thread::detachRunloopThread();
    std::vector<Ref<Number>> values;
    for (int i = 0; i < kWrites; ++i)
        values.push_back(Number::numberWithInt(i));
    RunLoop* mainLoop = RunLoop::currentRunLoop();
    StoreWatcher::changes = 0;
    long expected = 0;
    for (auto _ : state) {
        writer->runLoop()->performBlock({NSDefaultRunLoopMode}, [&] {
            AutoreleasePool writes;
            for (auto& value : values)
                store->setAttribute_forIdentifer(value, ZSTR("volume"));
        });
        expected += kWrites;
        while (StoreWatcher::changes.load(std::memory_order_relaxed) < expected)
            mainLoop->runInMode(NSDefaultRunLoopMode, 0.001, false);
    }
    // The last mirror tasks may still be queued.
    mainLoop->runInMode(NSDefaultRunLoopMode, 0.01, false);
    writer->cancel();
    writer->waitUntilFinished(std::chrono::seconds(10));
    store->removeChangeObserver(watcher);
    state.SetItemsProcessed(state.iterations() * kWrites);
}
BENCHMARK(BM_StoreWrite_WorkerThreadMainObserver)->UseRealTime();

// A read of a thread-safe store under the identifier the attribute was registered with (a
// constant, as programs name their attributes), and under an equal string made at run time.
void BM_StoreRead_ThreadSafe(benchmark::State& state)
{
    auto store = TXZonDictionaryStore::threadSafeStoreWithOptionalLogicDelegate(nullptr);
    String* const names[] = {ZSTR("title"), ZSTR("artist"), ZSTR("album"), ZSTR("genre"), ZSTR("year"),
        ZSTR("rating"), ZSTR("volume"), ZSTR("muted")};
    for (String* name : names)
        store->registerAttributeWithIdentifier_defaultValue(name, Number::numberWithInt(1));
    Ref<String> key = state.range(0) ? Ref<String>(names[6]) : String::stringWithUTF8String("volume");
    for (auto _ : state) {
        Ref<Object> value = store->attributeForIdentifier(key);
        benchmark::DoNotOptimize(value.get());
    }
}
BENCHMARK(BM_StoreRead_ThreadSafe)->ArgName("registeredIdentifier")->Arg(1)->Arg(0);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    zon::bench::RatioReporter reporter(zon::bench::RatioReporter::realTime);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double broadcast = reporter.nanoseconds("BM_Broadcast_ObserverCenter/delivered:0/real_time");
    const double write = reporter.nanoseconds("BM_StoreWrite_WorkerThreadMainObserver/real_time");
    std::printf("\nPer observer on the dispatch thread: %.0f ns (target at most 1,000 ns)\n", broadcast / kObservers);
    std::printf("Store writes per second with the main loop draining: %.0f (target at least 200,000)\n",
        write > 0 ? 1e9 * kWrites / write : 0.0);
    std::printf("Time ratios (ours / theirs; targets: broadcast 2x the floor and 1x Qt, write 3x Qt):\n");
    reporter.printRatio("BM_Broadcast_ObserverCenter/delivered:0/real_time", "BM_Broadcast_RunLoopBlocks/delivered:0/real_time");
    reporter.printRatio("BM_Broadcast_ObserverCenter/delivered:0/real_time", "BM_Broadcast_RunLoopBlocksOneWakeUp/delivered:0/real_time");
    reporter.printRatio("BM_Broadcast_ObserverCenter/delivered:0/real_time", "BM_Broadcast_QtQueuedInvoke/delivered:0/real_time");
    reporter.printRatio("BM_Broadcast_ObserverCenter/delivered:1/real_time", "BM_Broadcast_RunLoopBlocks/delivered:1/real_time");
    reporter.printRatio("BM_Broadcast_ObserverCenter/delivered:1/real_time", "BM_Broadcast_RunLoopBlocksOneWakeUp/delivered:1/real_time");
    reporter.printRatio("BM_Broadcast_ObserverCenter/delivered:1/real_time", "BM_Broadcast_QtQueuedInvoke/delivered:1/real_time");
    reporter.printRatio("BM_StoreWrite_WorkerThreadMainObserver/real_time", "BM_StoreWrite_QtQueuedChange/real_time");
    benchmark::Shutdown();
    return 0;
}
