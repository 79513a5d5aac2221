#pragma once

// The assertion handler: how programming faults inside the library fail. A failure logs
// "*** Assertion failure in <method or function>, <file>:<line>" at level 1 and raises
// NSInternalInconsistencyException whose reason is the formatted description (Format.h rules).
//
//     ZON_ASSERT(count <= capacity, "Count %lu exceeds capacity %lu", count, capacity);
//     AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(
//         selector("start:"), this, __FILE__, __LINE__, "Already started");

#include "platform/Export.h"
#include "platform/runtime/Selector.h"
#include "platform/values/Format.h"

#include <span>
#include <string_view>

namespace zon {

class Object;

class ZON_EXPORT AssertionHandler final {
public:
    // A failure in a method: logged as -[Class selector] (+[Class selector] when object is a class).
    template <class... Args>
    [[noreturn]] static void handleFailureInMethod_object_file_lineNumber_description(SEL method, const Object* object,
        const char* file, long line, std::string_view format, const Args&... args)
    {
        failInMethod(method, object, file, line, format, makeFormatArguments(args...));
    }

    // A failure in a plain function, named as the caller wishes (__func__, __PRETTY_FUNCTION__).
    template <class... Args>
    [[noreturn]] static void handleFailureInFunction_file_lineNumber_description(const char* function,
        const char* file, long line, std::string_view format, const Args&... args)
    {
        failInFunction(function, file, line, format, makeFormatArguments(args...));
    }

    [[noreturn]] static void failInMethod(SEL method, const Object* object, const char* file, long line,
        std::string_view format, std::span<const FormatArgument> args);
    [[noreturn]] static void failInFunction(const char* function, const char* file, long line,
        std::string_view format, std::span<const FormatArgument> args);

    AssertionHandler() = delete;
};

} // namespace zon

// Checks an internal invariant; a false condition fails through the assertion handler with the
// formatted description. Always on: these guard against misuse, not just library bugs.
#define ZON_ASSERT(condition, format, ...)                                                         \
    do {                                                                                           \
        if (!(condition)) [[unlikely]]                                                             \
            ::zon::AssertionHandler::handleFailureInFunction_file_lineNumber_description(          \
                __PRETTY_FUNCTION__, __FILE__, __LINE__, format __VA_OPT__(, ) __VA_ARGS__);       \
    } while (0)
