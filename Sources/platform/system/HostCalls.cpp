#include "platform/system/HostCallsInternal.h"

#include <sys/utsname.h>

namespace zon {

SystemResult<std::string> kernelRelease()
{
    struct utsname names {};
    if (::uname(&names) != 0)
        return SystemError::last("uname");
    return std::string(names.release);
}

} // namespace zon
