#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/Array.h"
#include "versions/TXZonVersion.h"

namespace zon {

// Which versions of something are acceptable: those between a lowest and a highest version, both
// inclusive, plus an include list, minus an exclude list. Immutable; the versions and arrays are
// kept as given (not copied), a nil list as an empty array.
//
// isVersionInRange decides by the first rule that applies: nil is out; excluded is out (exclusion
// wins over inclusion); included is in; otherwise isInclusivlyBetweenLower_andUpper with the
// bounds, where a nil minimum is no bound and a nil maximum is 0.0.0.0, so a range without a
// maximum admits only all-zero versions besides its include list. List membership is isEqual,
// the numeric comparison (an entry 1.2.0.0 matches 1.2.x.x).
class ZON_EXPORT TXZonVersionRange final : public Object {
    ZON_OBJECT(TXZonVersionRange, Object)
public:
    static Ref<TXZonVersionRange> initWithMinVersion_maxVersion_includeVersions_excludeVersions(
        TXZonVersion* minVersion, TXZonVersion* maxVersion, Array* includeVersions, Array* excludeVersions);
    static Ref<TXZonVersionRange> versionRangeWithMinVersion_maxVersion_includeVersions_excludeVersions(
        TXZonVersion* minVersion, TXZonVersion* maxVersion, Array* includeVersions, Array* excludeVersions)
    {
        return initWithMinVersion_maxVersion_includeVersions_excludeVersions(
            minVersion, maxVersion, includeVersions, excludeVersions);
    }
    static Ref<TXZonVersionRange> versionRangeWithMinVersion_maxVersion_includeVersions(
        TXZonVersion* minVersion, TXZonVersion* maxVersion, Array* includeVersions)
    {
        return initWithMinVersion_maxVersion_includeVersions_excludeVersions(
            minVersion, maxVersion, includeVersions, nullptr);
    }
    static Ref<TXZonVersionRange> versionRangeWithMinVersion_maxVersion_excludeVersions(
        TXZonVersion* minVersion, TXZonVersion* maxVersion, Array* excludeVersions)
    {
        return initWithMinVersion_maxVersion_includeVersions_excludeVersions(
            minVersion, maxVersion, nullptr, excludeVersions);
    }
    static Ref<TXZonVersionRange> versionRangeWithMinVersion_maxVersion(TXZonVersion* minVersion, TXZonVersion* maxVersion)
    {
        return initWithMinVersion_maxVersion_includeVersions_excludeVersions(minVersion, maxVersion, nullptr, nullptr);
    }

    // Fresh copies of what is stored (nil for a nil bound): changing them leaves the range alone.
    Ref<TXZonVersion> minVersion() const;
    Ref<TXZonVersion> maxVersion() const;
    Ref<Array> includeVersions() const;
    Ref<Array> excludeVersions() const;

    bool isExplicitlyIncluded(const TXZonVersion* version) const;
    bool isVersionInRange(const TXZonVersion* version) const;

    // "Range:%@-%@" of the bounds' versionAndBuildDescription ((null) for nil), then
    // " Including:(%@)" and " Excluding:(%@)" with the lists joined by "," when they are not empty.
    Ref<String> description() const override;

    static void exportMethods(Class& cls);

private:
    TXZonVersionRange(TXZonVersion* minVersion, TXZonVersion* maxVersion, Array* includeVersions, Array* excludeVersions);

    Ref<TXZonVersion> minVersion_;
    Ref<TXZonVersion> maxVersion_;
    Ref<Array> includeVersions_;
    Ref<Array> excludeVersions_;
};

} // namespace zon
