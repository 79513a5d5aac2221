#pragma once

// How a dynamic property's name and its accessor selectors map onto each other.

#include "platform/runtime/Ref.h"
#include "platform/runtime/Selector.h"

#include <string>

namespace zon {

class String;

// "set" + the name with its first character upper-cased + ":" (volumeLevel: setVolumeLevel:).
std::string setterNameForProperty(const String* name);

// The getter's selector is the property's name.
Ref<String> propertyNameForGetter(SEL getter);

// The setter's selector cut at its UTF-8 length minus one, "set" dropped and the next character
// lower-cased. The cut counts bytes but cuts UTF-16 units, so it only removes the ":" of an ASCII
// name: a name with characters past U+007F keeps its colon, or, two bytes longer or more, raises
// NSRangeException. A name that starts upper-case does not come back (setURL: gives uRL).
Ref<String> propertyNameForSetter(SEL setter);

} // namespace zon
