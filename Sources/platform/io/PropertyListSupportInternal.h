#pragma once

// Pieces shared by the property-list readers and writers: nesting limits, calendar arithmetic for
// dates, the text forms of scalars, and building containers from values read in order.

#include "platform/runtime/Object.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zon::plist {

// The deepest nesting of containers that readers accept and writers produce. Readers and writers
// do not recurse, but code that consumes a value often does (descriptions, equality, copies).
inline constexpr size_t kMaxNestingDepth = 512;

enum class Mutability : uint8_t { Immutable, MutableContainers };

// What the XML reader makes of the one-entry dictionary {"CF$UID": N}, XML's stand-in for a UID:
// the dictionary as written, or (for keyed archives) the UID itself, which saves a dictionary per
// reference.
enum class ReferenceForm : uint8_t { Dictionary, UID };

// N when key and value are the entry of a reference dictionary {"CF$UID": N} (N an integer, not
// negative); nothing otherwise.
std::optional<uint64_t> referenceIndexOfEntry(const Object* key, const Object* value);

// A UTC calendar time in the proleptic Gregorian calendar; year 0 is 1 BC.
struct CivilTime {
    int64_t year = 2001;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// Dates are written to the whole second, rounded down; beyond this many seconds from the reference
// date in either direction (about 285 million years) the calendar arithmetic is not exact.
inline constexpr double kMaxDateSeconds = 9007199254740992.0;

// The calendar time of a date, or nothing when it is not finite or too far away.
std::optional<CivilTime> civilTimeFromReferenceSeconds(double seconds);

// The whole of text as an unsigned number in base (no sign, no prefix), or nothing when it is not
// one or does not fit.
template <class Unsigned>
std::optional<Unsigned> unsignedFromText(std::string_view text, int base)
{
    Unsigned value = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || status != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// The scalars of property-list text, given without the white space around them. Nothing when
// the text is not one.
// A decimal or 0x-hexadecimal integer with an optional sign; above INT64_MAX an unsigned 64-bit
// number.
std::optional<Ref<Object>> parseInteger(std::string_view text);
// A real as the C library reads it in the C locale, without a second sign.
std::optional<double> parseReal(std::string_view text);
// YYYY-MM-DDTHH:MM:SSZ in UTC (the year may be longer than four digits, or negative), as seconds
// since the reference date.
std::optional<double> parseDate(std::string_view text);

// Makes an array of items (moved out).
Ref<Object> makeArray(std::span<Ref<Object>> items, Mutability mutability);
// Makes a dictionary of alternating keys and values (moved out); a later equal key replaces the
// value of an earlier one. keyHashes, if not empty, holds each key's detail::ObjectTable::hashOf.
Ref<Object> makeDictionary(
    std::span<Ref<Object>> keysAndValues, Mutability mutability, std::span<const size_t> keyHashes = {});

// Reads a property list in binary or XML form, whichever bytes hold; answers nil with a message
// when they hold neither. format, if given, receives the form found.
Ref<Object> readPropertyList(std::span<const uint8_t> bytes, Mutability mutability, ReferenceForm references,
    std::string& message, int* format = nullptr);

// Text from outside bytes, made safe to quote in an error message: printable ASCII kept, anything
// else shown as '?', cut after a few dozen characters.
std::string quotedForMessage(std::string_view text);

} // namespace zon::plist
