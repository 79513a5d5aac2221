#include "platform/io/Bundle.h"
#include "platform/io/BundleInternal.h"
#include "platform/io/PropertyListSerialization.h"
#include "platform/system/ProcessCallsInternal.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Locale.h"
#include "platform/values/String.h"
#include "support/ScratchFolder.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;

namespace {

std::string xmlPropertyList(std::initializer_list<std::pair<const char*, const char*>> entries)
{
    Ref<MutableDictionary> dictionary = MutableDictionary::dictionary();
    for (auto [key, value] : entries)
        dictionary->setObject_forKey(str(value).get(), str(key).get());
    Ref<Data> data = PropertyListSerialization::dataWithPropertyList(dictionary.get(), NSPropertyListXMLFormat_v1_0, nullptr);
    return std::string(static_cast<const char*>(data->bytes()), data->length());
}

// {"Hello": "Hallo", "KB": "KB-de", "%1$@ %2$@": "%2$@ %1$@"} as a binary property list.
const std::string kGermanTableBinary(
    "\x62\x70\x6c\x69\x73\x74\x30\x30\xd3\x01\x02\x03\x04\x05\x06\x59\x25\x31\x24\x40\x20\x25\x32\x24\x40\x55\x48"
    "\x65\x6c\x6c\x6f\x52\x4b\x42\x59\x25\x32\x24\x40\x20\x25\x31\x24\x40\x55\x48\x61\x6c\x6c\x6f\x55\x4b\x42\x2d"
    "\x64\x65\x08\x0f\x19\x1f\x22\x2c\x32\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x07\x00\x00"
    "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x38",
    95);

std::vector<std::string> texts(const Array* array)
{
    std::vector<std::string> out;
    for (size_t index = 0; array && index < array->count(); ++index)
        out.push_back(utf8(dynamicCast<String>(array->objectAtIndex(index))));
    return out;
}

Ref<Array> names(std::initializer_list<std::u16string_view> items)
{
    Ref<MutableArray> array = MutableArray::array();
    for (std::u16string_view item : items)
        array->addObject(str(item).get());
    return array;
}

// A bundle in a scratch folder: an English table (XML), a German one (binary, long folder name),
// a French folder without tables, and help pages. Tests fix the current locale with the hook.
class BundleTest : public testing::Test {
protected:
    BundleTest()
    {
        scratch.write("Info.plist",
            xmlPropertyList({{"CFBundleIdentifier", "org.example.Test"}, {"CFBundleDevelopmentRegion", "en"},
                {"CFBundleHelpBookFolder", "Help"}}));
        scratch.write("en.lproj/Localizable.strings", xmlPropertyList({{"Hello", "Hello"}, {"KB", "KB"}}));
        scratch.write("en.lproj/Other.strings", xmlPropertyList({{"Hello", "Hi"}}));
        scratch.write("German.lproj/Localizable.strings", kGermanTableBinary);
        scratch.makeFolder("fr.lproj");
        scratch.write("en.lproj/Pictures/logo.png", "en");
        scratch.write("Pictures/logo.png", "any");
        scratch.write("readme.txt", "any");
        bundle = Bundle::bundleWithPath(str(scratch.path));
    }
    ~BundleTest() override
    {
        Locale::setCurrentLocaleIdentifierForTesting(nullptr);
        Bundle::setMainBundlePathForTesting(nullptr);
        Bundle::setZonCommonBundlePathForTesting(nullptr);
    }

    std::string relative(const Ref<String>& path) const
    {
        const std::string text = utf8(path);
        return text.starts_with(scratch.path + "/") ? text.substr(scratch.path.size() + 1) : text;
    }

    ScratchFolder scratch;
    Ref<Bundle> bundle;
};

} // namespace

