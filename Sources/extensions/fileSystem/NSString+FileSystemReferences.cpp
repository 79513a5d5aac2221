// NSString(FileSystem): file references, volumes and alias types of path strings.

#include "platform/values/String.h"
#include "platform/values/URL.h"

namespace zon {

bool String::getFSRef(FSRef*) const { return false; }

Ref<String> String::stringWithFSRef(const FSRef*) { return nullptr; }

Ref<String> String::stringPathForVolumeRefNum(int16_t) { return nullptr; }

int16_t String::volumeRefNum() const { return 0; }

Ref<URL> String::volumeURL() const { return nullptr; }

uint32_t String::aliasType() const { return 0; }

} // namespace zon
