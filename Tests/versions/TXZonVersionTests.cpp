#include "versions/TXZonVersion.h"

#include "platform/io/Bundle.h"
#include "platform/runtime/Class.h"
#include "platform/runtime/KeyValueCoding.h"
#include "platform/values/Exception.h"
#include "platform/values/Locale.h"
#include "platform/values/MutableString.h"
#include "platform/values/Number.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

using namespace zon;
using namespace zon::test;

namespace {

// A subclass, to see that the class operations make the class they are called for.
class BetaVersion final : public TXZonVersion {
    ZON_OBJECT(BetaVersion, TXZonVersion)
public:
    static Ref<BetaVersion> versionWithString(const String* text) { return TXZonVersion::versionWithString<BetaVersion>(text); }

private:
    using TXZonVersion::TXZonVersion;
};

Ref<TXZonVersion> parsed(std::string_view text) { return TXZonVersion::versionWithString(str(text).get()); }

Ref<TXZonVersion> parts(const char* major, const char* minor, const char* bugFix, const char* build)
{
    auto part = [](const char* text) { return text ? str(text) : nullptr; };
    return TXZonVersion::versionWithMajorVersion_minorVersion_bugFixVersion_build(
        part(major).get(), part(minor).get(), part(bugFix).get(), part(build).get());
}

std::array<std::string, 4> partsOf(const TXZonVersion* version)
{
    return {utf8(version->majorValue()), utf8(version->minorValue()), utf8(version->bugfixValue()),
        utf8(version->buildValue())};
}

using Parts = std::array<std::string, 4>;

// A scratch bundle folder, removed with its files at the end of the test.
struct ScratchBundle {
    ScratchBundle()
    {
        char name[] = "/tmp/zon-version-XXXXXX";
        path = ::mkdtemp(name);
    }
    ~ScratchBundle() { std::filesystem::remove_all(path); }
    void write(const std::string& relative, const std::string& text) const
    {
        std::filesystem::create_directories(std::filesystem::path(path + "/" + relative).parent_path());
        std::ofstream(path + "/" + relative) << text;
    }
    // An XML property-list dictionary of string values.
    static std::string plist(std::initializer_list<std::pair<const char*, const char*>> entries)
    {
        std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
        for (const auto& [key, value] : entries)
            text += std::string("<key>") + key + "</key><string>" + value + "</string>\n";
        return text + "</dict>\n</plist>\n";
    }
    std::string path;
};

// Points the main bundle, or the library's, at a folder for the life of the object.
struct MainBundleAt {
    explicit MainBundleAt(const std::string& path) { Bundle::setMainBundlePathForTesting(str(path).get()); }
    ~MainBundleAt() { Bundle::setMainBundlePathForTesting(nullptr); }
};

long compared(std::string_view a, std::string_view b) { return parsed(a)->compare(parsed(b).get()); }

} // namespace

ZON_DEFINE_CLASS(BetaVersion, "BetaVersion")

TEST(TXZonVersion, ParsingPadsWithXAndStripsLeadingZerosOfEachPart)
{
    EXPECT_EQ(partsOf(parsed("").get()), (Parts {"0", "x", "x", "x"}));
    EXPECT_EQ(partsOf(parsed("10.06.008").get()), (Parts {"10", "6", "8", "x"}));
    EXPECT_EQ(partsOf(parsed("1.2.3.4.5").get()), (Parts {"1", "2", "3", "4"}));
    EXPECT_EQ(partsOf(parsed("1..2").get()), (Parts {"1", "0", "2", "x"}));
    EXPECT_EQ(partsOf(parsed("000.0x.5.0beta").get()), (Parts {"0", "x", "5", "beta"}));
    EXPECT_EQ(partsOf(parsed("5.0.0.beta3").get()), (Parts {"5", "0", "0", "beta3"}));
    EXPECT_EQ(utf8(parsed("4.6")->versionAndBuildDescription().get()), "4.6.x.x");
    EXPECT_EQ(utf8(parsed("é.٣")->description().get()), "é.٣.x.x");
    EXPECT_FALSE(TXZonVersion::versionWithString(nullptr));
}

