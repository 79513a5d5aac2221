#include "platform/threads/Thread.h"

#include "platform/diagnostics/ExceptionHandler.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/runtime/Class.h"
#include "platform/threads/RunLoop.h"
#include "platform/values/Date.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <pthread.h>
#include <unistd.h>

#include <thread>

namespace zon {

ZON_DEFINE_CLASS(Thread, "NSThread")

// This thread's Thread object. For threads other than the main one it also holds the reference
// that keeps the object alive while the thread runs, and reports the thread's end.
struct CurrentThreadSlot {
    Thread* thread = nullptr;
    Ref<Thread> owned;

    ~CurrentThreadSlot()
    {
        if (owned)
            owned->didExit();
    }
};

namespace {

thread_local CurrentThreadSlot currentSlot;

// The system keeps 15 bytes of a thread's name.
void setSystemThreadName(const std::string& name)
{
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

} // namespace

Thread::Thread(Body body) : body_(std::move(body)) {}

Thread::~Thread()
{
    if (RunLoop* loop = runLoop_.load(std::memory_order_acquire)) {
        loop->threadDidDestruct();
        loop->release();
    }
}

Ref<Thread> Thread::threadWithBody(Body body) { return makeObject<Thread>(std::move(body)); }

Ref<Thread> Thread::detachNewThreadWithBody(Body body)
{
    auto thread = threadWithBody(std::move(body));
    thread->start();
    return thread;
}

Thread* Thread::mainThread()
{
    static Thread* const main = [] {
        Thread* thread = makeObject<Thread>(Body {}).leakRef();
        thread->makeImmortal();
        thread->isMain_ = true;
        thread->state_ = State::Executing;
        thread->name_ = ZSTR("main");
        return thread;
    }();
    return main;
}

Thread* Thread::currentThread()
{
    if (Thread* thread = currentSlot.thread)
        return thread;
    if (gettid() == getpid()) {
        currentSlot.thread = mainThread();
        return currentSlot.thread;
    }
    // A thread the library did not start: it gets its object now and keeps it until it ends.
    auto thread = makeObject<Thread>(Body {});
    thread->state_ = State::Executing;
    thread->attachToCurrentThread();
    return thread.get();
}

bool Thread::isMainThread() { return currentThread()->isMain_; }

void Thread::attachToCurrentThread()
{
    currentSlot.thread = this;
    currentSlot.owned = this;
}

void Thread::start()
{
    {
        std::lock_guard lock(mutex_);
        if (state_ != State::Created)
            raisePlatformException(NSInvalidArgumentException, "-[NSThread start]: attempt to start the thread again");
        state_ = State::Starting;
    }
    std::thread(threadMain, Ref(this)).detach();
}

void Thread::threadMain(Ref<Thread> thread)
{
    thread->attachToCurrentThread();
    ExceptionHandler::prepareCurrentThread();
    Body body;
    {
        std::lock_guard lock(thread->mutex_);
        thread->state_ = State::Executing;
        body = std::move(thread->body_);
    }
    thread->applySystemName();
    thread = nullptr; // the slot holds it from here on
    AutoreleasePool pool;
    if (body)
        body();
}

void Thread::didExit()
{
    RunLoop* loop;
    {
        std::lock_guard lock(mutex_);
        state_ = State::Exiting; // from now on a new run loop is made already shut down
        loop = runLoop_.load(std::memory_order_relaxed);
    }
    // Shut down before anyone learns the thread finished: what it left queued is gone by then.
    if (loop)
        loop->threadDidExit();
    {
        std::lock_guard lock(mutex_);
        state_ = State::Finished;
    }
    finished_.notify_all();
}

Ref<String> Thread::name() const
{
    std::lock_guard lock(mutex_);
    return name_ ? name_ : Ref<String>(ZSTR(""));
}

void Thread::setName(String* name)
{
    {
        std::lock_guard lock(mutex_);
        name_ = name ? staticRefCast<String>(name->copy()) : nullptr;
    }
    if (currentSlot.thread == this)
        applySystemName();
}

void Thread::applySystemName() const
{
    Ref<String> name;
    {
        std::lock_guard lock(mutex_);
        name = name_;
    }
    if (name)
        setSystemThreadName(name->UTF8String());
}

void Thread::cancel()
{
    cancelled_.store(true, std::memory_order_release);
    std::function<void()> handler;
    {
        std::lock_guard lock(mutex_);
        handler = cancellationHandler_;
    }
    if (handler)
        handler();
}

void Thread::setCancellationHandler(std::function<void()> handler)
{
    std::lock_guard lock(mutex_);
    cancellationHandler_ = std::move(handler);
}

bool Thread::isExecuting() const
{
    std::lock_guard lock(mutex_);
    return state_ == State::Executing;
}

bool Thread::isFinished() const
{
    std::lock_guard lock(mutex_);
    return state_ == State::Finished;
}

bool Thread::waitUntilFinished(std::chrono::nanoseconds timeout) const
{
    std::unique_lock lock(mutex_);
    return finished_.wait_for(lock, timeout, [&] { return state_ == State::Finished; });
}

void Thread::sleepForTimeInterval(double seconds)
{
    if (seconds > 0)
        std::this_thread::sleep_for(std::chrono::duration<double>(std::min(seconds, 1e9)));
}

void Thread::sleepUntilDate(const Date* date)
{
    if (date)
        sleepForTimeInterval(date->timeIntervalSinceNow());
}

RunLoop* Thread::runLoop()
{
    if (RunLoop* loop = runLoop_.load(std::memory_order_acquire))
        return loop;
    std::lock_guard lock(mutex_);
    RunLoop* loop = runLoop_.load(std::memory_order_relaxed);
    if (!loop) {
        loop = makeObject<RunLoop>(this).leakRef();
        if (state_ == State::Exiting || state_ == State::Finished)
            loop->threadDidExit();
        runLoop_.store(loop, std::memory_order_release);
    }
    return loop;
}

} // namespace zon
