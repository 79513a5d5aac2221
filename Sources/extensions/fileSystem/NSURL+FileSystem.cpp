// NSURL(FileSystem): Finder information and icons of file URLs.

#include "platform/values/Data.h"
#include "platform/values/URL.h"

namespace zon {

bool URL::getFinderInfoFlags_type_creator(uint16_t*, uint32_t*, uint32_t*) const { return false; }

bool URL::setFinderInfoFlags_mask_type_creator(uint16_t, uint16_t, uint32_t, uint32_t) const { return false; }

bool URL::hasCustomIcon() const { return false; }

Ref<Data> URL::iconFamilyData() const { return nullptr; }

} // namespace zon
