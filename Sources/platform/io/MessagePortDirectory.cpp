#include "platform/io/MessagePortDirectory.h"

// The plain SHA-256 functions compute in place. The one-shot SHA256() of OpenSSL 3 goes through its
// algorithm fetching, which keeps per-thread state; the IPC threads have no need of that.
#define OPENSSL_API_COMPAT 0x10100000L
#include <openssl/sha.h>

#include "platform/io/PrivateDirectoryInternal.h"

#include <cerrno>
#include <cstdlib>
#include <sys/un.h>
#include <unistd.h>

namespace zon {

namespace {

constexpr size_t kReadablePrefixLength = 32;
constexpr char kSocketSuffix[] = ".sock";
constexpr char kLockSuffix[] = ".lock";

bool isSafeFileChar(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_'
        || c == '-';
}

} // namespace

std::string messagePortFileStem(std::string_view utf8Name)
{
    std::string stem;
    for (char c : utf8Name.substr(0, kReadablePrefixLength))
        stem += isSafeFileChar(c) ? c : '_';
    if (stem.empty() || stem[0] == '.')
        stem.insert(stem.begin(), '_');
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256_CTX context;
    SHA256_Init(&context);
    SHA256_Update(&context, utf8Name.data(), utf8Name.size());
    SHA256_Final(digest, &context);
    static constexpr char hex[] = "0123456789abcdef";
    stem += '-';
    for (size_t i = 0; i < 16; ++i) {
        stem += hex[digest[i] >> 4];
        stem += hex[digest[i] & 15];
    }
    return stem;
}

SystemResult<std::string> messagePortDirectory()
{
    std::string dir;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && runtime[0] == '/')
        dir = std::string(runtime) + "/zon-ports";
    else
        dir = "/tmp/zon-ports-" + std::to_string(::geteuid());
    if (auto usable = ensurePrivateDirectory(dir, "set XDG_RUNTIME_DIR to a folder of this user's, or remove the folder"); !usable)
        return usable.error();
    return dir;
}

SystemResult<MessagePortPaths> messagePortPaths(std::string_view utf8Name)
{
    auto dir = messagePortDirectory();
    if (!dir)
        return dir.error();
    const std::string base = dir.value() + "/" + messagePortFileStem(utf8Name);
    MessagePortPaths paths {base + kSocketSuffix, base + kLockSuffix};
    if (paths.socketPath.size() >= sizeof(sockaddr_un::sun_path))
        return SystemError {ENAMETOOLONG, paths.socketPath, "path too long for a socket"};
    return paths;
}

} // namespace zon