TEST(TXZonVersion, ConstructorsStoreNilAsEmptyAndMakeTheReceivingClass)
{
    EXPECT_EQ(partsOf(parts(nullptr, "1", nullptr, nullptr).get()), (Parts {"", "1", "", ""}));
    EXPECT_EQ(partsOf(TXZonVersion::versionWithNumericMajorVersion_minorVersion_bugFixVersion_build(5, -1, 0, 2147483647).get()),
        (Parts {"5", "-1", "0", "2147483647"}));
    Ref<BetaVersion> beta = BetaVersion::versionWithString(str("2.1").get());
    EXPECT_TRUE(beta->isMemberOfClass(BetaVersion::staticClass()));
    EXPECT_EQ(utf8(beta->description().get()), "2.1.x.x");

    // Parts are retained, not copied; the copy is always the base class.
    Ref<String> major = str("7");
    Ref<TXZonVersion> version = TXZonVersion::versionWithMajorVersion_minorVersion_bugFixVersion_build(
        major.get(), nullptr, nullptr, nullptr);
    EXPECT_EQ(version->majorVersion(), major.get());
    Ref<Object> copy = beta->copy();
    EXPECT_TRUE(copy->isMemberOfClass(TXZonVersion::staticClass()));
    EXPECT_EQ(static_cast<TXZonVersion*>(copy.get())->majorValue(), beta->majorValue());
    EXPECT_EQ(static_cast<TXZonVersion*>(copy.get())->buildValue(), beta->buildValue());
}

TEST(TXZonVersion, NumericValueTrimsNonDigitsFromBothEnds)
{
    Ref<TXZonVersion> version = parsed("0");
    for (const auto& [text, value] : std::initializer_list<std::pair<const char*, long>> {
             {"x", 0}, {"", 0}, {"beta3", 3}, {"10b2", 10}, {"3rc", 3}, {"rc-2-", 2}, {"007", 7}})
        EXPECT_EQ(version->integerValueOf(str(text).get()), value) << text;
    EXPECT_EQ(version->integerValueOf(nullptr), 0);
    Ref<TXZonVersion> beta = parsed("5.0.0.beta3");
    EXPECT_EQ(beta->numericMajorVersion(), 5);
    EXPECT_EQ(beta->numericBuild(), 3);
}

TEST(TXZonVersion, ComparisonReadsDigitsOfEachComponent)
{
    EXPECT_EQ(TXZonVersion::compareVersionString_toVersionString(str("1.10").get(), str("1.9").get()), NSOrderedDescending);
    EXPECT_EQ(TXZonVersion::compareVersionString_toVersionString(str("2.0").get(), str("10.0").get()), NSOrderedAscending);
    EXPECT_EQ(compared("1.2.x.x", "1.2.0.0"), NSOrderedSame);
    EXPECT_EQ(compared("5.0.0.beta3", "5.0.0.3"), NSOrderedSame);
    EXPECT_EQ(compared("1a2.0", "12"), NSOrderedSame);         // other characters do not end a component
    EXPECT_EQ(compared("1.2.3.4", "1.2.3.5"), NSOrderedAscending);
    EXPECT_EQ(compared("1.0.0.0.9", "1.0.0.0"), NSOrderedSame); // the fifth component is never parsed
    EXPECT_EQ(compared("٣", "0"), NSOrderedSame);              // only ASCII digits count
    EXPECT_EQ(parts("1", "2", "", "")->compare(parsed("1.2.0.0").get()), NSOrderedSame);
    EXPECT_TRUE(TXZonVersion::isVersionString_equalToVersionString(str("1.2").get(), str("01.02.0").get()));
    EXPECT_FALSE(TXZonVersion::isVersionString_equalToVersionString(nullptr, str("0").get()));
}

TEST(TXZonVersion, ComparisonWalksTheJoinedTextSoADotInsideAPartShiftsTheRest)
{
    // "1.2.3.." against "1.2.3.0".
    EXPECT_EQ(parts("1.2", "3", "", "")->compare(parsed("1.2.3.0").get()), NSOrderedSame);
    // "1.2.3.4.5": the fifth component counts here, since it comes from the text.
    EXPECT_EQ(parts("1", "2", "3", "4.5")->compare(parsed("1.2.3.4").get()), NSOrderedDescending);
    // A trailing "." ends the text without another component.
    EXPECT_EQ(parts("1", "0", "0", "0.")->compare(parsed("1").get()), NSOrderedSame);
}

TEST(TXZonVersion, ComponentsWrapModulo2To32)
{
    EXPECT_EQ(compared("4294967296", "0"), NSOrderedSame);
    EXPECT_EQ(compared("4294967297.5", "1.5"), NSOrderedSame);
    EXPECT_EQ(compared("99999999999", "1215752191"), NSOrderedSame);
    EXPECT_EQ(compared("4294967295", "4294967296"), NSOrderedDescending);
}

