#pragma once

// The library's log call. Every log line of the library goes through zon_log_obj with the
// calling unit's __FILE__ and __LINE__, the category (a string, or the object whose
// objectLogCategory it is), a level (1 error, 2 warning, 3 life-cycle, 5 detail) and a stream
// identifier:
//
//     zon_log_obj(__FILE__, __LINE__, this, logger::kLevelInfo,
//                 kDefaultLogIdentifier, "IPC Service Started with name: %@", name);
//
// Given the object, the category is asked for only when a sink wants the line, so the call costs
// the same whatever the object's class answers.
//
// A level that no sink wants costs one relaxed atomic load: nothing is formatted or allocated.
// Otherwise the format (the rules are in Format.h) is rendered straight to UTF-8 and handed to
// the Logger. The call never throws; a description that throws drops its line.

#include "logger/Logger.h"
#include "platform/Export.h"
#include "platform/values/Format.h"

#include <cstddef>
#include <span>
#include <string_view>

namespace zon {

class Object;
class String;

// The identifier of the default log stream: "default".
ZON_EXPORT extern String* const kDefaultLogIdentifier;

namespace detail {
ZON_EXPORT void writeLogRecord(const char* file, int line, const String* category, int level,
    const String* identifier, std::string_view format, std::span<const FormatArgument> args) noexcept;
// object's objectLogCategory; nil for a nil object, or when the class's answer raises.
ZON_EXPORT const String* logCategoryOf(const Object* object) noexcept;
} // namespace detail

template <class... Args>
void zon_log_obj(const char* file, int line, const String* category, int level, const String* identifier,
    std::string_view format, const Args&... args) noexcept
{
    if (!logger::isEnabled(level))
        return;
    detail::writeLogRecord(file, line, category, level, identifier, format, makeFormatArguments(args...));
}

template <class... Args>
void zon_log_obj(const char* file, int line, const Object* object, int level, const String* identifier,
    std::string_view format, const Args&... args) noexcept
{
    if (!logger::isEnabled(level))
        return;
    detail::writeLogRecord(
        file, line, detail::logCategoryOf(object), level, identifier, format, makeFormatArguments(args...));
}

// No category: the line goes under "default".
template <class... Args>
void zon_log_obj(const char* file, int line, std::nullptr_t, int level, const String* identifier,
    std::string_view format, const Args&... args) noexcept
{
    zon_log_obj(file, line, static_cast<const String*>(nullptr), level, identifier, format, args...);
}

} // namespace zon
