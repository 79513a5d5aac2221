// Maps arbitrary os-release, debian_version and kernel-release texts (the input split at its
// first two NUL bytes) and checks that major, minor and bug-fix always come out as decimal
// integers without leading zeros.

#include "FuzzSupport.h"

#include "platform/io/HostSystemVersionInternal.h"

#include <cstdint>
#include <string>
#include <string_view>

using namespace zon;

namespace {

void checkInteger(const std::string& text)
{
    zon::fuzz::check(!text.empty() && text.find_first_not_of("0123456789") == std::string::npos
        && (text.size() == 1 || text[0] != '0'));
}

std::string_view nextPiece(std::string_view& rest)
{
    const size_t end = rest.find('\0');
    const std::string_view piece = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return piece;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const std::string_view osRelease = nextPiece(rest);
    const std::string_view debianVersion = nextPiece(rest);
    const HostSystemVersion version = hostSystemVersionFromTexts(osRelease, debianVersion, rest);
    checkInteger(version.major);
    checkInteger(version.minor);
    checkInteger(version.bugFix);
    return 0;
}
