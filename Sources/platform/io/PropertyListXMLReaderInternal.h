#pragma once

#include "platform/io/PropertyListSupportInternal.h"

#include <span>
#include <string>

namespace zon::plist {

// Reads an XML property-list document (UTF-8). Answers nil with a message that gives the line and
// column of the fault when the bytes are not one.
Ref<Object> readXMLPropertyList(
    std::span<const uint8_t> bytes, Mutability mutability, ReferenceForm references, std::string& error);

} // namespace zon::plist
