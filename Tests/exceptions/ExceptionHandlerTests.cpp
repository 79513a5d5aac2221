#include "exceptions/TXZonBaseException.h"
#include "exceptions/TXZonExceptionHandler.h"
#include "logger/FileSink.h"
#include "logger/Logger.h"
#include "platform/diagnostics/ExceptionHandler.h"
#include "platform/diagnostics/StackSymbolizer.h"
#include "platform/diagnostics/StackTrace.h"
#include "platform/threads/Thread.h"
#include "support/LogCapture.h"
#include "support/RunLoopWorker.h"
#include "support/Values.h"
#include "systemManagement/TXZonSystemUtilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

#if defined(__SANITIZE_THREAD__)
// The fatal-signal report allocates and locks on purpose (an alarm bounds it); ThreadSanitizer
// would end each crashing child over that before the signal does.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options()
{
    return "report_signal_unsafe=0";
}
#endif

namespace {

// Answers the lines it is given, one per address, whatever the addresses.
class FakeSymbolizer final : public StackSymbolizer {
public:
    explicit FakeSymbolizer(std::vector<std::string> lines)
        : lines_(std::move(lines))
    {
    }
    std::vector<std::string> symbolize(std::span<const uintptr_t> addresses) override
    {
        std::vector<std::string> out;
        for (size_t i = 0; i < addresses.size(); ++i)
            out.push_back(i < lines_.size() ? lines_[i] : "?");
        return out;
    }

private:
    std::vector<std::string> lines_;
};

// Sets the current symboliser for one test, then puts the in-process one back.
struct SymbolizerScope {
    explicit SymbolizerScope(std::shared_ptr<StackSymbolizer> symbolizer)
    {
        StackSymbolizer::setCurrent(std::move(symbolizer));
    }
    ~SymbolizerScope() { StackSymbolizer::setCurrent(StackSymbolizer::inProcess()); }
};

Ref<Exception> exceptionWithStack(std::string_view stack)
{
    return Exception::exceptionWithName_reason_userInfo(
        str("N"), str("r"), Dictionary::dictionaryWithObject_forKey(str(stack).get(), NSStackTraceKey).get());
}

// The one line printStackTrace logs for the exception, with the resident memory figure left out.
std::string printedWithoutMemory(const Exception* exception)
{
    LogCapture capture;
    Exception::printStackTrace(exception);
    auto records = capture.records();
    EXPECT_EQ(records.size(), 1u);
    if (records.empty())
        return "";
    EXPECT_EQ(records[0].level, 1);
    EXPECT_THAT(std::string(records[0].file), HasSubstr("Sources/extensions/NSException+ZonExtensions"));
    std::string message = records[0].message;
    const size_t mb = message.find("MB ");
    EXPECT_NE(mb, std::string::npos);
    size_t digits = mb;
    while (digits > 0 && std::isdigit(static_cast<unsigned char>(message[digits - 1])))
        --digits;
    EXPECT_LT(digits, mb) << "no memory figure";
    return message.erase(digits, mb - digits);
}

const std::string kSymbolizedHead = "---  MB An exception of type N occured because: r\nStacktrace:\n";

} // namespace

TEST(PrintStackTrace, WithoutStackTextLogsTheNoStacktraceLine)
{
    auto exception = Exception::exceptionWithName_reason_userInfo(str("N"), str("r"), nullptr);
    EXPECT_EQ(printedWithoutMemory(exception.get()),
        "---  MB An exception of type N occured because: r  (no stacktrace available)");
}

TEST(PrintStackTrace, WithoutSymbolizerJoinsTheAddressesWithCommas)
{
    SymbolizerScope none(nullptr);
    auto exception = exceptionWithStack("0x1  0x2  0x3");
    EXPECT_EQ(printedWithoutMemory(exception.get()),
        "MB An exception of type N occured because: r  Stacktrace:0x1, 0x2, 0x3");
}

TEST(PrintStackTrace, DropsTwoLinesKeepsNMinusFourDemanglesAndNumbers)
{
    SymbolizerScope fake(std::make_shared<FakeSymbolizer>(std::vector<std::string> {
        "first", "second", "_ZN3foo3barEi (in mod) + 0x1f", "0x10 (in mod)", "fifth", "sixth" }));
    EXPECT_EQ(printedWithoutMemory(exceptionWithStack("0x1  0x2  0x3  0x4  0x5  0x6").get()),
        kSymbolizedHead + "     1\tfoo::bar(int) (in mod) + 0x1f\n     2\t0x10 (in mod)\n");
    // Three addresses keep 3 - 4 lines: none.
    EXPECT_EQ(printedWithoutMemory(exceptionWithStack("0x1  0x2  0x3").get()), kSymbolizedHead);
}

