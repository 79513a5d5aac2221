#pragma once

// The text of one record as the standard-error and file sinks write it:
//
//   2026-11-22 00:19:27.123456 program[pid:tid] <E> category/identifier Sources/x/Y.cpp:42: message
//
// The time is local time with microseconds; the level is a letter (E error, W warning, I
// information, D detail; other levels print their number); the file is shortened to its path from
// the last "Sources/" folder on, so that lines do not depend on where the tree was built. Every
// line ends in one newline.

#include "Logger.h"

#include <string>
#include <string_view>

namespace zon::logger {

// Appends the line for record to out (out keeps its capacity, so a reused buffer does not allocate).
ZON_LOGGER_EXPORT void appendLine(std::string& out, const Record& record);

ZON_LOGGER_EXPORT std::string_view shortenedSourcePath(std::string_view file) noexcept;

} // namespace zon::logger
