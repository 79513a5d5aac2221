#pragma once

// The process's exception handler: one shared object with a delegate and a mask of what to watch.
//
//     ExceptionHandler::defaultExceptionHandler()->setDelegate(myDelegate);
//     ExceptionHandler::defaultExceptionHandler()->setExceptionHandlingMask(255);
//
// Each exception it sees is offered to the delegate's exported
// "exceptionHandler:shouldLogException:mask:" (handler, exception, the mask flag that applies) when
// the kind's log flag is set; the answer (true without a delegate) says whether the handler's own
// report follows. Kinds, and what "handle" does:
//   - uncaught exceptions (a suite exception, or any C++ exception, reaching std::terminate):
//     answered true, the previous terminate handler runs (it prints and aborts), else abort();
//   - uncaught run-time errors (std::terminate without an exception: a pure virtual call, a
//     joinable std::thread destroyed): reported as NSUncaughtRuntimeErrorException, then as above;
//   - system exceptions (SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS) on an alternate signal stack:
//     reported as NSUncaughtSystemExceptionException "Signal <n> (<NAME>), fault address 0x<hex>",
//     then the default action is restored and the signal raised again, so the process dies of it
//     and a core dump shows the fault. A report that hangs (a lock held by the faulting code) is
//     cut off after kFatalReportSeconds the same way;
//   - top-level exceptions: those the platform's own loops catch (a worker thread's run loop),
//     reported before the loop logs them;
//   - other exceptions: reported when raised.
// "Handle" for top-level and other exceptions ends the process (abort) after the report: there is
// no thread-only exit that leaves a process in a known state. While any flag is set, raise()
// records the raising stack in the thrown copy's user info under NSStackTraceKey.
//
// The delegate is called on the thread where the exception occurred, possibly on several threads
// at once, and in a fatal-signal handler: there it may allocate and lock, which a fault inside the
// allocator can turn into a hang; the alarm above bounds that.

#include "platform/runtime/Object.h"

#include <exception>

namespace zon {

class Exception;
class String;

enum : unsigned {
    NSLogUncaughtExceptionMask = 1 << 0,
    NSHandleUncaughtExceptionMask = 1 << 1,
    NSLogUncaughtSystemExceptionMask = 1 << 2,
    NSHandleUncaughtSystemExceptionMask = 1 << 3,
    NSLogUncaughtRuntimeErrorMask = 1 << 4,
    NSHandleUncaughtRuntimeErrorMask = 1 << 5,
    NSLogTopLevelExceptionMask = 1 << 6,
    NSHandleTopLevelExceptionMask = 1 << 7,
    NSLogOtherExceptionMask = 1 << 8,
    NSHandleOtherExceptionMask = 1 << 9,
};

inline constexpr unsigned kFatalReportSeconds = 10;

ZON_EXPORT extern String* const NSUncaughtSystemExceptionException;
ZON_EXPORT extern String* const NSUncaughtRuntimeErrorException;

class ZON_EXPORT ExceptionHandler final : public Object {
    ZON_OBJECT(ExceptionHandler, Object)
public:
    static ExceptionHandler* defaultExceptionHandler();

    // The delegate is retained.
    void setDelegate(Object* delegate);
    Ref<Object> delegate() const;
    // The first mask with any flag set installs the hooks (terminate handler, fatal-signal
    // handlers, an alternate signal stack for this thread and every platform thread started
    // after) and loads the unwinder; a mask of 0 leaves them in place doing nothing.
    void setExceptionHandlingMask(unsigned mask);
    unsigned exceptionHandlingMask() const;

    // For the platform's own catch sites: reports a top-level exception before the site logs it.
    void reportTopLevelException(const Exception& exception);

    // Gives the calling thread an alternate signal stack when the hooks are installed; platform
    // threads call it as they start.
    static void prepareCurrentThread();

private:
    friend class Exception;
    ExceptionHandler();
    // The exception that raise() is about to throw: its stack, and the report of other exceptions.
    static void exceptionWillRaise(Exception& thrown);
};

} // namespace zon