TEST(PrintStackTrace, ReadsTheOutputAsA512ByteBufferThatKeepsItsStaleTail)
{
    // Five addresses keep one line: "     1\t" + 692 bytes + "\n" is 700 bytes of output.
    std::string content;
    for (int i = 0; content.size() < 692; ++i)
        content.push_back(static_cast<char>('a' + i % 26));
    SymbolizerScope fake(std::make_shared<FakeSymbolizer>(std::vector<std::string> { "x", "y", content }));
    const std::string output = "     1\t" + content + "\n";
    ASSERT_EQ(output.size(), 700u);
    EXPECT_EQ(printedWithoutMemory(exceptionWithStack("0x1  0x2  0x3  0x4  0x5").get()),
        kSymbolizedHead + output.substr(0, 512) + output.substr(512) + output.substr(188, 512 - 188));
}

TEST(PrintStackTrace, SkipsAReadCutInsideAUTF8Character)
{
    // Reads: 511 ASCII bytes and the lead byte of "é"; its continuation byte and 511 more; 512
    // valid bytes. Only the last is taken.
    const std::string content = std::string(504, 'a') + "\xC3\xA9" + std::string(511, 'b') + std::string(511, 'c');
    SymbolizerScope fake(std::make_shared<FakeSymbolizer>(std::vector<std::string> { "x", "y", content }));
    EXPECT_EQ(printedWithoutMemory(exceptionWithStack("0x1  0x2  0x3  0x4  0x5").get()),
        kSymbolizedHead + std::string(511, 'c') + "\n");
}

namespace {

__attribute__((noinline)) void raiseFromNamedFunction()
{
    TXZonBaseException::raiseExceptionWithReason(str("with stack"));
}

struct MaskScope {
    explicit MaskScope(unsigned mask) { Exception::installZonExceptionHandlerWithExceptionHandlingMask(mask); }
    ~MaskScope() { ExceptionHandler::defaultExceptionHandler()->setExceptionHandlingMask(0); }
};

std::string stackOfRaise()
{
    try {
        raiseFromNamedFunction();
    } catch (const Exception& exception) {
        auto* stack = exception.userInfo() ? exception.userInfo()->objectForKey<String>(NSStackTraceKey) : nullptr;
        return stack ? utf8(stack) : "";
    }
    return "";
}

} // namespace

TEST(ExceptionHandler, RaiseRecordsTheStackOnlyWhileAFlagIsSet)
{
    EXPECT_EQ(stackOfRaise(), "");
    MaskScope watching(NSLogTopLevelExceptionMask);
    const std::string stack = stackOfRaise();
    EXPECT_THAT(stack, MatchesRegex("0x[0-9a-f]+(  0x[0-9a-f]+)+"));
    // The in-process symboliser names the raising function, with its module and line.
    LogCapture capture;
    Exception::printStackTrace(exceptionWithStack(stack).get());
    ASSERT_EQ(capture.records().size(), 1u);
    EXPECT_THAT(capture.records()[0].message,
        MatchesRegex("(.|\n)*\n *[0-9]+\traiseFromNamedFunction(\\(\\))? \\(in ExceptionsTests\\) "
                     "\\(ExceptionHandlerTests.cpp:[0-9]+\\)\n(.|\n)*"));
}

TEST(ExceptionHandler, InstallingAgainReplacesTheMask)
{
    MaskScope first(NSLogTopLevelExceptionMask);
    Exception::installZonExceptionHandler();
    auto* handler = ExceptionHandler::defaultExceptionHandler();
    EXPECT_EQ(handler->exceptionHandlingMask(), 255u);
    EXPECT_EQ(handler->delegate().get(), TXZonExceptionHandler::sharedInstance());
    Exception::installZonExceptionHandlerWithExceptionHandlingMask(NSLogTopLevelExceptionMask);
    EXPECT_EQ(handler->exceptionHandlingMask(), unsigned(NSLogTopLevelExceptionMask));
}

TEST(ExceptionHandler, OtherExceptionsAreReportedWhenRaised)
{
    SymbolizerScope none(nullptr);
    MaskScope watching(NSLogOtherExceptionMask);
    LogCapture capture;
    try {
        raiseFromNamedFunction();
    } catch (const Exception&) {
    }
    EXPECT_THAT(capture.records(),
        ContainsLine(1,
            MatchesRegex("[0-9]+MB An exception of type TXZonBaseException occured because: with stack  "
                         "Stacktrace:0x[0-9a-f]+(, 0x[0-9a-f]+)+")));
    EXPECT_THAT(capture.records(), ContainsLine(1, "*** Exception raised TXZonBaseException: with stack"));
}

