// Qt's way of the same work. Broadcast: a queued QMetaObject::invokeMethod to each of 1,000
// QObjects living on 4 QThreads with event loops. Store write: a QObject whose setter stores the
// value under a mutex and posts a queued change notification (what a queued signal posts) to a
// receiver on the main thread, whose event loop drains while the worker writes.

#include "QtApplication.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QMutex>
#include <QObject>
#include <QThread>
#include <QVariant>

#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr int kObservers = 1000;
constexpr int kThreads = 4;
constexpr int kWrites = 1000;

struct QtThreads {
    std::vector<std::unique_ptr<QThread>> threads;
    explicit QtThreads(int count)
    {
        zon::bench::ensureQtApplication();
        for (int i = 0; i < count; ++i) {
            threads.push_back(std::make_unique<QThread>());
            threads.back()->start();
        }
    }
    ~QtThreads()
    {
        for (auto& thread : threads) {
            thread->quit();
            thread->wait();
        }
    }
};

void BM_Broadcast_QtQueuedInvoke(benchmark::State& state)
{
    std::vector<std::unique_ptr<QObject>> objects; // deleted after their threads stopped
    QtThreads workers(kThreads);
    for (int i = 0; i < kObservers; ++i) {
        objects.push_back(std::make_unique<QObject>());
        objects.back()->moveToThread(workers.threads[i % kThreads].get());
    }
    std::atomic<long> calls {0};
    const bool timedDelivery = state.range(0);
    long expected = 0;
    for (auto _ : state) {
        for (auto& object : objects)
            QMetaObject::invokeMethod(
                object.get(), [&calls] { calls.fetch_add(1, std::memory_order_relaxed); }, Qt::QueuedConnection);
        if (!timedDelivery)
            state.PauseTiming();
        expected += kObservers;
        while (calls.load(std::memory_order_relaxed) < expected)
            std::this_thread::yield();
        if (!timedDelivery)
            state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kObservers);
}
BENCHMARK(BM_Broadcast_QtQueuedInvoke)->ArgName("delivered")->Arg(0)->Arg(1)->UseRealTime();

// A model object in Qt style: a locked value and a queued notification per change.
class QtModel {
public:
    explicit QtModel(QObject* receiver, std::atomic<long>* changes) : receiver_(receiver), changes_(changes) {}
    void setVolume(const QVariant& value)
    {
        QVariant old;
        {
            QMutexLocker lock(&mutex_);
            old = volume_;
            volume_ = value;
        }
        QMetaObject::invokeMethod(
            receiver_, [changes = changes_, value] { changes->fetch_add(1, std::memory_order_relaxed); (void)value; },
            Qt::QueuedConnection);
    }

private:
    QMutex mutex_;
    QVariant volume_;
    QObject* receiver_;
    std::atomic<long>* changes_;
};

void BM_StoreWrite_QtQueuedChange(benchmark::State& state)
{
    QObject writer; // deleted after its thread stopped
    QObject receiver; // on the main thread
    std::atomic<long> changes {0};
    QtModel model(&receiver, &changes);
    QtThreads writerThread(1);
    writer.moveToThread(writerThread.threads[0].get());
    long expected = 0;
    for (auto _ : state) {
        QMetaObject::invokeMethod(
            &writer, [&model] {
                for (int i = 0; i < kWrites; ++i)
                    model.setVolume(i);
            },
            Qt::QueuedConnection);
        expected += kWrites;
        while (changes.load(std::memory_order_relaxed) < expected)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    state.SetItemsProcessed(state.iterations() * kWrites);
}
BENCHMARK(BM_StoreWrite_QtQueuedChange)->UseRealTime();

} // namespace
