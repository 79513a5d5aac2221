#pragma once

// The data groups NSData(ZonExtensions), NSData(InitializationZonExtensions),
// NSData(ManipulationZonExtensions), NSData(DataFetchZonExtensions) and the NSMutableData
// appenders are members of Data and MutableData (platform/values/Data.h). This header adds the
// zlib parameters gzipWithZlib and gunzipWithZlib pass.

#include "platform/values/Data.h"

#include <cstdint>

namespace zon {

// Window bits for inflating: 15 plus 32, gzip or zlib header detected automatically.
inline constexpr int32_t kInflateBothGZipAndZlibFiles = 47;
// Window bits for deflating: 15 plus 16, gzip wrapper.
inline constexpr int32_t kDeflateToGZipFileFormat = 31;
inline constexpr int32_t kDefaultMemoryLevelToUseForCompression = 8;

} // namespace zon
