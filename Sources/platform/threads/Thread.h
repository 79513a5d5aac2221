#pragma once

#include "platform/runtime/Object.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace zon {

class Array;
class Date;
class RunLoop;
class String;

// An operating-system thread; run-time class NSThread.
//
// Contract: a Thread made with threadWithBody runs its body once start() is called and holds a
// reference to itself until the body returns. Threads the library did not start (the process's
// initial thread, threads of std::thread) get their Thread object on the first currentThread();
// it stays theirs until they end. Each thread has at most one run loop, made on first use (also
// from another thread, so work can be queued to a thread before it runs its loop). When the thread
// ends its loop drops whatever is still queued. name, cancel and the state queries are safe from
// any thread.
class ZON_EXPORT Thread final : public Object {
    ZON_OBJECT(Thread, Object)
public:
    using Body = std::function<void()>;

    // A thread that will run body once started.
    static Ref<Thread> threadWithBody(Body body);
    // Makes and starts a thread.
    static Ref<Thread> detachNewThreadWithBody(Body body);

    static Thread* currentThread();
    // The process's initial thread.
    static Thread* mainThread();
    static bool isMainThread();

    // Starts the thread; raises NSInvalidArgumentException when it was started before.
    void start();

    // The empty string until one is set; "main" for the main thread. The system's name of the
    // thread (its first 15 bytes) follows it.
    Ref<String> name() const;
    void setName(String* name);

    // Marks the thread cancelled, then calls the cancellation handler if one is set. The thread
    // itself decides when to look at isCancelled().
    void cancel();
    bool isCancelled() const { return cancelled_.load(std::memory_order_acquire); }
    // Called by cancel() on the cancelling thread; lets a thread that waits on its run loop notice.
    void setCancellationHandler(std::function<void()> handler);

    bool isExecuting() const;
    bool isFinished() const;
    // Blocks until the thread has ended or timeout has passed; answers isFinished().
    bool waitUntilFinished(std::chrono::nanoseconds timeout) const;

    static void sleepForTimeInterval(double seconds);
    static void sleepUntilDate(const Date* date);

    // This thread's run loop, made on first use.
    RunLoop* runLoop();

    // NSThread(ZonRunloopExtensions): a started, unnamed worker thread whose body is
    // detachedRunloopThreadMain; answered autoreleased (the caller holds no reference).
    static Thread* detachRunloopThread();
    // Runs the current thread's loop in the default mode, work item after work item, until the
    // thread is cancelled and its loop has nothing more to do. A platform exception thrown by the
    // work is logged and the loop goes on; any other exception leaves the body, which ends the
    // process as any uncaught exception does.
    static void detachedRunloopThreadMain();

    // NSThread(ZonStackExtensions): the calling thread's frames, innermost first, at most 128,
    // each as the C library's symbol line ("module(function+0x1f) [0x...]").
    static Ref<Array> getCurrentCallstackSymbols();

    ~Thread() override;

private:
    enum class State { Created, Starting, Executing, Exiting, Finished };
    friend struct CurrentThreadSlot;

    explicit Thread(Body body);

    static void threadMain(Ref<Thread> thread);
    // Makes this the current thread's object; called on the thread itself.
    void attachToCurrentThread();
    // Called on the thread as it ends.
    void didExit();
    void applySystemName() const;

    Body body_;
    std::atomic<bool> cancelled_ {false};
    bool isMain_ = false;

    mutable std::mutex mutex_; // guards what follows
    mutable std::condition_variable finished_;
    State state_ = State::Created;
    Ref<String> name_;
    std::function<void()> cancellationHandler_;
    std::atomic<RunLoop*> runLoop_ {nullptr}; // owned; written once under mutex_
};

} // namespace zon
