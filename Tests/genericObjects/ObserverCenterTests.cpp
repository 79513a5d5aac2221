#include "genericObjects/TXZonObserver.h"
#include "genericObjects/TXZonObserverCenter.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/Thread.h"
#include "platform/values/Array.h"
#include "platform/values/String.h"

#include "support/LogCapture.h"
#include "support/RunLoopWorker.h"
#include "support/Values.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

using namespace zon;
using namespace zon::test;
using ::testing::ElementsAre;

namespace {

const SEL kChanged = selector("changed:");
const SEL kPair = selector("pair:with:");
const SEL kUnknown = selector("neverImplemented:");

// Records each call with the thread it ran on; thread-safe.
class Listener : public Object {
    ZON_OBJECT(Listener, Object)
public:
    static Ref<Listener> listener() { return makeObject<Listener>(); }
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("changed:", &Listener::changed);
        cls.exportMethod("pair:with:", &Listener::pair);
    }
    void changed(String* value) { record(utf8(value)); }
    void pair(String* a, String* b) { record(utf8(a) + "," + utf8(b)); }

    std::vector<std::string> calls() const
    {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    size_t count() const { return count_.load(); }
    std::vector<Thread*> threads() const
    {
        std::lock_guard lock(mutex_);
        return threads_;
    }
    // Runs on the listener's thread before each call is recorded.
    std::function<void()> onCall;

private:
    void record(std::string call)
    {
        if (onCall)
            onCall();
        std::lock_guard lock(mutex_);
        calls_.push_back(std::move(call));
        threads_.push_back(Thread::currentThread());
        ++count_;
    }
    mutable std::mutex mutex_;
    std::vector<std::string> calls_;
    std::vector<Thread*> threads_;
    std::atomic<size_t> count_ {0};
};
ZON_DEFINE_CLASS(Listener, "Listener")

// A delegate that implements none of the broadcast operations.
class Bystander : public Object {
    ZON_OBJECT(Bystander, Object)
};
ZON_DEFINE_CLASS(Bystander, "Bystander")

Ref<Array> args(std::initializer_list<Object*> list) { return Array::arrayWithObjects(list); }

} // namespace

TEST(TXZonObserver, EqualByDelegateIdentityOnlyAndDescribedByClassAndThread)
{
    RunLoopWorker worker;
    auto listener = Listener::listener();
    auto here = TXZonObserver::observerForDelegate(listener);
    auto there = TXZonObserver::observerForDelegate_withThread(listener, worker.thread);
    EXPECT_TRUE(here->isEqual(there)) << "the thread plays no part";
    EXPECT_FALSE(here->isEqual(TXZonObserver::observerForDelegate(Listener::listener())));
    EXPECT_FALSE(here->isEqual(listener));
    EXPECT_EQ(here->thread(), Thread::currentThread());
    EXPECT_EQ(TXZonObserver::mainThreadObserverForDelegate(listener)->thread(), Thread::mainThread());
    EXPECT_EQ(TXZonObserver::initWithDelegate_thread(listener, nullptr)->thread(), Thread::currentThread());

    worker.thread->setName(str("render"));
    EXPECT_EQ(utf8(there->description().get()), "TXObserver: Listener on thread render");
    auto copied = dynamicCast<TXZonObserver>(there->copy());
    ASSERT_TRUE(copied);
    EXPECT_NE(copied.get(), there.get());
    EXPECT_EQ(copied->delegate().get(), listener.get());
    EXPECT_EQ(copied->thread(), worker.thread.get());
}

