// NSString(FileSystem): Finder information and icons of path strings.

#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

namespace zon {

Ref<URL> String::fileSystemURL() const { return URL::fileURLWithPath(this); }

bool String::getFinderInfoFlags_type_creator(uint16_t* flags, uint32_t* type, uint32_t* creator) const
{
    return fileSystemURL()->getFinderInfoFlags_type_creator(flags, type, creator);
}

bool String::setFinderInfoFlags_mask_type_creator(uint16_t flags, uint16_t mask, uint32_t type, uint32_t creator) const
{
    return fileSystemURL()->setFinderInfoFlags_mask_type_creator(flags, mask, type, creator);
}

Ref<Data> String::iconFamilyData() const { return fileSystemURL()->iconFamilyData(); }

} // namespace zon
