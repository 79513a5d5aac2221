#include "versions/TXZonVersionRange.h"

#include "platform/runtime/Class.h"
#include "platform/values/String.h"

#include <string>

namespace zon {

ZON_DEFINE_CLASS(TXZonVersionRange, "TXZonVersionRange")

namespace {

Ref<TXZonVersion> copyOf(const TXZonVersion* version)
{
    return version ? staticRefCast<TXZonVersion>(version->copy()) : nullptr;
}

// Each element's versionAndBuildDescription followed by ",", the last "," removed. Elements are
// asked by selector, so one that is no version fails as a message it does not answer.
std::u16string joinedDescriptions(const Array* versions)
{
    std::u16string text;
    for (size_t i = 0; i < versions->count(); ++i) {
        Ref<Object> description = versions->objectAtIndex(i)->performSelector(selector("versionAndBuildDescription"));
        text += String::stringWithFormat("%@,", description.get())->view();
    }
    if (!text.empty())
        text.pop_back();
    return text;
}

} // namespace

void TXZonVersionRange::exportMethods(Class& cls)
{
    cls.exportMethod("minVersion", &TXZonVersionRange::minVersion);
    cls.exportMethod("maxVersion", &TXZonVersionRange::maxVersion);
    cls.exportMethod("includeVersions", &TXZonVersionRange::includeVersions);
    cls.exportMethod("excludeVersions", &TXZonVersionRange::excludeVersions);
    cls.exportMethod("isExplicitlyIncluded:", &TXZonVersionRange::isExplicitlyIncluded);
    cls.exportMethod("isVersionInRange:", &TXZonVersionRange::isVersionInRange);
}

TXZonVersionRange::TXZonVersionRange(
    TXZonVersion* minVersion, TXZonVersion* maxVersion, Array* includeVersions, Array* excludeVersions)
    : minVersion_(minVersion)
    , maxVersion_(maxVersion)
    , includeVersions_(includeVersions ? Ref(includeVersions) : Array::array())
    , excludeVersions_(excludeVersions ? Ref(excludeVersions) : Array::array())
{
}

Ref<TXZonVersionRange> TXZonVersionRange::initWithMinVersion_maxVersion_includeVersions_excludeVersions(
    TXZonVersion* minVersion, TXZonVersion* maxVersion, Array* includeVersions, Array* excludeVersions)
{
    return makeObject<TXZonVersionRange>(minVersion, maxVersion, includeVersions, excludeVersions);
}

Ref<TXZonVersion> TXZonVersionRange::minVersion() const { return copyOf(minVersion_.get()); }

Ref<TXZonVersion> TXZonVersionRange::maxVersion() const { return copyOf(maxVersion_.get()); }

Ref<Array> TXZonVersionRange::includeVersions() const { return staticRefCast<Array>(includeVersions_->copy()); }

Ref<Array> TXZonVersionRange::excludeVersions() const { return staticRefCast<Array>(excludeVersions_->copy()); }

bool TXZonVersionRange::isExplicitlyIncluded(const TXZonVersion* version) const
{
    return includeVersions_->containsObject(version);
}

bool TXZonVersionRange::isVersionInRange(const TXZonVersion* version) const
{
    if (!version || excludeVersions_->containsObject(version))
        return false;
    if (includeVersions_->containsObject(version))
        return true;
    return version->isInclusivlyBetweenLower_andUpper(minVersion_.get(), maxVersion_.get());
}

Ref<String> TXZonVersionRange::description() const
{
    Ref<String> minText = minVersion_ ? minVersion_->versionAndBuildDescription() : nullptr;
    Ref<String> maxText = maxVersion_ ? maxVersion_->versionAndBuildDescription() : nullptr;
    std::u16string text(String::stringWithFormat("Range:%@-%@", minText.get(), maxText.get())->view());
    const std::u16string included = joinedDescriptions(includeVersions_.get());
    const std::u16string excluded = joinedDescriptions(excludeVersions_.get());
    if (!included.empty())
        text += u" Including:(" + included + u")";
    if (!excluded.empty())
        text += u" Excluding:(" + excluded + u")";
    return String::stringWithCharacters(text);
}

} // namespace zon
