#pragma once

// A file input stream over a descriptor the caller opened and checked, for callers that must not
// open the path a second time (another user could have replaced it in between).

#include "platform/io/InputStream.h"
#include "platform/system/FileDescriptor.h"

#include <string>

namespace zon {

ZON_EXPORT Ref<InputStream> inputStreamWithOpenFile(FileDescriptor fd);

} // namespace zon
