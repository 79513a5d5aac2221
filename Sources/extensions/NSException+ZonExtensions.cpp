#include "platform/values/Exception.h"

#include "exceptions/TXZonExceptionHandler.h"
#include "logger/ZonLog.h"
#include "platform/diagnostics/ExceptionHandler.h"
#include "platform/diagnostics/StackSymbolizer.h"
#include "platform/diagnostics/StackTrace.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/UTF.h"
#include "systemManagement/TXZonSystemUtilities.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>

namespace zon {

namespace {

constexpr unsigned kDefaultExceptionHandlingMask = 255;
// The frames of a stack text that are not shown: the first two (the recording itself) and the
// last two (the C library's start of the thread or program).
constexpr long kFramesLeftOut = 4;
constexpr size_t kFirstFrameShown = 2;

bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.'
        || c == '$';
}

// Every mangled C++ name in the line ("_Z..." standing alone) in its demangled form.
std::string demangleNames(std::string_view line)
{
    std::string out;
    size_t at = 0;
    while (at < line.size()) {
        const size_t start = line.find("_Z", at);
        if (start == std::string_view::npos)
            break;
        size_t end = start;
        while (end < line.size() && isNameCharacter(line[end]))
            ++end;
        out.append(line.substr(at, start - at));
        const bool standsAlone = start == 0 || !isNameCharacter(line[start - 1]);
        int status = -1;
        char* demangled = standsAlone
            ? abi::__cxa_demangle(std::string(line.substr(start, end - start)).c_str(), nullptr, nullptr, &status)
            : nullptr;
        if (status == 0 && demangled)
            out.append(demangled);
        else
            out.append(line.substr(start, end - start));
        std::free(demangled);
        at = end;
    }
    out.append(line.substr(at));
    return out;
}

// The symbol lines of the frames shown, demangled and numbered as `cat -n` numbers them.
std::string numberedSymbolLines(const std::vector<std::string>& lines, long shown)
{
    std::string out;
    char number[24];
    for (size_t i = kFirstFrameShown; i < lines.size() && static_cast<long>(i - kFirstFrameShown) < shown; ++i) {
        std::snprintf(number, sizeof number, "%6ld\t", static_cast<long>(i - kFirstFrameShown + 1));
        out.append(number).append(demangleNames(lines[i])).push_back('\n');
    }
    return out;
}

// The text as a reader of a pipe assembles it: a 513-byte buffer zeroed once, 512 bytes per read,
// each read appended up to its first zero byte when it is UTF-8. The buffer is not cleared between
// reads, so a short last read is followed by the rest of the read before it.
std::string readLikeAPipe(std::string_view output)
{
    constexpr size_t kReadSize = 512;
    char buffer[kReadSize + 1] = {};
    std::string text;
    for (size_t at = 0; at < output.size(); at += kReadSize) {
        const size_t count = std::min(kReadSize, output.size() - at);
        std::memcpy(buffer, output.data() + at, count);
        const std::string_view chunk(buffer, ::strnlen(buffer, kReadSize));
        if (utf::offsetOfInvalidUTF8(chunk) == chunk.size())
            text.append(chunk);
    }
    return text;
}

Ref<String> symbolizedStackText(StackSymbolizer& symbolizer, String* stack)
{
    const long pieces = static_cast<long>(stack->componentsSeparatedByString(ZSTR("  ")).size());
    const auto lines = symbolizer.symbolize(returnAddressesOfStackTrace(stack->UTF8String()));
    return String::stringWithUTF8String(readLikeAPipe(numberedSymbolLines(lines, pieces - kFramesLeftOut)));
}

Ref<String> joinedStackText(String* stack)
{
    auto pieces = stack->componentsSeparatedByString(ZSTR("  "));
    auto array = MutableArray::arrayWithCapacity(pieces.size());
    for (auto& piece : pieces)
        array->addObject(piece.get());
    return array->componentsJoinedByString(ZSTR(", "));
}

} // namespace

void Exception::installZonExceptionHandler()
{
    installZonExceptionHandlerWithExceptionHandlingMask(kDefaultExceptionHandlingMask);
}

void Exception::installZonExceptionHandlerWithExceptionHandlingMask(unsigned mask)
{
    ExceptionHandler* handler = ExceptionHandler::defaultExceptionHandler();
    handler->setDelegate(TXZonExceptionHandler::sharedInstance());
    handler->setExceptionHandlingMask(mask);
}

void Exception::printStackTrace(const Exception* exception)
{
    const long long memory = static_cast<long long>(ZonResidentMemoryUsage());
    String* name = exception ? exception->name() : nullptr;
    String* reason = exception ? exception->reason() : nullptr;
    const Object* category = exception ? exception->objectClass() : nullptr;
    Dictionary* userInfo = exception ? exception->userInfo() : nullptr;
    String* stack = userInfo ? userInfo->objectForKey<String>(NSStackTraceKey) : nullptr;
    if (!stack) {
        zon_log_obj(__FILE__, __LINE__, category, logger::kLevelError, kDefaultLogIdentifier,
            "---  %qiMB An exception of type %@ occured because: %@  (no stacktrace available)", memory, name, reason);
        return;
    }
    if (auto symbolizer = StackSymbolizer::current()) {
        zon_log_obj(__FILE__, __LINE__, category, logger::kLevelError, kDefaultLogIdentifier,
            "---  %qiMB An exception of type %@ occured because: %@\nStacktrace:\n%@", memory, name, reason,
            symbolizedStackText(*symbolizer, stack));
        return;
    }
    zon_log_obj(__FILE__, __LINE__, category, logger::kLevelError, kDefaultLogIdentifier,
        "%qiMB An exception of type %@ occured because: %@  Stacktrace:%@", memory, name, reason,
        joinedStackText(stack));
}

} // namespace zon
