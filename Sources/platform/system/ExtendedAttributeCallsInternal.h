#pragma once

// Extended attributes of files, named by path (a symbolic link followed).

#include "platform/system/SystemResult.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace zon {

// getxattr(2) into buffer; answers the value's size. ERANGE when it does not fit, ENODATA when
// the file has no such attribute, ENOTSUP where the file system keeps none.
ZON_EXPORT SystemResult<size_t> getExtendedAttribute(const std::string& path, const char* name, std::span<uint8_t> buffer);
// The size of the attribute's value (getxattr(2) with no buffer).
ZON_EXPORT SystemResult<size_t> extendedAttributeSize(const std::string& path, const char* name);
// setxattr(2), creating or replacing the attribute.
ZON_EXPORT SystemResult<> setExtendedAttribute(const std::string& path, const char* name, std::span<const uint8_t> value);

} // namespace zon