TEST_F(BundleTest, ReadsItsFolderAndInformationDictionary)
{
    ASSERT_TRUE(bundle);
    EXPECT_EQ(utf8(bundle->bundlePath()), scratch.path);
    EXPECT_EQ(utf8(bundle->resourcePath()), scratch.path);
    EXPECT_EQ(utf8(bundle->bundleIdentifier()), "org.example.Test");
    EXPECT_EQ(utf8(bundle->developmentLocalization()), "en");
    EXPECT_EQ(utf8(dynamicCast<String>(bundle->objectForInfoDictionaryKey(str("CFBundleHelpBookFolder")))), "Help");
    EXPECT_FALSE(bundle->objectForInfoDictionaryKey(str("missing")));
    EXPECT_THAT(texts(bundle->localizations().get()), ElementsAre("German", "en", "fr"));

    EXPECT_FALSE(Bundle::bundleWithPath(nullptr));
    EXPECT_FALSE(Bundle::bundleWithPath(str(scratch.file("missing"))));
    EXPECT_FALSE(Bundle::bundleWithPath(str(scratch.file("readme.txt"))));

    Ref<Bundle> plain = Bundle::bundleWithPath(str(scratch.file("Pictures/")));
    ASSERT_TRUE(plain);
    EXPECT_EQ(utf8(plain->bundlePath()), scratch.file("Pictures"));
    EXPECT_EQ(plain->infoDictionary(), nullptr);
    EXPECT_FALSE(plain->bundleIdentifier());
    EXPECT_EQ(plain->localizations()->count(), 0u);
}

TEST_F(BundleTest, ThePlatformLayoutKeepsResourcesUnderContents)
{
    scratch.write("App.app/Contents/Info.plist", xmlPropertyList({{"CFBundleIdentifier", "org.example.App"}}));
    scratch.write("App.app/Contents/Resources/de.lproj/Localizable.strings", kGermanTableBinary);
    Ref<Bundle> app = Bundle::bundleWithPath(str(scratch.file("App.app")));
    ASSERT_TRUE(app);
    EXPECT_EQ(utf8(app->resourcePath()), scratch.file("App.app/Contents/Resources"));
    EXPECT_EQ(utf8(app->bundleIdentifier()), "org.example.App");
    EXPECT_THAT(texts(app->localizations().get()), ElementsAre("de"));
    Locale::setCurrentLocaleIdentifierForTesting(str("de_AT"));
    EXPECT_EQ(utf8(app->localizedStringForKey_value_table(str("Hello"), nullptr, nullptr)), "Hallo");
}

TEST_F(BundleTest, TheMainBundleIsBesideAboveOrSharedWithTheProgram)
{
    scratch.write("beside/bin/Info.plist", xmlPropertyList({}));
    EXPECT_EQ(mainBundleFolder(scratch.file("beside/bin/tool")), scratch.file("beside/bin"));
    scratch.write("above/Info.plist", xmlPropertyList({}));
    EXPECT_EQ(mainBundleFolder(scratch.file("above/bin/tool")), scratch.file("above"));
    scratch.write("X.app/Contents/Info.plist", xmlPropertyList({}));
    EXPECT_EQ(mainBundleFolder(scratch.file("X.app/Contents/MacOS/tool")), scratch.file("X.app"));
    scratch.write("prefix/share/tool/Info.plist", xmlPropertyList({}));
    EXPECT_EQ(mainBundleFolder(scratch.file("prefix/bin/tool")), scratch.file("prefix/share/tool"));
    EXPECT_EQ(mainBundleFolder(scratch.file("none/bin/tool")), scratch.file("none/bin"));

    // This test program has no Info.plist anywhere near it: its information holds only the
    // executable's path, which every main bundle carries.
    auto executable = executablePath();
    ASSERT_TRUE(executable);
    Bundle* main = Bundle::mainBundle();
    ASSERT_TRUE(main);
    EXPECT_EQ(utf8(main->bundlePath()), executable.value().substr(0, executable.value().rfind('/')));
    ASSERT_NE(main->infoDictionary(), nullptr);
    EXPECT_EQ(main->infoDictionary()->count(), 1u);
    EXPECT_EQ(utf8(dynamicCast<String>(main->objectForInfoDictionaryKey(str("CFBundleExecutablePath")))), executable.value());

    Bundle::setMainBundlePathForTesting(str(scratch.path));
    EXPECT_EQ(utf8(Bundle::mainBundle()->bundleIdentifier()), "org.example.Test");
    EXPECT_EQ(utf8(dynamicCast<String>(Bundle::mainBundle()->objectForInfoDictionaryKey(str("CFBundleExecutablePath")))),
        executable.value());
    EXPECT_EQ(Bundle::bundleWithIdentifier(str("org.example.Test")), Bundle::mainBundle());
    Bundle::setMainBundlePathForTesting(nullptr);
    EXPECT_EQ(utf8(Bundle::mainBundle()->bundlePath()), utf8(main->bundlePath()));
}

