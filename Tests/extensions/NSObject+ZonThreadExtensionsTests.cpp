#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/Object.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/Thread.h"
#include "platform/values/Array.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"
#include "support/Raised.h"
#include "support/RunLoopWorker.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

using namespace zon;
using namespace zon::test;
using test::HangGuard;
using test::runLoopUntil;
using testing::HasSubstr;

namespace {

// Records the calls it receives, with the thread each ran on.
class Recorder final : public Object {
    ZON_OBJECT(Recorder, Object)
public:
    static Ref<Recorder> recorder() { return makeObject<Recorder>(); }
    static void exportMethods(Class& cls)
    {
        cls.exportMethod("takeFirst:second:", &Recorder::takeFirst_second);
        cls.exportMethod("join:with:", &Recorder::join_with);
        cls.exportMethod("whole:", &Recorder::whole);
        cls.exportMethod("count", &Recorder::count);
        cls.exportMethod("fail", &Recorder::fail);
        cls.exportMethod("currentThread", &Recorder::currentThread);
    }

    struct Call {
        Ref<Object> first;
        Ref<Object> second;
        Thread* thread;
    };
    std::vector<Call> calls() const
    {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    size_t callCount() const { return calls().size(); }

private:
    Recorder() = default;
    void record(Object* first, Object* second)
    {
        std::lock_guard lock(mutex_);
        calls_.push_back({first, second, Thread::currentThread()});
    }
    void takeFirst_second(Object* first, Object* second) { record(first, second); }
    String* join_with(String* first, String* second)
    {
        record(first, second);
        return first;
    }
    Object* whole(Object* argument)
    {
        record(argument, nullptr);
        return argument;
    }
    int count()
    {
        record(nullptr, nullptr);
        return 42;
    }
    void fail() { raisePlatformException(NSGenericException, "boom"); }
    Thread* currentThread() { return Thread::currentThread(); }

    mutable std::mutex mutex_;
    std::vector<Call> calls_;
};
ZON_DEFINE_CLASS(Recorder, "ThreadExtensionsTestRecorder")

SEL const kTakeTwo = selector("takeFirst:second:");

Ref<Array> objects(std::initializer_list<Object*> list) { return Array::arrayWithObjects(list); }

} // namespace

TEST(NSObjectZonThreadExtensions, ImmediateCallNeedsExactlyTheArgumentCount)
{
    auto recorder = Recorder::recorder();
    String* a = ZSTR("a");
    String* b = ZSTR("b");
    EXPECT_EQ(recorder->performSelector_withObjects(selector("join:with:"), objects({a, b})), a);
    EXPECT_EQ(recorder->performSelector_withObjects(kTakeTwo, objects({a, b})), nullptr) << "void gives nil";
    EXPECT_EQ(inconsistencyReason([&] { recorder->performSelector_withObjects(kTakeTwo, objects({a})); }),
        "Performing selector with incorrect argument count, expected: 2, recieved: 1");
    EXPECT_EQ(recorder->callCount(), 2u);
}

TEST(NSObjectZonThreadExtensions, QueuedCallFillsMissingArgumentsWithNilButRefusesExtras)
{
    HangGuard guard;
    RunLoopWorker worker;
    auto recorder = Recorder::recorder();
    String* a = ZSTR("a");
    recorder->performSelector_onThread_withObjects_waitUntilDone(kTakeTwo, worker.thread, objects({a}), true);
    ASSERT_EQ(recorder->callCount(), 1u);
    EXPECT_EQ(recorder->calls()[0].first.get(), a);
    EXPECT_EQ(recorder->calls()[0].second.get(), nullptr);
    EXPECT_EQ(recorder->calls()[0].thread, worker.thread.get());

    EXPECT_EQ(inconsistencyReason([&] {
        recorder->performSelector_onThread_withObjects_waitUntilDone(kTakeTwo, worker.thread, objects({a, a, a}), true);
    }),
        "Performing selector with incorrect argument count, expected: 2, recieved: 3");
    EXPECT_EQ(recorder->callCount(), 1u);
}

TEST(NSObjectZonThreadExtensions, WaitingCallOnOwnThreadRunsInlineAndOthersQueue)
{
    auto recorder = Recorder::recorder();
    recorder->performSelector_onThread_withObjects_waitUntilDone(kTakeTwo, Thread::currentThread(), nullptr, true);
    EXPECT_EQ(recorder->callCount(), 1u);

    recorder->performSelectorOnMainThread_withObjects_waitUntilDone(kTakeTwo, nullptr, false);
    EXPECT_EQ(recorder->callCount(), 1u);
    runLoopUntil([&] { return recorder->callCount() == 2; });
}

TEST(NSObjectZonThreadExtensions, QueuedCallWaitsForItsMode)
{
    String* mode = ZSTR("ThreadExtensionsTestMode");
    auto recorder = Recorder::recorder();
    std::thread([&] {
        recorder->performSelectorOnMainThread_withObjects_waitUntilDone_modes(kTakeTwo, nullptr, false, objects({mode}));
    }).join();
    RunLoop::currentRunLoop()->performBlock({NSDefaultRunLoopMode}, [] {});
    RunLoop::currentRunLoop()->runInMode(NSDefaultRunLoopMode, 0.0, false);
    EXPECT_EQ(recorder->callCount(), 0u);
    runLoopUntil([&] { return recorder->callCount() == 1; }, mode);
}

TEST(NSObjectZonThreadExtensions, ArgumentListFormsTakeANilFirstObjectAsNoArguments)
{
    HangGuard guard;
    RunLoopWorker worker;
    auto recorder = Recorder::recorder();
    Ref<String> a = String::stringWithUTF8String("a");
    String* b = ZSTR("b");
    recorder->performSelector_onThread_waitUntilDone_withObjects(kTakeTwo, worker.thread, true, a, b);
    recorder->performSelector_onThread_waitUntilDone_withObjects(kTakeTwo, worker.thread, true, nullptr, b);
    recorder->performSelector_onThread_waitUntilDone_modes_withObjects(
        kTakeTwo, worker.thread, true, objects({NSDefaultRunLoopMode}), a, b, b);
    auto calls = recorder->calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].first.get(), a.get());
    EXPECT_EQ(calls[0].second.get(), b);
    EXPECT_EQ(calls[1].first.get(), nullptr);
    EXPECT_EQ(calls[1].second.get(), nullptr);
    EXPECT_EQ(calls[2].second.get(), b);
}

