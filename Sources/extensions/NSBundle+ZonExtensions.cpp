#include "constants/TXZonConstants.h"
#include "platform/io/Bundle.h"
#include "platform/values/String.h"
#include "versions/TXZonVersion.h"

namespace zon {

Ref<String> Bundle::versionString() const { return dynamicCast<String>(objectForInfoDictionaryKey(kTXBundleVersionKey)); }

Ref<String> Bundle::shortVersionString() const
{
    return dynamicCast<String>(objectForInfoDictionaryKey(kTXBundleShortVersionKey));
}

Ref<TXZonVersion> Bundle::bundleVersion() const { return TXZonVersion::versionWithString(versionString().get()); }

Ref<TXZonVersion> Bundle::bundleShortVersion() const
{
    return TXZonVersion::versionWithString(shortVersionString().get());
}

} // namespace zon
