// NSString(FileSystem): file references, volumes and alias types of path strings.

#include "platform/io/FSRef.h"
#include "platform/io/VolumesInternal.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

namespace zon {

bool String::getFSRef(FSRef* reference) const
{
    const auto made = makeFSRef(UTF8String());
    if (made && reference)
        *reference = *made;
    return made.has_value();
}

Ref<String> String::stringWithFSRef(const FSRef* reference)
{
    Ref<URL> url = URL::URLWithFSRef(reference);
    return url ? url->path() : nullptr;
}

Ref<String> String::stringPathForVolumeRefNum(int16_t volumeRefNum)
{
    const auto mountPoint = mountPointForVolumeRefNum(volumeRefNum);
    return mountPoint ? stringWithUTF8String(*mountPoint) : nullptr;
}

int16_t String::volumeRefNum() const { return volumeRefNumOfPath(UTF8String()); }

Ref<URL> String::volumeURL() const { return fileSystemURL()->volumeURL(); }

uint32_t String::aliasType() const { return fileSystemURL()->aliasType(); }

} // namespace zon
