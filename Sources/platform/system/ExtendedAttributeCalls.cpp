#include "platform/system/ExtendedAttributeCallsInternal.h"

#include <sys/xattr.h>

namespace zon {

SystemResult<size_t> getExtendedAttribute(const std::string& path, const char* name, std::span<uint8_t> buffer)
{
    const ssize_t n = ::getxattr(path.c_str(), name, buffer.data(), buffer.size());
    if (n < 0)
        return SystemError::last("getxattr");
    return static_cast<size_t>(n);
}

SystemResult<size_t> extendedAttributeSize(const std::string& path, const char* name)
{
    return getExtendedAttribute(path, name, {});
}

SystemResult<> setExtendedAttribute(const std::string& path, const char* name, std::span<const uint8_t> value)
{
    if (::setxattr(path.c_str(), name, value.data(), value.size(), 0) != 0)
        return SystemError::last("setxattr");
    return {};
}

} // namespace zon
