#include "platform/system/UserCallsInternal.h"

#include <cerrno>
#include <pwd.h>
#include <vector>

namespace zon {

namespace {

// Entries with very long fields exist (directory services); past this size the entry is refused.
constexpr size_t kEntryBufferLimit = 1 << 20;

} // namespace

SystemResult<UserEntry> userEntry(uid_t uid)
{
    std::vector<char> buffer(1024);
    for (;;) {
        passwd entry {};
        passwd* found = nullptr;
        const int failed = ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
        if (failed == ERANGE && buffer.size() < kEntryBufferLimit) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (failed)
            return SystemError {failed, "getpwuid_r", {}};
        if (!found)
            return SystemError {ENOENT, "getpwuid_r", "no user entry"};
        return UserEntry {found->pw_name ? found->pw_name : "", found->pw_dir ? found->pw_dir : ""};
    }
}

} // namespace zon
