#pragma once

// Where message ports live on disk.
//
// Each published name has a socket file and a lock file in a per-user directory that only its
// owner can enter: "$XDG_RUNTIME_DIR/zon-ports" when XDG_RUNTIME_DIR is an absolute path, else
// "/tmp/zon-ports-<uid>". The directory is made with mode 0700 when missing; an existing one must
// be a real directory (not a symbolic link) owned by the effective user with no access for group
// or others, or no port can be made in it.
//
// Names of any length and characters map to file names of the form
//   <up to 32 characters of the name, other than [A-Za-z0-9._-] replaced by '_'>-<32 hex digits>
// where the hex digits are the first half of the SHA-256 of the name's UTF-8 bytes, so two names
// share files only when they are the same name, and the socket path fits a sockaddr_un.

#include "platform/Export.h"
#include "platform/system/SystemResult.h"

#include <string>
#include <string_view>

namespace zon {

struct MessagePortPaths {
    std::string socketPath;
    std::string lockPath;
};

// The file name stem of a port name (without directory or suffix).
ZON_EXPORT std::string messagePortFileStem(std::string_view utf8Name);

// The private directory, made when missing. A failure's text says which folder and why.
ZON_EXPORT SystemResult<std::string> messagePortDirectory();

// The socket and lock paths of a name; fails when the directory cannot be used or the socket path
// would not fit a socket address.
ZON_EXPORT SystemResult<MessagePortPaths> messagePortPaths(std::string_view utf8Name);

} // namespace zon
