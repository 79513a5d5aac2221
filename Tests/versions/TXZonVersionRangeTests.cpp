#include "versions/TXZonVersionRange.h"

#include "platform/values/Exception.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

namespace {

Ref<TXZonVersion> v(std::string_view text) { return TXZonVersion::versionWithString(str(text).get()); }

Ref<Array> list(std::initializer_list<std::string_view> texts)
{
    Ref<MutableArray> versions = MutableArray::array();
    for (std::string_view text : texts)
        versions->addObject(v(text).get());
    return versions;
}

bool inRange(const TXZonVersionRange* range, std::string_view text) { return range->isVersionInRange(v(text).get()); }

} // namespace

TEST(TXZonVersionRange, BoundsAreInclusive)
{
    Ref<TXZonVersionRange> range = TXZonVersionRange::versionRangeWithMinVersion_maxVersion(v("5").get(), v("6.0.0.999").get());
    EXPECT_TRUE(inRange(range.get(), "5.0.0.0"));
    EXPECT_TRUE(inRange(range.get(), "5.x"));
    EXPECT_TRUE(inRange(range.get(), "6.0.0.999"));
    EXPECT_TRUE(inRange(range.get(), "5.10"));
    EXPECT_FALSE(inRange(range.get(), "6.0.0.1000"));
    EXPECT_FALSE(inRange(range.get(), "4.99"));
    EXPECT_FALSE(range->isVersionInRange(nullptr));
}

TEST(TXZonVersionRange, ExclusionBeforeInclusionBeforeBounds)
{
    Ref<TXZonVersionRange> range = TXZonVersionRange::versionRangeWithMinVersion_maxVersion_includeVersions_excludeVersions(
        v("5").get(), v("6").get(), list({"4.6.1", "5.5", "7"}).get(), list({"5.5.0.0", "5.0.0.300"}).get());
    EXPECT_FALSE(inRange(range.get(), "5.5"));       // in both lists
    EXPECT_TRUE(inRange(range.get(), "4.6.1.0"));    // included below the minimum
    EXPECT_TRUE(inRange(range.get(), "7.0.0.0"));    // included above the maximum
    EXPECT_FALSE(inRange(range.get(), "5.0.0.300")); // excluded inside the bounds
    EXPECT_TRUE(inRange(range.get(), "5.0.0.301"));
    EXPECT_TRUE(range->isExplicitlyIncluded(v("4.6.1.x").get()));
    EXPECT_FALSE(range->isExplicitlyIncluded(v("5.0").get()));
    EXPECT_FALSE(range->isExplicitlyIncluded(nullptr));
}

TEST(TXZonVersionRange, NilMinimumIsNoBoundAndNilMaximumAdmitsOnlyZeros)
{
    Ref<TXZonVersionRange> belowSix = TXZonVersionRange::versionRangeWithMinVersion_maxVersion(nullptr, v("6").get());
    EXPECT_TRUE(inRange(belowSix.get(), "0"));
    EXPECT_TRUE(inRange(belowSix.get(), "5.99.99.99"));
    EXPECT_FALSE(inRange(belowSix.get(), "6.0.0.1"));

    Ref<TXZonVersionRange> open = TXZonVersionRange::versionRangeWithMinVersion_maxVersion_includeVersions(
        nullptr, nullptr, list({"2.0"}).get());
    EXPECT_FALSE(inRange(open.get(), "1.0.0.0"));
    EXPECT_TRUE(inRange(open.get(), "0.0.0.0"));
    EXPECT_TRUE(inRange(open.get(), "2"));
    Ref<TXZonVersionRange> zeroExcluded = TXZonVersionRange::versionRangeWithMinVersion_maxVersion_excludeVersions(
        nullptr, nullptr, list({"0"}).get());
    EXPECT_FALSE(inRange(zeroExcluded.get(), "0.0.0.0"));
}

TEST(TXZonVersionRange, KeepsWhatItIsGivenAndHandsOutCopies)
{
    Ref<TXZonVersion> minimum = v("5");
    Ref<Array> included = list({"4.6.1"});
    Ref<TXZonVersionRange> range = TXZonVersionRange::versionRangeWithMinVersion_maxVersion_includeVersions(
        minimum.get(), v("6").get(), included.get());

    Ref<TXZonVersion> copy = range->minVersion();
    EXPECT_NE(copy.get(), minimum.get());
    copy->setMajorValue(str("9").get());
    EXPECT_EQ(utf8(range->minVersion()->description().get()), "5.x.x.x");

    // The list is kept as given (a later change to it shows), but what comes out is a snapshot.
    Ref<Array> out = range->includeVersions();
    EXPECT_NE(out.get(), included.get());
    static_cast<MutableArray*>(included.get())->addObject(v("3").get());
    EXPECT_TRUE(inRange(range.get(), "3"));
    EXPECT_EQ(out->count(), 1u);

    EXPECT_FALSE(TXZonVersionRange::versionRangeWithMinVersion_maxVersion(nullptr, nullptr)->maxVersion());
    EXPECT_EQ(TXZonVersionRange::versionRangeWithMinVersion_maxVersion(nullptr, nullptr)->excludeVersions()->count(), 0u);
}

TEST(TXZonVersionRange, Description)
{
    Ref<TXZonVersionRange> range = TXZonVersionRange::versionRangeWithMinVersion_maxVersion_includeVersions_excludeVersions(
        v("5.0.0.0").get(), v("6.0.0.999").get(), list({"4.6.1.0"}).get(), list({"5.0.0.300", "5.0.0.301"}).get());
    EXPECT_EQ(utf8(range->description().get()),
        "Range:5.0.0.0-6.0.0.999 Including:(4.6.1.0) Excluding:(5.0.0.300,5.0.0.301)");
    EXPECT_EQ(utf8(TXZonVersionRange::versionRangeWithMinVersion_maxVersion(v("5").get(), v("6.1").get())->description().get()),
        "Range:5.x.x.x-6.1.x.x");
    EXPECT_EQ(utf8(TXZonVersionRange::versionRangeWithMinVersion_maxVersion_excludeVersions(
                       nullptr, nullptr, list({"1"}).get())->description().get()),
        "Range:(null)-(null) Excluding:(1.x.x.x)");

    Ref<Array> notVersions = Array::arrayWithObject(str("5.0").get());
    Ref<TXZonVersionRange> odd = TXZonVersionRange::versionRangeWithMinVersion_maxVersion_includeVersions(
        nullptr, nullptr, notVersions.get());
    raisedReason(NSInvalidArgumentException, [&] { odd->description(); });
}
