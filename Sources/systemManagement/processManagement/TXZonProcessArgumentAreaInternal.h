#pragma once

// The reading of a process's argument area into a path, an environment and arguments, exactly as
// the suite has always read it (quirks included: a plain name=value argument is taken for an
// environment entry).

#include "platform/Export.h"
#include "platform/runtime/Ref.h"

#include <string_view>

namespace zon {

class Array;
class Dictionary;
class String;

struct ProcessArgumentArea {
    Ref<String> pathCandidate; // nil when no string qualified
    Ref<Dictionary> environment;
    Ref<Array> arguments;
};

// Reads an area laid out as buildArgumentArea lays it out; never fails. Fewer than 5 bytes give
// no path, no arguments and an empty environment.
ZON_EXPORT ProcessArgumentArea parseProcessArgumentArea(std::string_view area);

} // namespace zon
