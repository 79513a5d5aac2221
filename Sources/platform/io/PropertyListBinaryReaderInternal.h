#pragma once

#include "platform/io/PropertyListSupportInternal.h"

#include <span>
#include <string>

namespace zon::plist {

// Reads a binary property list ("bplist00"). Answers nil with a message when the bytes are not
// one: every offset, count and reference is checked against the document, cycles and nesting
// beyond kMaxNestingDepth are refused, and so are documents whose shared objects would expand
// into far more values than the document holds.
Ref<Object> readBinaryPropertyList(std::span<const uint8_t> bytes, Mutability mutability, std::string& error);

} // namespace zon::plist
