#include "platform/values/AssertionHandler.h"

#include "logger/LineFormat.h"
#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

namespace zon {

namespace {

[[noreturn]] void raiseInconsistency(std::string_view format, std::span<const FormatArgument> args)
{
    Exception::raise(NSInternalInconsistencyException, stringWithFormatArguments(format, args));
}

// The unit's place in the source tree, as log lines name it, whatever path the compiler saw.
std::string unitPath(const char* file) { return std::string(logger::shortenedSourcePath(file ? file : "")); }

} // namespace

void AssertionHandler::failInMethod(SEL method, const Object* object, const char* file, long line,
    std::string_view format, std::span<const FormatArgument> args)
{
    const bool isClass = object && object->objectClass() == Class::staticClass();
    const char* className = !object ? "(null)"
        : isClass                  ? static_cast<const Class*>(object)->name().c_str()
                                   : object->objectClass()->name().c_str();
    const char* selectorName = method ? method->name().c_str() : "(null)";
    zon_log_obj(file, static_cast<int>(line), object, logger::kLevelError,
        kDefaultLogIdentifier, "*** Assertion failure in %c[%s %s], %s:%ld", isClass ? '+' : '-', className,
        selectorName, unitPath(file).c_str(), line);
    raiseInconsistency(format, args);
}

void AssertionHandler::failInFunction(const char* function, const char* file, long line, std::string_view format,
    std::span<const FormatArgument> args)
{
    zon_log_obj(file, static_cast<int>(line), nullptr, logger::kLevelError, kDefaultLogIdentifier,
        "*** Assertion failure in %s, %s:%ld", function, unitPath(file).c_str(), line);
    raiseInconsistency(format, args);
}

} // namespace zon