TEST(ExceptionHandler, AWorkerLoopReportsWhatItCatchesBeforeLoggingIt)
{
    SymbolizerScope none(nullptr);
    MaskScope watching(NSLogTopLevelExceptionMask);
    LogCapture capture;
    RunLoopWorker worker;
    worker.thread->runLoop()->performBlock({ NSDefaultRunLoopMode }, [] { raiseFromNamedFunction(); });
    ASSERT_TRUE(capture.waitForLine("Unhandled TXZonBaseException in worker thread: with stack"));
    std::vector<std::string> reports;
    for (const auto& record : capture.records())
        if (record.message.find("with stack") != std::string::npos
            && record.message.find("created") == std::string::npos)
            reports.push_back(record.message.substr(
                record.message.find("MB ") == std::string::npos ? 0 : record.message.find("MB ")));
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_THAT(reports[0],
        MatchesRegex("MB An exception of type TXZonBaseException occured because: with stack  Stacktrace:0x.*"));
    EXPECT_EQ(reports[1], "*** Top-level exception TXZonBaseException: with stack");
    EXPECT_EQ(reports[2], "Unhandled TXZonBaseException in worker thread: with stack");
}

TEST(ExceptionHandler, ThreadsRaiseAndSymbolizeAtOnce)
{
    MaskScope watching(NSLogTopLevelExceptionMask);
    std::atomic<int> named { 0 };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 25; ++i) {
                const auto addresses = returnAddressesOfStackTrace(stackOfRaise());
                for (const auto& line : StackSymbolizer::inProcess()->symbolize(addresses))
                    if (line.find("raiseFromNamedFunction") != std::string::npos)
                        named.fetch_add(1);
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(named.load(), 100);
}

TEST(StackTrace, CallstackSymbolsAndResidentMemory)
{
    auto symbols = Thread::getCurrentCallstackSymbols();
    ASSERT_GT(symbols->count(), 2u);
    // The innermost frames: this operation (behind a sanitizer's own frame in those builds).
    EXPECT_THAT(
        utf8(dynamicCast<String>(symbols->objectAtIndex(0))) + utf8(dynamicCast<String>(symbols->objectAtIndex(1))),
        HasSubstr("getCurrentCallstackSymbols"));
    EXPECT_GT(ZonResidentMemoryUsageBytes(), 1u << 20);
    EXPECT_EQ(ZonResidentMemoryUsage(), ZonResidentMemoryUsageBytes() >> 20);
    EXPECT_EQ(returnAddressesOfStackTrace("0x1f  zz  2a 0x  0x10"), (std::vector<uintptr_t> { 0x1f, 0x2a, 0x10 }));
}

// ---- Fatal reports, each in a child process that logs to a file --------------------------------

namespace {

std::string logPath()
{
    return testing::TempDir() + "exception-handler-" + std::to_string(::getpid()) + "-"
        + testing::UnitTest::GetInstance()->current_test_info()->name() + ".log";
}

std::string readLog(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    std::remove(path.c_str());
    return text.str();
}

// In the child: log to the file only, install the handler, then fail.
template <class Failure> void failWithHandler(const std::string& path, Failure failure)
{
    for (const auto& sink : logger::sinks())
        logger::removeSink(sink);
    logger::addSink(std::make_shared<logger::FileSink>(path, 5, 0, 0));
    Exception::installZonExceptionHandler();
    // The death test catches what its statement throws; an exception must leave a noexcept
    // function to reach std::terminate as an uncaught one does.
    [&]() noexcept { failure(); }();
}

__attribute__((noinline)) void raiseSuiteExceptionUncaught()
{
    TXZonBaseConnectException::raiseExceptionWithReason(str("no peer"));
}

__attribute__((noinline)) void throwStandardExceptionUncaught() { throw std::runtime_error("plain failure"); }

// Faults on purpose: the undefined-behaviour checker must let the fault happen.
__attribute__((noinline, no_sanitize("undefined"))) void writeThroughNull()
{
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
}

__attribute__((noinline, no_sanitize("undefined"))) int divideByZero()
{
    volatile int dividend = 12345;
    volatile int zero = 0;
    volatile int quotient = dividend / zero; // volatile: an unused quotient would not be computed
    return quotient;
}

#pragma GCC diagnostic ignored "-Winfinite-recursion"
__attribute__((noinline)) int recurseForever(int depth)
{
    volatile char frame[256];
    frame[0] = static_cast<char>(depth);
    return recurseForever(depth + 1) + frame[0];
}

const char* const kFrameLine = "(\\(.*\\))? \\(in ExceptionsTests\\) \\(ExceptionHandlerTests.cpp:[0-9]+\\)";

} // namespace

