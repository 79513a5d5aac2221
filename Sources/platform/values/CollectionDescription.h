#pragma once

#include "platform/runtime/Object.h"

#include <string>

namespace zon::detail {

// The description of an array, dictionary or set as the platform prints it, nested containers
// included. Works with an explicit stack, so a deeply nested value does not exhaust the C++ stack.
Ref<String> describeCollection(const Object* collection);

// Appends the text of a string as collection descriptions print it: bare when it is non-empty
// and made only of ASCII letters, digits and "_$/:.-", otherwise quoted and escaped.
void appendQuotedIfNeeded(std::u16string& out, std::u16string_view text);

} // namespace zon::detail
