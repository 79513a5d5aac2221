// Cross-thread calls, queued-call throughput, the atomic functions and the singleton accessor,
// each beside what a user would pick instead. Cross-thread figures are wall-clock time per call.

#include "atomic/TXZonAtomic.h"
#include "atomic/TXZonAtomicSingleton.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"

#include "RatioReporter.h"

#include <benchmark/benchmark.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

using namespace zon;

namespace {

class Counter final : public Object {
    ZON_OBJECT(Counter, Object)
public:
    static Ref<Counter> counter() { return makeObject<Counter>(); }
    static void exportMethods(Class& cls) { cls.exportMethod("bump", &Counter::bump); }
    void bump() { ++count; }
    long count = 0; // touched only on the worker

private:
    Counter() = default;
};
ZON_DEFINE_CLASS(Counter, "ThreadBenchmarkCounter")

// A run-loop worker for the length of one benchmark.
struct RunLoopWorker {
    AutoreleasePool pool;
    Ref<Thread> thread = Thread::detachRunloopThread();
    ~RunLoopWorker()
    {
        thread->cancel();
        thread->waitUntilFinished(std::chrono::seconds(10));
    }
};

// The usual hand-made alternative: a locked queue of functions and condition variables.
class ConditionVariableWorker {
public:
    ConditionVariableWorker()
        : thread_([this] {
            std::unique_lock lock(mutex_);
            for (;;) {
                work_.wait(lock, [&] { return !queue_.empty() || stop_; });
                if (queue_.empty())
                    return;
                auto job = std::move(queue_.front());
                queue_.pop_front();
                lock.unlock();
                job();
                lock.lock();
            }
        })
    {
    }
    ~ConditionVariableWorker()
    {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        work_.notify_one();
        thread_.join();
    }
    void post(std::function<void()> job)
    {
        {
            std::lock_guard lock(mutex_);
            queue_.push_back(std::move(job));
        }
        work_.notify_one();
    }
    void call(const std::function<void()>& job)
    {
        std::mutex doneMutex;
        std::condition_variable doneCondition;
        bool done = false;
        post([&] {
            job();
            std::lock_guard lock(doneMutex);
            done = true;
            doneCondition.notify_one();
        });
        std::unique_lock lock(doneMutex);
        doneCondition.wait(lock, [&] { return done; });
    }

private:
    std::mutex mutex_;
    std::condition_variable work_;
    std::deque<std::function<void()>> queue_;
    bool stop_ = false;
    std::thread thread_;
};

void BM_BlockingCall_PerformSelectorOnRunLoopThread(benchmark::State& state)
{
    RunLoopWorker worker;
    auto counter = Counter::counter();
    const SEL bump = selector("bump");
    for (auto _ : state)
        counter->performSelector_onThread_withObjects_waitUntilDone(bump, worker.thread, nullptr, true);
}
BENCHMARK(BM_BlockingCall_PerformSelectorOnRunLoopThread)->UseRealTime();

void BM_BlockingCall_RunLoopBlock(benchmark::State& state)
{
    RunLoopWorker worker;
    RunLoop* loop = worker.thread->runLoop();
    long count = 0;
    for (auto _ : state)
        loop->performBlockAndWait({NSDefaultRunLoopMode}, [&] { ++count; });
    benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_BlockingCall_RunLoopBlock)->UseRealTime();

void BM_BlockingCall_ConditionVariable(benchmark::State& state)
{
    ConditionVariableWorker worker;
    long count = 0;
    for (auto _ : state)
        worker.call([&] { ++count; });
    benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_BlockingCall_ConditionVariable)->UseRealTime();

// The floor: one eventfd each way, the worker blocked in read().
void BM_BlockingCall_EventfdHandOff(benchmark::State& state)
{
    const int request = eventfd(0, EFD_CLOEXEC);
    const int reply = eventfd(0, EFD_CLOEXEC);
    long count = 0;
    std::thread worker([&] {
        uint64_t value;
        while (::read(request, &value, sizeof value) == sizeof value && value != 2) {
            ++count;
            const uint64_t one = 1;
            (void)!::write(reply, &one, sizeof one);
        }
    });
    for (auto _ : state) {
        uint64_t value = 1;
        (void)!::write(request, &value, sizeof value);
        (void)!::read(reply, &value, sizeof value);
    }
    const uint64_t stop = 2;
    (void)!::write(request, &stop, sizeof stop);
    worker.join();
    close(request);
    close(reply);
    benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_BlockingCall_EventfdHandOff)->UseRealTime();

constexpr int kBatch = 1000;

void BM_QueuedCalls_PerformSelectorOnRunLoopThread(benchmark::State& state)
{
    RunLoopWorker worker;
    auto counter = Counter::counter();
    const SEL bump = selector("bump");
    for (auto _ : state) {
        for (int i = 0; i < kBatch - 1; ++i)
            counter->performSelector_onThread_withObjects_waitUntilDone(bump, worker.thread, nullptr, false);
        counter->performSelector_onThread_withObjects_waitUntilDone(bump, worker.thread, nullptr, true);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_QueuedCalls_PerformSelectorOnRunLoopThread)->UseRealTime();

void BM_QueuedCalls_RunLoopBlock(benchmark::State& state)
{
    RunLoopWorker worker;
    RunLoop* loop = worker.thread->runLoop();
    long count = 0;
    for (auto _ : state) {
        for (int i = 0; i < kBatch - 1; ++i)
            loop->performBlock({NSDefaultRunLoopMode}, [&] { ++count; });
        loop->performBlockAndWait({NSDefaultRunLoopMode}, [&] { ++count; });
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_QueuedCalls_RunLoopBlock)->UseRealTime();

void BM_QueuedCalls_ConditionVariable(benchmark::State& state)
{
    ConditionVariableWorker worker;
    long count = 0;
    for (auto _ : state) {
        for (int i = 0; i < kBatch - 1; ++i)
            worker.post([&] { ++count; });
        worker.call([&] { ++count; });
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_QueuedCalls_ConditionVariable)->UseRealTime();

// Times one operation on a 32-bit slot that starts at initial. Slot is int32_t for the TXAtomic
// functions and std::atomic<int32_t> for the standard operations they are measured against.
template <class Slot, class Operation>
void registerSlotBenchmark(const char* name, int32_t initial, Operation operation)
{
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
        Slot slot{initial};
        for (auto _ : state)
            benchmark::DoNotOptimize(operation(slot));
    });
}

using StdSlot = std::atomic<int32_t>;

const bool kSlotBenchmarksRegistered = [] {
    registerSlotBenchmark<int32_t>(
        "BM_Atomic_TXAtomicIncrement32", 0, [](int32_t& slot) { return TXAtomicIncrement32(&slot); });
    registerSlotBenchmark<StdSlot>(
        "BM_Atomic_StdFetchAdd", 0, [](StdSlot& slot) { return slot.fetch_add(1) + 1; });
    registerSlotBenchmark<int32_t>(
        "BM_Atomic_TXAtomicReadInt32", 7, [](int32_t& slot) { return TXAtomicReadInt32(&slot); });
    registerSlotBenchmark<StdSlot>("BM_Atomic_StdLoad", 7, [](StdSlot& slot) { return slot.load(); });
    return true;
}();

void BM_Atomic_TXAtomicWriteInt32(benchmark::State& state)
{
    int32_t slot = 0;
    int32_t value = 0;
    for (auto _ : state)
        TXAtomicWriteInt32(++value, &slot);
    benchmark::DoNotOptimize(slot);
}
BENCHMARK(BM_Atomic_TXAtomicWriteInt32);

void BM_Atomic_StdStore(benchmark::State& state)
{
    std::atomic<int32_t> slot = 0;
    int32_t value = 0;
    for (auto _ : state)
        slot.store(++value);
    benchmark::DoNotOptimize(slot.load(std::memory_order_relaxed));
}
BENCHMARK(BM_Atomic_StdStore);

// A property read that hands the caller a reference: the busy-marker getter against a mutex
// around the slot, the usual lock-based alternative.
void BM_Property_TXGetRetain(benchmark::State& state)
{
    auto value = Counter::counter();
    Object* slot = value.get();
    for (auto _ : state)
        TXGetRetain(&slot)->release();
}
BENCHMARK(BM_Property_TXGetRetain);

void BM_Property_MutexGetRetain(benchmark::State& state)
{
    Ref<Object> slot = Counter::counter();
    std::mutex mutex;
    for (auto _ : state) {
        Ref<Object> copy;
        {
            std::lock_guard lock(mutex);
            copy = slot;
        }
        benchmark::DoNotOptimize(copy.get());
    }
}
BENCHMARK(BM_Property_MutexGetRetain);

class BenchSingleton final : public TXZonAtomicSingleton {
    ZON_OBJECT(BenchSingleton, TXZonAtomicSingleton)
public:
    static Slot* singletonInstance()
    {
        static constinit Slot slot;
        return &slot;
    }
    static BenchSingleton* sharedInstance() { return TXZonAtomicSingleton::sharedInstance<BenchSingleton>(); }

private:
    BenchSingleton() = default;
};
ZON_DEFINE_CLASS(BenchSingleton, "ThreadBenchmarkSingleton")

struct PlainSingleton {
    static PlainSingleton& instance()
    {
        static PlainSingleton singleton;
        return singleton;
    }
    int value = 0;
};

void BM_Singleton_SharedInstance(benchmark::State& state)
{
    BenchSingleton::sharedInstance();
    for (auto _ : state)
        benchmark::DoNotOptimize(BenchSingleton::sharedInstance());
}
BENCHMARK(BM_Singleton_SharedInstance);

void BM_Singleton_FunctionLocalStatic(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(&PlainSingleton::instance());
}
BENCHMARK(BM_Singleton_FunctionLocalStatic);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    // Wall-clock time for the cross-thread hand-offs (a waiting caller spends little CPU), CPU time
    // for the rest.
    zon::bench::RatioReporter reporter([](const benchmark::BenchmarkReporter::Run& run) {
        return run.run_name.function_name.find("Call") != std::string::npos ? zon::bench::RatioReporter::realTime(run)
                                                                             : zon::bench::RatioReporter::cpuTime(run);
    });
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nTime ratios (ours / alternative):\n");
    reporter.printRatio("BM_BlockingCall_PerformSelectorOnRunLoopThread/real_time", "BM_BlockingCall_EventfdHandOff/real_time");
    reporter.printRatio("BM_BlockingCall_PerformSelectorOnRunLoopThread/real_time", "BM_BlockingCall_ConditionVariable/real_time");
    reporter.printRatio("BM_BlockingCall_RunLoopBlock/real_time", "BM_BlockingCall_EventfdHandOff/real_time");
    reporter.printRatio("BM_BlockingCall_RunLoopBlock/real_time", "BM_BlockingCall_ConditionVariable/real_time");
    reporter.printRatio("BM_QueuedCalls_PerformSelectorOnRunLoopThread/real_time", "BM_QueuedCalls_ConditionVariable/real_time");
    reporter.printRatio("BM_QueuedCalls_RunLoopBlock/real_time", "BM_QueuedCalls_ConditionVariable/real_time");
    reporter.printRatio("BM_Atomic_TXAtomicIncrement32", "BM_Atomic_StdFetchAdd");
    reporter.printRatio("BM_Atomic_TXAtomicReadInt32", "BM_Atomic_StdLoad");
    reporter.printRatio("BM_Atomic_TXAtomicWriteInt32", "BM_Atomic_StdStore");
    reporter.printRatio("BM_Property_TXGetRetain", "BM_Property_MutexGetRetain");
    reporter.printRatio("BM_Singleton_SharedInstance", "BM_Singleton_FunctionLocalStatic");
    benchmark::Shutdown();
    return 0;
}
