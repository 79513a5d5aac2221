#include "platform/system/SystemResult.h"

#include <cstring>

namespace zon {

std::string SystemError::text() const
{
    return call + ": " + (reason.empty() ? std::string(std::strerror(code)) : reason);
}

} // namespace zon