TEST(TXZonVersion, NilComparesAsAllZeros)
{
    EXPECT_EQ(parsed("0.0.0.0")->compare(nullptr), NSOrderedSame);
    EXPECT_EQ(parsed("x")->compare(nullptr), NSOrderedSame);
    EXPECT_EQ(parsed("0.0.0.1")->compare(nullptr), NSOrderedDescending);
    EXPECT_TRUE(parsed("0")->isEqual(nullptr));

    // Parts set to nil print as (null) and read as zero.
    Ref<TXZonVersion> version = parsed("3.1");
    version->setMinorValue(nullptr);
    EXPECT_EQ(utf8(version->description().get()), "3.(null).x.x");
    EXPECT_EQ(version->compare(parsed("3").get()), NSOrderedSame);
    EXPECT_EQ(version->hash(), str("3.(null).x.x")->hash());
    EXPECT_EQ(partsOf(staticRefCast<TXZonVersion>(version->copy()).get()), (Parts {"3", "", "x", "x"}));
}

TEST(TXZonVersion, EqualVersionsMayHashDifferently)
{
    Ref<TXZonVersion> padded = parsed("1.2");
    Ref<TXZonVersion> zeros = parsed("1.2.0.0");
    EXPECT_TRUE(padded->isEqual(zeros.get()));
    EXPECT_NE(padded->hash(), zeros->hash());
    EXPECT_EQ(padded->hash(), str("1.2.x.x")->hash());
}

TEST(TXZonVersion, EqualityWithAnotherKindOfObjectFailsAsAnUnansweredMessage)
{
    const std::string reason = raisedReason(NSInvalidArgumentException, [] { parsed("1")->isEqual(str("1").get()); });
    EXPECT_NE(reason.find("-[NSString majorValue]: unrecognized selector"), std::string::npos) << reason;
}

TEST(TXZonVersion, InclusiveRangeTest)
{
    Ref<TXZonVersion> version = parsed("1.0.0.0");
    EXPECT_TRUE(version->isInclusivlyBetweenLower_andUpper(version.get(), version.get()));
    EXPECT_TRUE(version->isInclusivlyBetweenLower_andUpper(nullptr, parsed("1.0.1").get()));
    EXPECT_FALSE(version->isInclusivlyBetweenLower_andUpper(parsed("1.0.0.1").get(), parsed("2").get()));
    EXPECT_FALSE(version->isInclusivlyBetweenLower_andUpper(nullptr, nullptr));
    EXPECT_TRUE(parsed("0.x")->isInclusivlyBetweenLower_andUpper(nullptr, nullptr));
    EXPECT_TRUE(TXZonVersion::isVersionString_inclusivlyBetweenLowerVersionString_andUpperVersionString(
        str("1.5").get(), str("1.5").get(), str("1.10").get()));
    EXPECT_FALSE(TXZonVersion::isVersionString_inclusivlyBetweenLowerVersionString_andUpperVersionString(
        str("1.11").get(), str("1.5").get(), str("1.10").get()));
}

TEST(TXZonVersion, DescriptionForms)
{
    Ref<TXZonVersion> version = parsed("5.0.1.123");
    EXPECT_EQ(utf8(version->versionDescription().get()), "5.0.1");
    EXPECT_EQ(utf8(version->trimmedVersionDescription().get()), "5");
    EXPECT_EQ(utf8(version->versionAndBuildDescription().get()), "5.0.1.123");
    EXPECT_EQ(utf8(version->stringValue().get()), "5.0.1.123");
    EXPECT_EQ(utf8(version->spacedVersionAndBuildDescription().get()), "5.0.1 123");
    EXPECT_EQ(utf8(version->zeroPaddedVersionAndBuildDescription().get()), "5.0.1.123");
    EXPECT_EQ(utf8(version->zonVersionAndBuildDescription().get()), "0500.01.123");
    EXPECT_EQ(utf8(version->userDescription().get()), "Version 5.0.1 (build 123)");

    EXPECT_EQ(utf8(parsed("1.0.3")->trimmedVersionDescription().get()), "1");
    EXPECT_EQ(utf8(parsed("1.2.0")->trimmedVersionDescription().get()), "1.2");
    EXPECT_EQ(utf8(parsed("1.2.3")->trimmedVersionDescription().get()), "1.2.3");
    EXPECT_EQ(utf8(parsed("6.0.0.141")->zonVersionAndBuildDescription().get()), "0600.00.141");
    EXPECT_EQ(utf8(parsed("4.6.x.b7")->zeroPaddedVersionAndBuildDescription().get()), "4.6.0.7");
    EXPECT_EQ(utf8(parsed("4.6")->userDescription().get()), "Version 4.6.x (build x)");
}

