#include "platform/io/Bundle.h"
#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Locale.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"
#include "support/FakeOpener.h"
#include "support/LogCapture.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Optional;

namespace {

constexpr const char* kEnglishText = "Help file for user's current locale not supported/found, reverting to English help. ";

void writeInfo(const ScratchFolder& folder, const char* relative, Dictionary* info)
{
    Ref<Data> data = PropertyListSerialization::dataWithPropertyList(info, NSPropertyListXMLFormat_v1_0, nullptr);
    folder.write(relative, std::string_view(static_cast<const char*>(data->bytes()), data->length()));
}

// A main bundle with German, French and English localisations and a help book whose pages exist
// in German and English ("English.lproj", the long name), one page in English only.
class HelpPage : public testing::Test {
protected:
    HelpPage()
    {
        writeInfo(scratch, "Info.plist",
            MutableDictionary::dictionaryWithObjectsAndKeys(
                {{str("CFBundleHelpBookFolder"), str("Help")}, {str("CFBundleDevelopmentRegion"), str("en")}}));
        for (const char* localization : {"en", "de", "fr"})
            scratch.makeFolder(std::string(localization) + ".lproj");
        scratch.write("Help/de.lproj/index.html", "de");
        scratch.write("Help/de.lproj/topics/page.html", "de");
        scratch.write("Help/English.lproj/index.html", "en");
        scratch.write("Help/English.lproj/english.html", "en");
        Bundle::setMainBundlePathForTesting(str(scratch.path));
    }
    ~HelpPage() override
    {
        Bundle::setMainBundlePathForTesting(nullptr);
        Locale::setCurrentLocaleIdentifierForTesting(nullptr);
    }

    std::string helpURL(const char* page, const char* directory = nullptr)
    {
        Ref<URL> url = URL::helpURLFromPage_withExtension_inDirectory(
            str(page).get(), str("html").get(), directory ? str(directory).get() : nullptr);
        return url ? utf8(url->absoluteString()) : "(nil)";
    }
    std::string fileURL(const char* relative) const { return "file://" + scratch.file(relative); }

    // The help look-up's own log lines.
    std::vector<logger::CapturedRecord> helpLines() const
    {
        std::vector<logger::CapturedRecord> lines;
        for (const auto& record : log.records()) {
            if (record.file.ends_with("Sources/extensions/NSURL+ZonExtensions.cpp"))
                lines.push_back(record);
        }
        return lines;
    }

    ScratchFolder scratch;
    LogCapture log;
};

} // namespace

TEST_F(HelpPage, ThePreferredLocalizationsPageComesFirst)
{
    Locale::setCurrentLocaleIdentifierForTesting(str("de_AT"));
    EXPECT_EQ(helpURL("index"), fileURL("Help/de.lproj/index.html"));
    EXPECT_EQ(helpURL("page", "topics"), fileURL("Help/de.lproj/topics/page.html"));
    EXPECT_TRUE(helpLines().empty());
}

TEST_F(HelpPage, EnglishServesWithAWarningWhenThePreferredHasNone)
{
    for (const char* current : {"fr_FR", "de_DE"}) {
        log.clear();
        Locale::setCurrentLocaleIdentifierForTesting(str(current));
        EXPECT_EQ(helpURL("english"), fileURL("Help/English.lproj/english.html"));
        const auto lines = helpLines();
        ASSERT_EQ(lines.size(), 1u) << current;
        EXPECT_EQ(lines[0].level, 2);
        EXPECT_EQ(lines[0].line, 37);
        EXPECT_EQ(lines[0].message, kEnglishText + scratch.file("Help/English.lproj/english.html"));
    }
}

TEST_F(HelpPage, AMissingPageIsNilWithAWarning)
{
    Locale::setCurrentLocaleIdentifierForTesting(str("de_DE"));
    EXPECT_EQ(helpURL("missing"), "(nil)");
    auto lines = helpLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].line, 34);
    EXPECT_EQ(lines[0].message, "Unable to locate missing help file.");

    // Without a help book nothing is found either.
    log.clear();
    writeInfo(scratch, "Info.plist", Dictionary::dictionary());
    Bundle::setMainBundlePathForTesting(str(scratch.path));
    EXPECT_EQ(helpURL("index"), "(nil)");
    lines = helpLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "Unable to locate index help file.");
}

TEST_F(HelpPage, ShowingAPageOpensItsFileURL)
{
    FakeOpener opener;
    Locale::setCurrentLocaleIdentifierForTesting(str("de_DE"));
    String::showHelpPageInBrowser_withExtension_inDirectory(str("index").get(), str("html").get(), nullptr);
    EXPECT_THAT(opener.arguments(), Optional(ElementsAre(fileURL("Help/de.lproj/index.html"))));
    EXPECT_TRUE(childrenAreReaped());
}

TEST_F(HelpPage, ShowingAMissingPageOpensNothing)
{
    FakeOpener opener;
    String::showHelpPageInBrowser_withExtension_inDirectory(str("missing").get(), str("html").get(), nullptr);
    EXPECT_FALSE(opener.ran());
}