TEST(NSObjectZonThreadExtensions, MissingMethodLogsThenRaises)
{
    LogCapture capture;
    auto recorder = Recorder::recorder();
    RunLoopWorker worker;
    worker.thread->setName(ZSTR("named worker"));
    EXPECT_THROW(recorder->performSelector_onThread_withObjects_waitUntilDone(selector("nope:"), worker.thread, nullptr, true),
        Exception);
    EXPECT_THAT(capture.records(), ContainsLine(1, "Error trying to start perform selector nope: on thread named worker"));
    EXPECT_THROW(recorder->performSelector_withObjects(selector("nope"), nullptr), Exception);
    EXPECT_THAT(capture.records(), ContainsLine(1, "Error trying to start perform selector nope on thread main"));
}

TEST(NSObjectZonThreadLockExtensions, ResultComesBackFromTheOtherThread)
{
    HangGuard guard;
    RunLoopWorker worker;
    auto recorder = Recorder::recorder();
    String* a = ZSTR("a");
    EXPECT_EQ(recorder->performSelectorWithExpectedReturn_onThread_withObjects(
                  selector("join:with:"), worker.thread, objects({a, ZSTR("b")})),
        a);
    EXPECT_EQ(recorder->calls().back().thread, worker.thread.get());
    EXPECT_EQ(inconsistencyReason([&] {
        recorder->performSelectorWithExpectedReturn_onThread_withObjects(kTakeTwo, worker.thread, objects({a}));
    }),
        "Performing selector with incorrect argument count, expected: 2, recieved: 1");

    EXPECT_EQ(recorder->performSelectorWithExpectedReturn_onThread_withObject(selector("whole:"), worker.thread, a), a);
    EXPECT_EQ(recorder->performSelectorWithExpectedReturn_onThread_withObject(selector("currentThread"), worker.thread, nullptr),
        worker.thread.get()) << "a nil object is no argument";
}

TEST(NSObjectZonThreadLockExtensions, OnTheTargetThreadTheWholeArrayIsTheOneArgument)
{
    auto recorder = Recorder::recorder();
    auto array = objects({ZSTR("a"), ZSTR("b")});
    EXPECT_EQ(recorder->performSelectorWithExpectedReturn_onThread_withObjects(selector("whole:"), Thread::currentThread(), array),
        array.get());
    EXPECT_EQ(recorder->calls()[0].first.get(), array.get());
}

TEST(NSObjectZonThreadLockExtensions, NonObjectResultIsNilAndLogged)
{
    HangGuard guard;
    LogCapture capture;
    RunLoopWorker worker;
    auto recorder = Recorder::recorder();
    EXPECT_EQ(recorder->performSelectorWithExpectedReturn_onThread_withObjects(selector("count"), worker.thread, nullptr), nullptr);
    EXPECT_EQ(recorder->callCount(), 1u);
    EXPECT_THAT(capture.records(), ContainsLine(2, "Returning nil, return type not handled"));
}

TEST(NSThreadZonRunloopExtensions, WorkerRunsWorkLogsPlatformExceptionsAndEndsWhenCancelled)
{
    HangGuard guard;
    LogCapture capture;
    AutoreleasePool pool;
    auto recorder = Recorder::recorder();
    Ref<Thread> worker = Thread::detachRunloopThread();
    EXPECT_EQ(worker->name()->UTF8String(), "");

    recorder->performSelector_onThread_withObjects_waitUntilDone(selector("fail"), worker, nullptr, true);
    EXPECT_TRUE(capture.waitForLine("Unhandled NSGenericException in worker thread: boom"));
    EXPECT_THAT(capture.records(), ContainsLine(1, "Unhandled NSGenericException in worker thread: boom"));
    recorder->performSelector_onThread_withObjects_waitUntilDone(kTakeTwo, worker, nullptr, true);
    EXPECT_EQ(recorder->callCount(), 1u) << "the worker goes on after an exception";

    // Work queued before the cancel still runs; the worker then ends.
    recorder->performSelector_onThread_withObjects_waitUntilDone(kTakeTwo, worker, nullptr, false);
    worker->cancel();
    EXPECT_TRUE(worker->waitUntilFinished(test::kHangLimit));
    EXPECT_EQ(recorder->callCount(), 2u);

    // Nothing runs on an ended worker, and a waiting caller is not left hanging.
    recorder->performSelector_onThread_withObjects_waitUntilDone(kTakeTwo, worker, nullptr, true);
    EXPECT_EQ(recorder->callCount(), 2u);
}
