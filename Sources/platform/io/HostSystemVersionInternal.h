#pragma once

// The host system's release as four version parts, from the files a Linux distribution keeps
// for it. The mapping (docs/Versions.md):
//
// - major, minor and bug-fix are VERSION_ID of os-release split at "." ("22.04" gives 22, 4, 0);
// - when /etc/debian_version records a numeric release with the same major (or VERSION_ID is
//   missing), that text stands instead, so "12" with "12.11" gives 12, 11, 0;
// - each part is the decimal integer its leading digits make, without leading zeros; a missing
//   part, or one without leading digits, is 0;
// - the build is BUILD_ID, else the kernel release.

#include "platform/Export.h"

#include <string>
#include <string_view>

namespace zon {

struct HostSystemVersion {
    std::string major;
    std::string minor;
    std::string bugFix;
    std::string build;
};

// The mapping over the texts of os-release and debian_version ("" for a file that is missing) and
// the kernel release. Lines are KEY=value; values may be quoted with " or ' (backslash escapes
// inside double quotes); comments, blank lines and lines of any other shape are skipped, and a
// key given twice takes its last value.
ZON_EXPORT HostSystemVersion hostSystemVersionFromTexts(
    std::string_view osRelease, std::string_view debianVersion, std::string_view kernelRelease);

// The mapping over /etc/os-release (else /usr/lib/os-release), /etc/debian_version and uname.
// Each file is read up to its first 64 KiB; a file that cannot be read counts as empty.
ZON_EXPORT HostSystemVersion currentHostSystemVersion();

} // namespace zon
