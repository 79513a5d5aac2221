#include "platform/diagnostics/ExceptionHandler.h"

#include "logger/ZonLog.h"
#include "platform/diagnostics/StackTrace.h"
#include "platform/runtime/Class.h"
#include "platform/system/SignalCallsInternal.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <mutex>

namespace zon {

void setExceptionUserInfo(Exception& exception, Ref<Dictionary> userInfo);

ZON_DEFINE_CLASS(ExceptionHandler, "NSExceptionHandler")

ZON_STRING_CONSTANT(NSUncaughtSystemExceptionException, "NSUncaughtSystemExceptionException");
ZON_STRING_CONSTANT(NSUncaughtRuntimeErrorException, "NSUncaughtRuntimeErrorException");

namespace {

struct Kind {
    unsigned log;
    unsigned handle;
    const char* text;
};

constexpr Kind kUncaught { NSLogUncaughtExceptionMask, NSHandleUncaughtExceptionMask, "Uncaught exception" };
constexpr Kind kSystem { NSLogUncaughtSystemExceptionMask, NSHandleUncaughtSystemExceptionMask,
    "Uncaught system exception" };
constexpr Kind kRuntime { NSLogUncaughtRuntimeErrorMask, NSHandleUncaughtRuntimeErrorMask, "Uncaught run-time error" };
constexpr Kind kTopLevel { NSLogTopLevelExceptionMask, NSHandleTopLevelExceptionMask, "Top-level exception" };
constexpr Kind kOther { NSLogOtherExceptionMask, NSHandleOtherExceptionMask, "Exception raised" };

constexpr int kFatalSignals[] = { SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS };
// Room for the report on a thread whose own stack overflowed: symbolising and logging run there.
constexpr size_t kSignalStackBytes = 512 * 1024;

std::atomic<unsigned> gMask { 0 };
std::atomic<bool> gInstalled { false };
std::terminate_handler gPreviousTerminate = nullptr;
// The first fatal signal; any later one (a fault inside the report) ends the process at once.
std::atomic<int> gFatalSignal { 0 };
// Exceptions raised while this thread reports are not reported again.
thread_local bool tReporting = false;

struct SignalStack {
    void* base = nullptr;
    ~SignalStack()
    {
        if (!base)
            return;
        (void)setAlternateSignalStack(nullptr, 0);
        unmapSignalStack(base, kSignalStackBytes);
    }
};
thread_local SignalStack tSignalStack;

bool wants(const Kind& kind) { return gMask.load(std::memory_order_relaxed) & (kind.log | kind.handle); }

// Offers the exception to the delegate when the kind's log flag is set; answers whether the
// handler's own report follows.
bool offerToDelegate(const Kind& kind, const Exception& exception)
{
    if (!(gMask.load(std::memory_order_relaxed) & kind.log))
        return false;
    ExceptionHandler* handler = ExceptionHandler::defaultExceptionHandler();
    static SEL const shouldLog = selector("exceptionHandler:shouldLogException:mask:");
    auto delegate = handler->delegate();
    if (!delegate || !delegate->respondsToSelector(shouldLog))
        return true;
    auto mask = Number::numberWithUnsignedInteger(kind.log);
    Object* arguments[] = { handler, const_cast<Exception*>(&exception), mask.get() };
    const Ref<Object> answer = delegate->performSelectorWithArguments(shouldLog, arguments);
    auto* number = dynamicCast<Number>(answer.get());
    return number && number->boolValue();
}

void logOwnReport(const Kind& kind, const Exception& exception)
{
    zon_log_obj(__FILE__, __LINE__, &exception, logger::kLevelError, kDefaultLogIdentifier, "*** %s %@: %@", kind.text,
        exception.name(), exception.reason());
}

// The report of an exception that does not end the process by itself; "handle" ends it.
void reportAndMaybeEnd(const Kind& kind, const Exception& exception)
{
    if (!wants(kind) || tReporting)
        return;
    tReporting = true;
    if (offerToDelegate(kind, exception))
        logOwnReport(kind, exception);
    tReporting = false;
    if (gMask.load(std::memory_order_relaxed) & kind.handle)
        std::abort();
}

Ref<Dictionary> userInfoWithStack(const Dictionary* userInfo, String* stack)
{
    auto entries = userInfo ? MutableDictionary::dictionaryWithDictionary(userInfo) : MutableDictionary::dictionary();
    entries->setObject_forKey(stack, NSStackTraceKey);
    return Dictionary::dictionaryWithDictionary(entries.get());
}

std::string demangledCurrentExceptionType()
{
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (!type)
        return "(unknown)";
    int status = 0;
    char* demangled = abi::__cxa_demangle(type->name(), nullptr, nullptr, &status);
    std::string name = status == 0 && demangled ? demangled : type->name();
    std::free(demangled);
    return name;
}

Ref<Exception> stackedException(String* name, std::string_view reason)
{
    return Exception::exceptionWithName_reason_userInfo(name, String::stringWithUTF8String(reason).get(),
        userInfoWithStack(nullptr, currentStackTraceText().get()).get());
}

// The exception std::terminate was called for, with a stack: the one recorded when it was raised,
// else the stack here, which still holds the throw site (nothing was unwound).
Ref<Exception> uncaughtException(const std::exception_ptr& current)
{
    try {
        std::rethrow_exception(current);
    } catch (const Exception& exception) {
        Ref<Exception> copy = adoptRef(static_cast<Exception*>(exception.copy().leakRef()));
        if (!(exception.userInfo() && exception.userInfo()->objectForKey(NSStackTraceKey)))
            setExceptionUserInfo(*copy, userInfoWithStack(exception.userInfo(), currentStackTraceText().get()));
        return copy;
    } catch (const std::exception& exception) {
        return stackedException(String::stringWithUTF8String(demangledCurrentExceptionType()).get(), exception.what());
    } catch (...) {
        return stackedException(String::stringWithUTF8String(demangledCurrentExceptionType()).get(), "");
    }
}

[[noreturn]] void onTerminate()
{
    static std::atomic<bool> entered { false };
    if (entered.exchange(true))
        std::abort();
    const std::exception_ptr current = std::current_exception();
    const Kind& kind = current ? kUncaught : kRuntime;
    bool previousRuns = true;
    if (wants(kind) && !tReporting) {
        tReporting = true;
        auto exception = current
            ? uncaughtException(current)
            : stackedException(NSUncaughtRuntimeErrorException, "terminate called without an active exception");
        previousRuns = offerToDelegate(kind, *exception);
    }
    if (previousRuns && gPreviousTerminate)
        gPreviousTerminate();
    std::abort();
}

[[noreturn]] void dieOf(int signal)
{
    restoreDefaultSignalAction(signal);
    unblockSignal(signal);
    raiseSignal(signal);
    std::_Exit(128 + signal); // not reached: the signal ends the process
}

// A report that has not ended in time: end as the fault would have.
void onReportTimeout(int, siginfo_t*, void*) { dieOf(gFatalSignal.load()); }

const char* signalName(int signal)
{
    switch (signal) {
    case SIGSEGV: return "SIGSEGV";
    case SIGBUS: return "SIGBUS";
    case SIGILL: return "SIGILL";
    case SIGFPE: return "SIGFPE";
    case SIGSYS: return "SIGSYS";
    default: return "?";
    }
}

// Capturing the stack, arming the alarm and re-raising are async-signal-safe; the report between
// them is not (it allocates, locks and logs) and is bounded by the alarm.
void onFatalSignal(int signal, siginfo_t* info, void*)
{
    int none = 0;
    if (!gFatalSignal.compare_exchange_strong(none, signal)) {
        // Installed with SA_RESETHAND, so this signal's default action is back: re-raised, it
        // ends the process as soon as this handler returns.
        restoreDefaultSignalAction(signal);
        raiseSignal(signal);
        return;
    }
    if (wants(kSystem)) {
        void* frames[kMaximumStackFrames];
        const size_t count = captureReturnAddresses(frames);
        char stack[kMaximumStackTraceLength];
        const size_t length = formatStackTrace(std::span(frames, count), stack);
        (void)installSignalHandler(SIGALRM, onReportTimeout, 0);
        armAlarm(kFatalReportSeconds);
        char reason[96];
        std::snprintf(reason, sizeof reason, "Signal %d (%s), fault address 0x%lx", signal, signalName(signal),
            info ? reinterpret_cast<unsigned long>(info->si_addr) : 0UL);
        tReporting = true;
        auto exception = Exception::exceptionWithName_reason_userInfo(NSUncaughtSystemExceptionException,
            String::stringWithUTF8String(reason).get(),
            userInfoWithStack(nullptr, String::stringWithUTF8String(std::string_view(stack, length)).get()).get());
        if (offerToDelegate(kSystem, *exception))
            logOwnReport(kSystem, *exception);
    }
    restoreDefaultSignalAction(signal);
    raiseSignal(signal);
}

void installHooks()
{
    loadUnwinder();
    gPreviousTerminate = std::set_terminate(onTerminate);
    for (int signal : kFatalSignals) {
        auto installed = installSignalHandler(signal, onFatalSignal, SA_ONSTACK | SA_RESETHAND);
        if (!installed)
            zon_log_obj(__FILE__, __LINE__, ExceptionHandler::staticClass()->logCategory(), logger::kLevelError,
                kDefaultLogIdentifier, "Cannot watch signal %d: %s", signal, installed.error().text().c_str());
    }
}

} // namespace

ExceptionHandler::ExceptionHandler() = default;

ExceptionHandler* ExceptionHandler::defaultExceptionHandler()
{
    static ExceptionHandler* const shared = [] {
        auto* handler = makeObject<ExceptionHandler>().leakRef();
        handler->makeImmortal();
        return handler;
    }();
    return shared;
}

namespace {
std::mutex gDelegateMutex;
Ref<Object> gDelegate;
} // namespace

void ExceptionHandler::setDelegate(Object* delegate)
{
    Ref<Object> old;
    std::lock_guard lock(gDelegateMutex);
    old = std::exchange(gDelegate, Ref(delegate));
}

Ref<Object> ExceptionHandler::delegate() const
{
    std::lock_guard lock(gDelegateMutex);
    return gDelegate;
}

void ExceptionHandler::setExceptionHandlingMask(unsigned mask)
{
    gMask.store(mask, std::memory_order_relaxed);
    if (mask && !gInstalled.exchange(true))
        installHooks();
    prepareCurrentThread();
}

unsigned ExceptionHandler::exceptionHandlingMask() const { return gMask.load(std::memory_order_relaxed); }

void ExceptionHandler::reportTopLevelException(const Exception& exception) { reportAndMaybeEnd(kTopLevel, exception); }

void ExceptionHandler::prepareCurrentThread()
{
    if (!gInstalled.load() || tSignalStack.base)
        return;
    auto stack = mapSignalStack(kSignalStackBytes);
    if (!stack)
        return;
    if (!setAlternateSignalStack(stack.value(), kSignalStackBytes)) {
        unmapSignalStack(stack.value(), kSignalStackBytes);
        return;
    }
    tSignalStack.base = stack.value();
}

void ExceptionHandler::exceptionWillRaise(Exception& thrown)
{
    if (!gMask.load(std::memory_order_relaxed) || tReporting)
        return;
    void* frames[kMaximumStackFrames];
    const size_t count = captureReturnAddresses(frames);
    char stack[kMaximumStackTraceLength];
    const size_t length = formatStackTrace(std::span(frames, count), stack);
    setExceptionUserInfo(thrown,
        userInfoWithStack(thrown.userInfo(), String::stringWithUTF8String(std::string_view(stack, length)).get()));
    reportAndMaybeEnd(kOther, thrown);
}

} // namespace zon
