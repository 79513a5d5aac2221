#include "platform/io/MessagePortDirectory.h"

// The plain SHA-256 functions compute in place. The one-shot SHA256() of OpenSSL 3 goes through its
// algorithm fetching, which keeps per-thread state; the IPC threads have no need of that.
#define OPENSSL_API_COMPAT 0x10100000L
#include <openssl/sha.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
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

void setWhy(std::string* why, std::string text)
{
    if (why)
        *why = std::move(text);
}

// Makes dir when missing, then checks without following a symbolic link that it is a directory
// of ours that nobody else can enter.
bool ensurePrivateDirectory(const std::string& dir, std::string* why)
{
    if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
        setWhy(why, dir + ": " + std::strerror(errno));
        return false;
    }
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        setWhy(why, dir + ": " + std::strerror(errno));
        return false;
    }
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0;
    ::close(fd);
    if (!ok || !S_ISDIR(st.st_mode) || st.st_uid != ::geteuid() || (st.st_mode & 077) != 0) {
        setWhy(why, dir + ": not a private directory of this user");
        return false;
    }
    return true;
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

std::string messagePortDirectory(std::string* why)
{
    std::string dir;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && runtime[0] == '/')
        dir = std::string(runtime) + "/zon-ports";
    else
        dir = "/tmp/zon-ports-" + std::to_string(::geteuid());
    if (!ensurePrivateDirectory(dir, why))
        return {};
    return dir;
}

bool messagePortPaths(std::string_view utf8Name, MessagePortPaths& paths, std::string* why)
{
    std::string dir = messagePortDirectory(why);
    if (dir.empty())
        return false;
    std::string base = dir + "/" + messagePortFileStem(utf8Name);
    paths.socketPath = base + kSocketSuffix;
    paths.lockPath = base + kLockSuffix;
    if (paths.socketPath.size() >= sizeof(sockaddr_un::sun_path)) {
        setWhy(why, paths.socketPath + ": path too long for a socket");
        return false;
    }
    return true;
}

} // namespace zon
