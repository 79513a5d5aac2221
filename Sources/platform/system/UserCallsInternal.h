#pragma once

// The user database (passwd entries).

#include "platform/system/SystemResult.h"

#include <string>
#include <sys/types.h>

namespace zon {

struct UserEntry {
    std::string name;
    std::string home;
};

// getpwuid_r(3) for uid, with a buffer that grows as the entry needs. ENOENT when the database
// holds no entry for uid.
ZON_EXPORT SystemResult<UserEntry> userEntry(uid_t uid);

} // namespace zon