TEST(TXZonObserverCenter, ADelegateIsRegisteredOnceForItsFirstThread)
{
    RunLoopWorker a;
    RunLoopWorker b;
    auto center = TXZonObserverCenter::observerCenter();
    auto first = Listener::listener();
    auto second = Listener::listener();
    center->addZonObserver(TXZonObserver::observerForDelegate_withThread(first, a.thread));
    center->addZonObserver(TXZonObserver::observerForDelegate_withThread(first, b.thread));
    center->addThreadObserver(second);
    center->removeObserver(Listener::listener()); // never registered: nothing changes

    auto observers = center->observerZonObjects();
    ASSERT_EQ(observers->count(), 2u);
    EXPECT_EQ(dynamicCast<TXZonObserver>(observers->objectAtIndex(0))->thread(), a.thread.get());
    EXPECT_EQ(dynamicCast<TXZonObserver>(observers->objectAtIndex(1))->thread(), Thread::currentThread());
    EXPECT_NE(observers->objectAtIndex(0), center->observers()->objectAtIndex(0)) << "copies";
    auto delegates = center->observerObjects();
    ASSERT_EQ(delegates->count(), 2u);
    EXPECT_EQ(delegates->objectAtIndex(0), first.get());
    EXPECT_EQ(delegates->objectAtIndex(1), second.get());

    center->removeObserver(first);
    EXPECT_EQ(center->observerObjects()->count(), 1u);
}

TEST(TXZonObserverCenter, ABroadcastQueuesEveryCallEvenOnTheDispatchThread)
{
    auto center = TXZonObserverCenter::observerCenter();
    auto listener = Listener::listener();
    auto bystander = makeObject<Bystander>();
    center->addObserver(bystander);
    center->addObserver(listener);

    center->notifyObserversWithSelector_object(kChanged, str("one"));
    center->notifyObserversWithSelector_objects(kPair, args({str("a"), str("b")}));
    center->notifyObserversWithSelector_objects(kPair, nullptr); // no arguments: both nil
    EXPECT_EQ(listener->count(), 0u) << "queued, not called, while the broadcast ran";
    ASSERT_TRUE(runLoopUntil([&] { return listener->count() == 3; }));
    EXPECT_THAT(listener->calls(), ElementsAre("one", "a,b", "(nil),(nil)"));
}

TEST(TXZonObserverCenter, ADelegateOnEachOfThreeThreadsGetsTheCallsInQueueOrder)
{
    RunLoopWorker workers[3];
    auto center = TXZonObserverCenter::observerCenter();
    std::vector<Ref<Listener>> listeners;
    for (auto& worker : workers) {
        listeners.push_back(Listener::listener());
        center->addZonObserver(TXZonObserver::observerForDelegate_withThread(listeners.back(), worker.thread));
    }
    constexpr int kBroadcasts = 200;
    std::vector<std::string> expected;
    for (int i = 0; i < kBroadcasts; ++i) {
        expected.push_back(std::to_string(i));
        center->notifyObserversWithSelector_object(kChanged, str(expected.back()));
    }
    ASSERT_TRUE(runLoopUntil([&] {
        return std::all_of(listeners.begin(), listeners.end(), [](auto& l) { return l->count() == kBroadcasts; });
    }));
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(listeners[i]->calls(), expected);
        EXPECT_THAT(listeners[i]->threads(), ::testing::Each(workers[i].thread.get()));
    }
}

TEST(TXZonObserverCenter, ABroadcastFromAnotherThreadIsHandedToTheDispatchThread)
{
    RunLoopWorker worker;
    auto center = TXZonObserverCenter::observerCenter();
    auto listener = Listener::listener();
    center->addObserver(listener); // called on this (the main) thread
    // The main thread waits for the worker's broadcast to return, so nothing can have run yet.
    worker.thread->runLoop()->performBlockAndWait({NSDefaultRunLoopMode},
        [&] { center->notifyObserversWithSelector_object(kChanged, str("hop")); });
    EXPECT_EQ(listener->count(), 0u);
    ASSERT_TRUE(runLoopUntil([&] { return listener->count() == 1; }));
    EXPECT_EQ(listener->threads()[0], Thread::mainThread());
}

