#include "Commands.h"

#include "CommandSupport.h"

#include "exceptions/TXZonBaseException.h"
#include "platform/diagnostics/ExceptionHandler.h"
#include "platform/diagnostics/StackSymbolizer.h"
#include "platform/threads/Thread.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <execinfo.h>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>

namespace zon::tool {
namespace {

struct RaiseOptions {
    std::string className = "TXZonBaseException";
    std::optional<std::string> reason;
    std::optional<uint32_t> type;
    std::optional<int32_t> errorType;
    std::optional<uint32_t> errorCode;
};

struct Built {
    Ref<TXZonBaseException> exception;
    const char* constructor;
};

// The constructor of class C whose arguments are the options given.
template <class C> Built build(const RaiseOptions& o)
{
    Ref<String> reason = o.reason ? String::stringWithUTF8String(*o.reason) : nullptr;
    if (o.type && o.errorCode)
        return { C::exceptionWithReason_type_errorCode(reason, *o.type, *o.errorCode),
            "exceptionWithReason:type:errorCode:" };
    if (o.type)
        return { C::exceptionWithReason_type(reason, *o.type), "exceptionWithReason:type:" };
    if (o.errorType && o.errorCode && reason)
        return { C::exceptionWithReason_errorType_errorCode(reason, *o.errorType, *o.errorCode),
            "exceptionWithReason:errorType:errorCode:" };
    if (o.errorType && o.errorCode)
        return { C::exceptionWithErrorType_errorCode(*o.errorType, *o.errorCode), "exceptionWithErrorType:errorCode:" };
    if (o.errorType)
        return { C::exceptionWithReason_errorType(reason, *o.errorType), "exceptionWithReason:errorType:" };
    if (reason)
        return { C::exceptionWithReason(reason), "exceptionWithReason:" };
    return { C::exception(), "exception" };
}

const std::map<std::string, Built (*)(const RaiseOptions&)> kClasses = {
    { "TXZonBaseException", build<TXZonBaseException> },
    { "TXZonBaseConnectException", build<TXZonBaseConnectException> },
    { "TXZonBasePipeException", build<TXZonBasePipeException> },
    { "TXZonBasePipeClosedException", build<TXZonBasePipeClosedException> },
    { "TXZonBaseDisconnectException", build<TXZonBaseDisconnectException> },
};

void raiseAndShow(const RaiseOptions& options)
{
    Built built = kClasses.at(options.className)(options);
    try {
        built.exception->raise();
    } catch (TXZonBaseException& caught) {
        std::cout << "constructor:  +[" << options.className << ' ' << built.constructor << "]\n";
        std::cout << "caught:       " << caught.objectClass()->name() << '\n';
        std::cout << "name:         " << caught.name()->UTF8String() << '\n';
        std::cout << "description:  " << caught.description()->UTF8String() << '\n';
        std::cout << "type:         " << caught.type() << '\n';
        std::cout << "context:      " << caught.context()->description()->UTF8String() << '\n';
        std::cout << "error:        " << caught.error()->description()->UTF8String() << '\n';
    }
}

__attribute__((noinline)) void raiseUncaughtSuiteException()
{
    TXZonBaseException::raiseExceptionWithReason_type(ZSTR("zon crash uncaught"), 1);
}

__attribute__((noinline)) void throwUncaughtStandardException() { throw std::runtime_error("zon crash std"); }

// Faults on purpose: the undefined-behaviour checker must let the fault happen.
__attribute__((noinline, no_sanitize("undefined"))) void writeThroughNull()
{
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
}

__attribute__((noinline, no_sanitize("undefined"))) int divideByZero()
{
    volatile int dividend = 1;
    volatile int zero = 0;
    volatile int quotient = dividend / zero; // volatile: an unused quotient would not be computed
    return quotient;
}

__attribute__((noinline)) void terminateWithoutException() { std::terminate(); }

const std::map<std::string, void (*)()> kCrashes = {
    { "uncaught", raiseUncaughtSuiteException },
    { "std", throwUncaughtStandardException },
    { "segv", writeThroughNull },
    { "fpe", [] { (void)divideByZero(); } },
    { "abort-runtime", terminateWithoutException },
};

void crash(const std::string& how, unsigned mask)
{
    Exception::installZonExceptionHandlerWithExceptionHandlingMask(mask);
    // Out of a noexcept function an exception reaches std::terminate with its throw site still on
    // the stack, as an uncaught one in a plain program does.
    [&]() noexcept { kCrashes.at(how)(); }();
    fail("zon crash " + how + ": the process survived");
}

void showStack()
{
    auto symbols = Thread::getCurrentCallstackSymbols();
    std::cout << "getCurrentCallstackSymbols:\n";
    for (size_t i = 0; i < symbols->count(); ++i)
        std::cout << "  " << dynamicCast<String>(symbols->objectAtIndex(i))->UTF8String() << '\n';
    void* frames[128];
    const int count = ::backtrace(frames, 128);
    std::vector<uintptr_t> addresses;
    for (int i = 0; i < count; ++i)
        addresses.push_back(reinterpret_cast<uintptr_t>(frames[i]));
    std::cout << "symbolised:\n";
    for (const auto& line : StackSymbolizer::inProcess()->symbolize(addresses))
        std::cout << "  " << line << '\n';
}

std::vector<std::string> keysOf(const auto& map)
{
    std::vector<std::string> keys;
    for (const auto& [key, value] : map)
        keys.push_back(key);
    return keys;
}

} // namespace

void addExceptionCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("exception", "The suite's exceptions");
    group->require_subcommand(1);
    auto options = std::make_shared<RaiseOptions>();
    auto* raise = group->add_subcommand("raise", "Build an exception, raise it, catch it and print it");
    raise->add_option("--class", options->className, "the class to build")->check(CLI::IsMember(keysOf(kClasses)));
    raise->add_option("--reason", options->reason, "the reason")->check(validUTF8());
    raise->add_option("--type", options->type, "the type");
    raise->add_option("--error-type", options->errorType, "the error type");
    raise->add_option("--errno", options->errorCode, "the error code");
    raise->callback([options] { raiseAndShow(*options); });

    auto how = std::make_shared<std::string>();
    auto mask = std::make_shared<unsigned>(255);
    auto* crashCommand
        = app.add_subcommand("crash", "Install the exception handler and fail; the log shows the report");
    crashCommand->add_option("HOW", *how, "how to fail")->required()->check(CLI::IsMember(keysOf(kCrashes)));
    crashCommand->add_option("--mask", *mask, "the handling mask (255: log and handle all but other exceptions)");
    crashCommand->callback([how, mask] { crash(*how, *mask); });

    app.add_subcommand("stack", "Print the current call stack, plain and symbolised")->callback(showStack);
}

} // namespace zon::tool
