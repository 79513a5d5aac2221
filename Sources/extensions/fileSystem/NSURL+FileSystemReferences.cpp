// NSURL(FileSystem): file references, volumes and alias types.

#include "platform/values/Data.h"
#include "platform/values/URL.h"

namespace zon {

bool URL::getFSRef(FSRef*) const { return false; }

Ref<URL> URL::URLWithFSRef(const FSRef*) { return nullptr; }

int16_t URL::volumeRefNum() const { return 0; }

Ref<URL> URL::volumeURL() const { return nullptr; }

uint32_t URL::aliasType() const { return 0; }

} // namespace zon