TEST_F(BundleTest, TheLibraryBundleShipsItsEnglishKeys)
{
    Bundle* library = Bundle::zonCommonBundle();
    ASSERT_TRUE(library);
    EXPECT_EQ(utf8(library->bundleIdentifier()), "org.zoncommon.ZonCommon");
    EXPECT_EQ(Bundle::bundleWithIdentifier(str("org.zoncommon.ZonCommon")), library);
    EXPECT_EQ(Bundle::bundleWithIdentifier(str("org.example.Unknown")), nullptr);
    EXPECT_EQ(Bundle::bundleWithIdentifier(nullptr), nullptr);
    EXPECT_THAT(texts(library->localizations().get()), testing::Contains("en"));

    Locale::setCurrentLocaleIdentifierForTesting(str("de_DE"));
    for (const char* key : {"Version %@ (build %@)", "%@ Bundle %u", "B", "KB", "MB", "GB", "TB", "PB", "%1$@ %2$@"})
        EXPECT_EQ(utf8(ZonLocalizedString(str(key))), key);
    EXPECT_EQ(utf8(ZonLocalizedString(str("Not a key"))), "Not a key");

    // The same keys answer their translation from a table that has one.
    Bundle::setZonCommonBundlePathForTesting(str(scratch.path));
    EXPECT_EQ(utf8(ZonLocalizedString(str("KB"))), "KB-de");
    EXPECT_EQ(utf8(ZonLocalizedString(str("%1$@ %2$@"))), "%2$@ %1$@");
    EXPECT_EQ(utf8(ZonLocalizedString(str("MB"))), "MB");
}

TEST_F(BundleTest, PreferredLocalizationsFollowTheUsersLanguages)
{
    Bundle::setMainBundlePathForTesting(str(scratch.path)); // development localisation "en"
    auto choose = [](const char* current, std::initializer_list<std::u16string_view> offers) {
        Locale::setCurrentLocaleIdentifierForTesting(str(current));
        return texts(Bundle::preferredLocalizationsFromArray(names(offers).get()).get());
    };
    EXPECT_THAT(choose("de_DE", {u"en", u"de_AT", u"de", u"de_DE", u"fr"}), ElementsAre("de_DE", "de", "de_AT"));
    EXPECT_THAT(choose("de", {u"en", u"de-DE"}), ElementsAre("de-DE"));
    EXPECT_THAT(choose("de_CH", {u"English", u"German"}), ElementsAre("German"));
    EXPECT_THAT(choose("ja_JP", {u"fr", u"en"}), ElementsAre("en"));
    EXPECT_THAT(choose("ja_JP", {u"fr", u"it"}), ElementsAre("fr"));
    EXPECT_THAT(choose("ja_JP", {}), ElementsAre());

    // Identifiers with NULs match, and the offered objects themselves come back.
    Locale::setCurrentLocaleIdentifierForTesting(str("en_US"));
    Ref<Array> offers = names({std::u16string_view(u"de\0", 3), std::u16string_view(u"en\0", 3),
        std::u16string_view(u"en\0_US\0", 7), std::u16string_view(u"en\0_GB\0", 7)});
    Ref<Array> chosen = Bundle::preferredLocalizationsFromArray(offers.get());
    ASSERT_EQ(chosen->count(), 3u);
    EXPECT_EQ(chosen->objectAtIndex(0), offers->objectAtIndex(2));
    EXPECT_EQ(chosen->objectAtIndex(1), offers->objectAtIndex(1));
    EXPECT_EQ(chosen->objectAtIndex(2), offers->objectAtIndex(3));

    Locale::setCurrentLocaleIdentifierForTesting(str("fr_FR"));
    EXPECT_THAT(texts(bundle->preferredLocalizations().get()), ElementsAre("fr"));
    Locale::setCurrentLocaleIdentifierForTesting(str("ko_KR"));
    EXPECT_THAT(texts(bundle->preferredLocalizations().get()), ElementsAre("en"));
}

TEST_F(BundleTest, LanguagesAreTriedInTheOrderTheUserGaveThem)
{
    ScopedEnvironment env;
    env.set("LC_ALL", std::nullopt);
    env.set("LC_MESSAGES", std::nullopt);
    env.set("LANG", "de_DE.UTF-8");
    env.set("LANGUAGE", "fr:it");
    Locale::setCurrentLocaleIdentifierForTesting(nullptr);
    EXPECT_THAT(texts(Bundle::preferredLocalizationsFromArray(names({u"de", u"it", u"fr"}).get()).get()),
        ElementsAre("fr", "it", "de"));
    Locale::setCurrentLocaleIdentifierForTesting(nullptr); // before the environment goes back
}

