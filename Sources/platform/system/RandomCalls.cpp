#include "platform/system/RandomCallsInternal.h"

#include <sys/random.h>

namespace zon {

SystemResult<> fillRandomBytes(std::span<uint8_t> bytes)
{
    size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            return SystemError::last("getrandom");
        }
        filled += size_t(count);
    }
    return {};
}

} // namespace zon