TEST(TXZonObserverCenter, DelegatesMayAddAndRemoveThemselvesFromTheirOwnThreadsDuringBroadcasts)
{
    RunLoopWorker workers[2];
    auto center = TXZonObserverCenter::observerCenter();
    std::atomic<bool> churn {true};
    std::vector<Ref<Listener>> listeners;
    for (auto& worker : workers) {
        auto listener = Listener::listener();
        Listener* self = listener.get();
        Thread* thread = worker.thread;
        listener->onCall = [&churn, center = center.get(), self, thread] {
            if (!churn)
                return;
            center->removeObserver(self);
            center->addZonObserver(TXZonObserver::observerForDelegate_withThread(self, thread));
        };
        center->addZonObserver(TXZonObserver::observerForDelegate_withThread(listener, thread));
        listeners.push_back(listener);
    }
    for (int i = 0; i < 300; ++i)
        center->notifyObserversWithSelector_object(kChanged, str("x"));
    // Once each worker has run what was queued to it, both delegates are registered again.
    for (auto& worker : workers)
        worker.thread->runLoop()->performBlockAndWait({NSDefaultRunLoopMode}, [] {});
    churn = false;
    center->notifyObserversWithSelector_object(kChanged, str("end"));
    ASSERT_TRUE(runLoopUntil([&] {
        return std::all_of(listeners.begin(), listeners.end(), [](auto& listener) {
            auto calls = listener->calls();
            return !calls.empty() && calls.back() == "end";
        });
    }));
    EXPECT_EQ(center->observerObjects()->count(), 2u);
}

TEST(TXZonObserverCenter, WithoutADispatchThreadNobodyIsCalledAndOneWarningIsLogged)
{
    LogCapture capture;
    auto center = TXZonObserverCenter::observerCenter();
    auto listener = Listener::listener();
    center->addObserver(listener);
    center->setDispatchThread(nullptr);
    EXPECT_EQ(center->dispatchThread(), nullptr);
    center->notifyObserversWithSelector_object(kChanged, str("lost"));
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.05, false);
    EXPECT_EQ(listener->count(), 0u);
    EXPECT_THAT(capture.records(),
        ContainsLine(logger::kLevelWarning, "Cannot perform selector changed: on observers, no dispatch thread"));
    EXPECT_EQ(capture.records().size(), 1u);
}

TEST(TXZonObserverCenter, ARequiredOperationADelegateLacksIsLoggedAndTheOthersAreStillCalled)
{
    LogCapture capture;
    auto center = TXZonObserverCenter::observerCenter();
    auto bystander = makeObject<Bystander>();
    auto listener = Listener::listener();
    center->addObserver(bystander);
    center->addObserver(listener);
    center->notifyObserversWithSelector_objects_requiredSelector(kChanged, args({str("all")}), true);
    ASSERT_TRUE(runLoopUntil([&] { return listener->count() == 1; }));
    EXPECT_THAT(capture.records(), ContainsLine(logger::kLevelError, ::testing::StartsWith("Error trying to start perform selector changed: on thread")));
    EXPECT_THAT(capture.records(),
        ContainsLine(logger::kLevelError, ::testing::MatchesRegex("Exception sending changed: with params \\(\n    all\n\\) to TXObserver: Bystander on thread .*")));
    (void)kUnknown;
}

TEST(TXZonObserverCenter, ADelegateDestroyedWhileRegisteredIsSkipped)
{
    auto center = TXZonObserverCenter::observerCenter();
    auto survivor = Listener::listener();
    {
        auto doomed = Listener::listener();
        center->addObserver(doomed);
        center->addObserver(survivor);
    }
    center->notifyObserversWithSelector_object(kChanged, str("still here"));
    ASSERT_TRUE(runLoopUntil([&] { return survivor->count() == 1; }));
    EXPECT_EQ(center->observerObjects()->count(), 1u);
    EXPECT_EQ(center->observerZonObjects()->count(), 2u) << "the registration itself stays";
}