TEST_F(BundleTest, ResourcesAreFoundByLocalizationAndItsOtherName)
{
    auto find = [&](const char* name, const char* type, const char* folder, const char* localization) {
        return relative(bundle->pathForResource_ofType_inDirectory_forLocalization(
            str(name), type ? str(type).get() : nullptr, folder ? str(folder).get() : nullptr,
            localization ? str(localization).get() : nullptr));
    };
    EXPECT_EQ(find("Localizable", "strings", nullptr, "German"), "German.lproj/Localizable.strings");
    EXPECT_EQ(find("Localizable", "strings", nullptr, "de"), "German.lproj/Localizable.strings");
    EXPECT_EQ(find("Localizable", "strings", nullptr, "English"), "en.lproj/Localizable.strings");
    EXPECT_EQ(find("Localizable.strings", nullptr, nullptr, "en"), "en.lproj/Localizable.strings");
    EXPECT_EQ(find("logo", "png", "Pictures", "en"), "en.lproj/Pictures/logo.png");
    EXPECT_EQ(find("logo", "png", "Pictures", "fr"), "Pictures/logo.png");
    EXPECT_EQ(find("readme", "txt", nullptr, "fr"), "readme.txt");
    EXPECT_EQ(find("Other", "strings", nullptr, "fr"), "(nil)");
    EXPECT_EQ(find("missing", "png", nullptr, "en"), "(nil)");
    EXPECT_EQ(relative(bundle->pathForResource_ofType(nullptr, str("png"))), "(nil)");

    Locale::setCurrentLocaleIdentifierForTesting(str("en_GB"));
    EXPECT_EQ(relative(bundle->pathForResource_ofType_inDirectory(str("logo"), str("png"), str("Pictures"))),
        "Pictures/logo.png");
    EXPECT_EQ(relative(bundle->pathForResource_ofType(str("Other"), str("strings"))), "en.lproj/Other.strings");
}

TEST_F(BundleTest, StringsComeFromThePreferredTableElseTheKey)
{
    Locale::setCurrentLocaleIdentifierForTesting(str("de_DE"));
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Hello"), nullptr, nullptr)), "Hallo");
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Hello"), nullptr, str(""))), "Hallo");
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Nope"), str("fallback"), nullptr)), "fallback");
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Nope"), str(""), nullptr)), "Nope");
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(nullptr, str("fallback"), nullptr)), "fallback");
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(nullptr, nullptr, nullptr)), "");
    // German has no "Other" table: the development localisation's serves.
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Hello"), nullptr, str("Other"))), "Hi");

    Locale::setCurrentLocaleIdentifierForTesting(str("en_US"));
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Hello"), nullptr, nullptr)), "Hello");
    Locale::setCurrentLocaleIdentifierForTesting(str("fr_FR")); // a folder without tables
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Hello"), nullptr, nullptr)), "Hello");

    scratch.write("en.lproj/Broken.strings", "not a property list");
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Hello"), nullptr, str("Broken"))), "Hello");
}

TEST_F(BundleTest, AChangedTableIsReadAgain)
{
    Locale::setCurrentLocaleIdentifierForTesting(str("en"));
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Hello"), nullptr, nullptr)), "Hello");

    const std::string table = scratch.write("en.lproj/Localizable.strings", xmlPropertyList({{"Hello", "Howdy"}}));
    const timespec later[2] = {{0, UTIME_OMIT}, {4000000000, 123456789}}; // a modification time surely new
    ASSERT_EQ(::utimensat(AT_FDCWD, table.c_str(), later, 0), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // a table is looked at once a second
    EXPECT_EQ(utf8(bundle->localizedStringForKey_value_table(str("Hello"), nullptr, nullptr)), "Howdy");
}

TEST_F(BundleTest, TablesAndTheCurrentLocaleServeManyThreadsWhileTheLocaleChanges)
{
    Bundle::setZonCommonBundlePathForTesting(str(scratch.path));
    Locale::setCurrentLocaleIdentifierForTesting(str("en_US"));
    std::atomic<bool> wrong {false};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                const std::string text = utf8(ZonLocalizedString(str("KB")));
                const std::string current = utf8(Locale::currentLocale()->localeIdentifier());
                wrong = wrong || (text != "KB" && text != "KB-de") || (current != "de_DE" && current != "en_US");
                wrong = wrong || bundle->preferredLocalizations()->count() != 1;
            }
        });
    }
    for (int change = 0; change < 200; ++change)
        Locale::setCurrentLocaleIdentifierForTesting(str(change % 2 ? "de_DE" : "en_US"));
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_FALSE(wrong);
}
