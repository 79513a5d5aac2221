#pragma once

// What the kernel says about the machine it runs.

#include "platform/system/SystemResult.h"

#include <string>

namespace zon {

// The kernel's release text, uname(2)'s release field ("6.1.0-18-amd64").
ZON_EXPORT SystemResult<std::string> kernelRelease();

} // namespace zon
