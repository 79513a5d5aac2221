#include "platform/io/PrivateDirectoryInternal.h"

#include "platform/system/FileCallsInternal.h"
#include "platform/system/UserCallsInternal.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace zon {

namespace {

// "user alice (uid 1001)", or "uid 1001" for a user without a name.
std::string describeUser(uid_t uid)
{
    if (auto entry = userEntry(uid))
        return "user " + entry.value().name + " (uid " + std::to_string(uid) + ")";
    return "uid " + std::to_string(uid);
}

std::string octalMode(mode_t mode)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

} // namespace

SystemResult<> ensurePrivateDirectory(const std::string& dir, std::string_view ownerRemedy)
{
    auto made = makeDirectory(dir, 0700);
    if (!made)
        return SystemError {made.code(), dir, {}};
    auto status = directoryStatus(dir);
    if (!status)
        return SystemError {status.code(), dir, {}};
    const struct stat& st = status.value();
    if (st.st_uid != ::geteuid())
        return SystemError {EPERM, dir,
            "not a private directory of this user: it belongs to " + describeUser(st.st_uid) + "; "
                + std::string(ownerRemedy)};
    if ((st.st_mode & 077) != 0)
        return SystemError {EPERM, dir, "not a private directory of this user: others can enter it (mode "
                + octalMode(st.st_mode) + "); make it mode 0700"};
    return {};
}

} // namespace zon