TEST(TXZonVersion, LocalizedDescriptionsWithoutTranslationUseTheKeys)
{
    EXPECT_EQ(utf8(parsed("5.0.0.0")->localizedSoftwareDescription().get()), "5.0");
    EXPECT_EQ(utf8(parsed("5.0.1.0")->localizedSoftwareDescription().get()), "5.0.1");
    EXPECT_EQ(utf8(parsed("5.0.1.123")->localizedSoftwareDescription().get()), "5.0.1 Bundle 123");
    EXPECT_EQ(utf8(parsed("5.0.0.b2")->localizedSoftwareDescription().get()), "5.0 Bundle 2");
    EXPECT_EQ(utf8(parsed("5.0.1.123")->localizedUserDescription().get()), "Version 5.0.1 (build 123)");
}

TEST(TXZonVersion, KeyValueCodingServesTheDescriptionKeysThenTheMethods)
{
    Ref<TXZonVersion> version = parsed("6.0.0.141");
    for (const auto& [key, value] : std::initializer_list<std::pair<const char*, const char*>> {
             {"stringValue", "6.0.0.141"}, {"versionDescription", "6.0.0"},
             {"versionAndBuildDescription", "6.0.0.141"}, {"zonVersionAndBuildDescription", "0600.00.141"},
             {"description", "6.0.0.141"}, {"userDescription", "Version 6.0.0 (build 141)"},
             {"localizedUserDescription", "Version 6.0.0 (build 141)"}, {"trimmedVersionDescription", "6"},
             {"majorValue", "6"}, {"build", "141"}}) {
        Ref<Object> answer = version->valueForKey(str(key).get());
        EXPECT_EQ(utf8(dynamicCast<String>(answer.get())), value) << key;
    }
    Ref<Object> number = version->valueForKey(str("numericBuild").get());
    ASSERT_TRUE(dynamicCast<Number>(number.get()));
    EXPECT_EQ(static_cast<Number*>(number.get())->longValue(), 141);
    raisedReason(NSUndefinedKeyException, [&] { version->valueForKey(str("patch").get()); });

    version->setValue_forKey(str("7").get(), str("majorValue").get());
    EXPECT_EQ(utf8(version->description().get()), "7.0.0.141");
}

TEST(TXZonVersion, RunningApplicationVersionFromTheMainBundle)
{
    ScratchBundle bundle;
    bundle.write("Info.plist", ScratchBundle::plist({{"CFBundleShortVersionString", "05.010"},
                                   {"CFBundleVersion", "5.10.0300"}, {"CFBundleIdentifier", "org.example.app"}}));
    {
        MainBundleAt main(bundle.path);
        EXPECT_EQ(partsOf(TXZonVersion::versionOfRunningApplication().get()), (Parts {"5", "10", "0", "300"}));
        Ref<BetaVersion> beta = TXZonVersion::versionOfRunningApplication<BetaVersion>();
        EXPECT_TRUE(beta->isMemberOfClass(BetaVersion::staticClass()));
    }
    bundle.write("Info.plist", ScratchBundle::plist({{"CFBundleShortVersionString", "1.2.3.4"}, {"CFBundleVersion", "00"}}));
    {
        MainBundleAt main(bundle.path);
        EXPECT_EQ(partsOf(TXZonVersion::versionOfRunningApplication().get()), (Parts {"1", "2", "3", "0"}));
    }
    bundle.write("Info.plist", ScratchBundle::plist({{"CFBundleName", "No versions"}}));
    {
        MainBundleAt main(bundle.path);
        EXPECT_EQ(partsOf(TXZonVersion::versionOfRunningApplication().get()), (Parts {"0", "0", "0", "0"}));
    }
    // A bare tool's information still names its executable, so it has a version of zeros.
    std::filesystem::remove(bundle.path + "/Info.plist");
    MainBundleAt main(bundle.path);
    EXPECT_EQ(partsOf(TXZonVersion::versionOfRunningApplication().get()), (Parts {"0", "0", "0", "0"}));
}

TEST(TXZonVersion, LocalizedDescriptionsUseTheLibrarysStringTable)
{
    ScratchBundle bundle;
    bundle.write("de.lproj/Localizable.strings",
        ScratchBundle::plist({{"Version %@ (build %@)", "Fassung %@ (Bau %@)"}, {"%@ Bundle %u", "%@ Paket %u"}}));
    Bundle::setZonCommonBundlePathForTesting(str(bundle.path).get());
    Locale::setCurrentLocaleIdentifierForTesting(str("de_DE").get());
    Ref<TXZonVersion> version = parsed("5.0.1.123");
    EXPECT_EQ(utf8(version->localizedUserDescription().get()), "Fassung 5.0.1 (Bau 123)");
    EXPECT_EQ(utf8(version->localizedSoftwareDescription().get()), "5.0.1 Paket 123");
    EXPECT_EQ(utf8(version->userDescription().get()), "Version 5.0.1 (build 123)");
    Locale::setCurrentLocaleIdentifierForTesting(nullptr);
    Bundle::setZonCommonBundlePathForTesting(nullptr);
}
