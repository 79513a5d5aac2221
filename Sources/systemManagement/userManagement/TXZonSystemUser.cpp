#include "systemManagement/userManagement/TXZonSystemUser.h"

#include "logger/ZonLog.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Array.h"
#include "platform/values/Error.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(TXZonSystemUser, "TXZonSystemUser")

namespace {

constexpr const char* kUsersFolder = "/home/";

// The file manager's error for a folder it could not list: its reading codes in NSCocoaErrorDomain,
// with the system's reason.
Ref<Error> folderListingError(const SystemError& failure)
{
    constexpr int kReadUnknownError = 256, kReadNoPermissionError = 257, kReadNoSuchFileError = 260;
    int code = kReadUnknownError;
    if (failure.code == EACCES || failure.code == EPERM)
        code = kReadNoPermissionError;
    else if (failure.code == ENOENT || failure.code == ENOTDIR)
        code = kReadNoSuchFileError;
    return Error::errorWithDomain_code_description(NSCocoaErrorDomain, code,
        String::stringWithUTF8String(std::string(kUsersFolder) + ": " + failure.text()).get());
}

// Home folders that are not accounts: the shared folder, hidden entries (only the first
// character is looked at) and the file system's lost+found.
bool isAccountFolderName(const std::string& name)
{
    return name != "Shared" && name != "lost+found" && !name.starts_with('.');
}

} // namespace

Ref<Array> TXZonSystemUser::listOfUsers()
{
    auto names = directoryEntries(kUsersFolder);
    if (!names) {
        zon_log_obj(__FILE__, __LINE__, staticClass()->logCategory(), logger::kLevelError, kDefaultLogIdentifier,
            "Unable to find users due to %@", folderListingError(names.error()).get());
        return Array::array();
    }
    std::vector<Ref<Object>> users;
    for (const std::string& name : names.value()) {
        if (!isAccountFolderName(name))
            continue;
        if (Ref<String> user = String::stringWithUTF8String(name)) // names that are not UTF-8 are no accounts
            users.push_back(std::move(user));
    }
    return Array::arrayWithVector(std::move(users));
}

} // namespace zon