// Outside the unnamed namespace, so that the compiler cannot know every override of pure() and
// turn the call into a direct one.
struct CallsPureVirtual {
    CallsPureVirtual() { callThrough(); }
    virtual ~CallsPureVirtual() = default;
    virtual void pure() = 0;
    __attribute__((noinline)) void callThrough()
    {
        CallsPureVirtual* volatile self = this;
        self->pure();
    }
};
struct Concrete final : CallsPureVirtual {
    void pure() override { }
};
__attribute__((noinline)) void makeObjectCallingPureVirtual() { Concrete concrete; }

class FatalReport : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "fast"); }
    std::string path_ = logPath();
};

TEST_F(FatalReport, UncaughtSuiteException)
{
    EXPECT_EXIT(failWithHandler(path_, raiseSuiteExceptionUncaught), testing::KilledBySignal(SIGABRT),
        "terminate called after throwing an instance of 'zon::TXZonBaseConnectException'");
    const std::string log = readLog(path_);
    EXPECT_THAT(
        log, HasSubstr("MB An exception of type TXZonBaseConnectException occured because: no peer\nStacktrace:\n"));
    EXPECT_THAT(log, MatchesRegex(std::string("(.|\n)*raiseSuiteExceptionUncaught") + kFrameLine + "(.|\n)*"));
}

TEST_F(FatalReport, UncaughtStandardException)
{
    EXPECT_EXIT(failWithHandler(path_, throwStandardExceptionUncaught), testing::KilledBySignal(SIGABRT), "");
    const std::string log = readLog(path_);
    EXPECT_THAT(log, HasSubstr("MB An exception of type std::runtime_error occured because: plain failure\n"));
    EXPECT_THAT(log, MatchesRegex(std::string("(.|\n)*throwStandardExceptionUncaught") + kFrameLine + "(.|\n)*"));
}

TEST_F(FatalReport, PureVirtualCallIsAnUncaughtRuntimeError)
{
    EXPECT_EXIT(failWithHandler(path_, makeObjectCallingPureVirtual), testing::KilledBySignal(SIGABRT),
        "pure virtual method called");
    const std::string log = readLog(path_);
    EXPECT_THAT(log,
        HasSubstr("MB An exception of type NSUncaughtRuntimeErrorException occured because: "
                  "terminate called without an active exception\n"));
    EXPECT_THAT(log, HasSubstr("CallsPureVirtual::CallsPureVirtual()"));
}

TEST_F(FatalReport, NullWrite)
{
    EXPECT_EXIT(failWithHandler(path_, writeThroughNull), testing::KilledBySignal(SIGSEGV), "");
    const std::string log = readLog(path_);
    EXPECT_THAT(log,
        HasSubstr("MB An exception of type NSUncaughtSystemExceptionException occured because: "
                  "Signal 11 (SIGSEGV), fault address 0x0\nStacktrace:\n"));
    EXPECT_THAT(log, MatchesRegex(std::string("(.|\n)*\t *writeThroughNull") + kFrameLine + "(.|\n)*"));
    EXPECT_THAT(log, HasSubstr("*** Uncaught system exception NSUncaughtSystemExceptionException"));
}

TEST_F(FatalReport, IntegerDivisionByZero)
{
    EXPECT_EXIT(failWithHandler(path_, divideByZero), testing::KilledBySignal(SIGFPE), "");
    const std::string log = readLog(path_);
    EXPECT_THAT(log, HasSubstr("occured because: Signal 8 (SIGFPE), fault address 0x"));
    EXPECT_THAT(log, MatchesRegex(std::string("(.|\n)*divideByZero") + kFrameLine + "(.|\n)*"));
}

TEST_F(FatalReport, StackOverflowIsReportedOnTheAlternateStack)
{
    EXPECT_EXIT(failWithHandler(path_, [] { recurseForever(0); }), testing::KilledBySignal(SIGSEGV), "");
    const std::string log = readLog(path_);
    EXPECT_THAT(log, HasSubstr("occured because: Signal 11 (SIGSEGV)"));
    EXPECT_THAT(log, HasSubstr("\trecurseForever"));
}

TEST_F(FatalReport, ASecondFaultDuringTheReportEndsTheProcessWithIt)
{
    struct FaultingSymbolizer final : StackSymbolizer {
        std::vector<std::string> symbolize(std::span<const uintptr_t>) override
        {
            writeThroughNull();
            return {};
        }
    };
    EXPECT_EXIT(failWithHandler(path_,
                    [] {
                        StackSymbolizer::setCurrent(std::make_shared<FaultingSymbolizer>());
                        divideByZero();
                    }),
        testing::KilledBySignal(SIGSEGV), "");
    EXPECT_THAT(readLog(path_), Not(HasSubstr("Stacktrace:")));
}
