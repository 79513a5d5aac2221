#pragma once

// What every command group of the zon tool shares: how a command fails, checks of option values,
// and how long texts are printed.

#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

namespace zon::tool {

inline constexpr int kExitFailure = 1;   // the operation itself failed
inline constexpr int kExitFileError = 2; // a file could not be read or written

// Reports a failure on standard error ("zon: message") and ends the command with exitCode.
[[noreturn]] void fail(const std::string& message, int exitCode = kExitFailure);

// Option checks whose refusals say in words what is accepted.
CLI::Validator wholeNumberFrom(int64_t low, int64_t high);
CLI::Validator numberFrom(double low, double high);
CLI::Validator validUTF8();

// Text longer than this many UTF-8 bytes is cut when printed, unless --full was given.
inline constexpr size_t kPrintLimit = size_t(1) << 20;
// Adds --full to the application; every subcommand takes it.
void addFullOutputFlag(CLI::App& app);
// The "fs" command group, made by whichever unit asks first, so several units add to it.
CLI::App* fileSystemCommandGroup(CLI::App& app);
// The UTF-8 of text for printing: whole, or its first kPrintLimit bytes (whole characters) and a
// line saying how many characters (UTF-16 units) were left out.
std::string printable(const String& text);
// The same for text already in UTF-8.
std::string printable(std::string utf8);
// The printable description of an object; "(nil)" for none.
std::string printableDescription(const Object* object);

} // namespace zon::tool
