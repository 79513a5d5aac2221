#pragma once

#include "platform/values/ByteVector.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zon {
class Object;
}

namespace zon::plist {

// Writes plist as an XML property-list document into out (replacing its contents). Answers false
// with a message when plist is nil or holds something that has no property-list form.
bool writeXMLPropertyList(const Object* plist, ByteVector& out, std::string& error);

} // namespace zon::plist
