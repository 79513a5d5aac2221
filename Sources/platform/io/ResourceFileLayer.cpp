#include "platform/io/ResourceFileLayer.h"

namespace zon::resourceFiles {

OSErr createResFile(const std::string&, size_t, std::u16string_view) { return ioErr; }

ResFileRefNum openResFile(const std::string&, int8_t) { return -1; }

ResFileRefNum curResFile() { return 0; }

void useResFile(ResFileRefNum) {}

OSErr addResource(std::span<const uint8_t>, uint32_t, int16_t, std::string_view) { return resFNotFound; }

OSErr closeResFile(ResFileRefNum) { return resFNotFound; }

} // namespace zon::resourceFiles
