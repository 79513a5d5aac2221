#include "extensions/WindowsLocaleCodeTableInternal.h"

#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Array.h"
#include "platform/values/Locale.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <unicode/uloc.h>

#include <fstream>
#include <map>
#include <sstream>

namespace zon {
namespace {

Ref<String> text(std::string_view utf8) { return String::stringWithUTF8String(utf8); }

// Our identifiers with NULs written "\0", as the data file and the tool show them.
std::string shown(const String* identifier)
{
    if (!identifier)
        return "-";
    std::string result;
    for (char16_t unit : identifier->view())
        result += unit == u'\0' ? std::string("\\0") : std::string(1, char(unit));
    return result;
}

struct TableRow {
    uint32_t code;
    std::string identifier; // "\0" for NULs, "-" for none
};

// The table as the data file writes it, independently of the compiled-in rows.
std::vector<TableRow> rowsFromDataFile()
{
    std::ifstream file(ZON_LOCALE_CODE_TABLE);
    std::vector<TableRow> rows;
    std::string line;
    while (std::getline(file, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream fields(line);
        std::string code, identifier;
        fields >> code >> identifier;
        rows.push_back({uint32_t(std::stoul(code, nullptr, 16)), identifier});
    }
    return rows;
}

TEST(LocaleCodeTable, EveryRowOfTheDataFileInBothDirections)
{
    AutoreleasePool pool;
    const std::vector<TableRow> rows = rowsFromDataFile();
    ASSERT_EQ(rows.size(), 249u);

    const auto table = Locale::windowsLocaleCodeTable();
    ASSERT_EQ(table.size(), rows.size());
    std::map<std::string, uint32_t> firstCodeOfIdentifier;
    for (size_t row = 0; row < rows.size(); ++row) {
        SCOPED_TRACE(rows[row].identifier);
        EXPECT_EQ(table[row].first, rows[row].code);
        EXPECT_EQ(shown(table[row].second.get()), rows[row].identifier);
        // Code to identifier: every code answers its row's identifier (the code 0's two rows agree).
        EXPECT_EQ(shown(Locale::localeIdentifierFromWindowsLocaleCode(rows[row].code).get()), rows[row].identifier);
        firstCodeOfIdentifier.emplace(rows[row].identifier, rows[row].code);
    }
    // Identifier to code: the first row of each identifier wins.
    for (const auto& [identifier, code] : firstCodeOfIdentifier) {
        if (identifier == "-")
            continue;
        SCOPED_TRACE(identifier);
        Ref<String> withNULs = Locale::localeIdentifierFromWindowsLocaleCode(code);
        EXPECT_EQ(Locale::windowsLocaleCodeFromLocaleIdentifier(withNULs.get()), code);
    }
    EXPECT_EQ(firstCodeOfIdentifier.size(), 225u); // 224 identifiers and "-"
}

TEST(LocaleCodeTable, IdentifiersCarryTheirNULs)
{
    AutoreleasePool pool;
    Ref<String> englishUS = Locale::localeIdentifierFromWindowsLocaleCode(0x0409);
    EXPECT_EQ(englishUS->view(), std::u16string_view(u"en\0_US\0", 7));
    EXPECT_EQ(Locale::localeIdentifierFromWindowsLocaleCode(0x0009)->view(), std::u16string_view(u"en\0", 3));
    EXPECT_EQ(Locale::localeIdentifierFromWindowsLocaleCode(0x0000)->view(), std::u16string_view(u"\0\0\0", 3));
    EXPECT_EQ(Locale::localeIdentifierFromWindowsLocaleCode(0x045c), nullptr);
    EXPECT_EQ(Locale::localeIdentifierFromWindowsLocaleCode(0x9999), nullptr);
    EXPECT_FALSE(englishUS->isEqual(text("en_US").get()));

    EXPECT_EQ(FourCharToLocaleIdentifier(0xFF, 'e', 'n', 0), nullptr);
    EXPECT_EQ(FourCharToLocaleIdentifier('d', 'e', 'A', 'T')->view(), std::u16string_view(u"de\0_AT\0", 7));
    // Bytes above 0x7F do not decode as ASCII.
    EXPECT_EQ(FourCharToLocaleIdentifier(0x9e, 0x8d, 0, 4), nullptr);
    EXPECT_EQ(FourCharToLocaleIdentifier(0x9e, 'x', 'A', 'T')->view(), std::u16string_view(u"(null)_AT\0", 10));
}

TEST(LocaleCodeTable, IdentifierToCodeTakesTheFirstMatchingRow)
{
    AutoreleasePool pool;
    const std::pair<const char*, uint32_t> cases[] = {{"en_US", 0x0409}, {"en", 0x0009}, {"fr_CA", 0x0c0c},
        {"es", 0x000a}, {"fr", 0x000c}, {"az", 0x042c}, {"lt", 0x0427}, {"no", 0x0414}, {"sr", 0x0c1a},
        {"xx_YY", 0}, {"en-US", 0x0409}, {"EN_us", 0x0409}, {"zh_Hant_TW", 0x0404}, {"de_DE@collation=phonebook", 0x0407},
        {"", 0}};
    for (const auto& [identifier, code] : cases)
        EXPECT_EQ(Locale::windowsLocaleCodeFromLocaleIdentifier(text(identifier).get()), code) << identifier;
    EXPECT_EQ(Locale::windowsLocaleCodeFromLocaleIdentifier(nullptr), 0u);
}

TEST(LocaleCodeTable, ThePlainReadingAgreesWithTheParser)
{
    AutoreleasePool pool;
    std::vector<Ref<String>> identifiers;
    for (const auto& [code, identifier] : Locale::windowsLocaleCodeTable())
        if (identifier)
            identifiers.push_back(identifier);
    for (const char* odd : {"EN_us", "en-US", "en_US_POSIX", "zh_Hans_CN", "sr_Latn", "", "e", "eng", "i-klingon",
             "en__US", "_US", "en_US@calendar=x", "en_U", "en_USA", "in", "iw_IL", "en_US.UTF-8", "root", "und"})
        identifiers.push_back(text(odd));
    identifiers.push_back(String::stringWithCharacters(u"\0e\0n_\0U\0S", 10));
    for (const Ref<String>& identifier : identifiers)
        EXPECT_EQ(localecodes::keyForIdentifier(identifier.get()), localecodes::keyForIdentifierThroughParser(identifier.get()))
            << shown(identifier.get());
}

TEST(LocaleCodeTable, StandardIdentifiersAreTheTableIdentifiersOnceInTableOrder)
{
    AutoreleasePool pool;
    Ref<Array> identifiers = Locale::standardLocaleIdentifiers();
    ASSERT_EQ(identifiers->count(), 224u);
    EXPECT_EQ(Set::setWithArray(identifiers.get())->count(), 224u);
    EXPECT_EQ(shown(static_cast<String*>(identifiers->objectAtIndex(0))), "\\0\\0\\0");
    EXPECT_EQ(shown(static_cast<String*>(identifiers->objectAtIndex(1))), "af\\0");
    EXPECT_EQ(shown(static_cast<String*>(identifiers->lastObject())), "zu\\0");

    Ref<Array> locales = Locale::standardLocales();
    ASSERT_EQ(locales->count(), 224u);
    for (size_t index = 0; index < 224; ++index)
        EXPECT_TRUE(static_cast<Locale*>(locales->objectAtIndex(index))
                ->localeIdentifier()
                ->isEqual(identifiers->objectAtIndex(index)));
}

TEST(LocaleCodeTable, LocaleLookUpsLogWhatTheyCannotMap)
{
    AutoreleasePool pool;
    LogCapture capture;
    EXPECT_EQ(Locale::windowsLocaleCodeForLocale(nullptr), 9u);
    EXPECT_THAT(capture.records(), ContainsLine(2, "Trying to get locale code for 'nil' locale"));

    EXPECT_EQ(Locale::localeWithLocaleIdentifier(text("xx_YY").get())->windowsLocaleCode(), 0u);
    EXPECT_THAT(capture.records(), ContainsLine(5, "Couldn't find language code for 'xx_YY'"));

    Ref<Locale> fallback = Locale::localeForWindowsLocaleCode(0x9999);
    EXPECT_TRUE(fallback->localeIdentifier()->isEqual(text("en").get()));
    EXPECT_THAT(capture.records(), ContainsLine(1, "Couldn't find locale for code '39321'"));
    for (const logger::CapturedRecord& record : capture.records())
        EXPECT_TRUE(record.file.ends_with("Sources/extensions/NSLocale+ZonExtensions.cpp")) << record.file;
    EXPECT_EQ(capture.records().size(), 3u);

    Ref<Locale> german = Locale::localeForWindowsLocaleCode(0x0407);
    EXPECT_EQ(german->localeIdentifier()->view(), std::u16string_view(u"de\0_DE\0", 7));
    EXPECT_EQ(german->windowsLocaleCode(), 0x0407u);
}

TEST(LocaleCodeTable, MappingTestComparesIdentitiesSoEveryCodeAnswersYes)
{
    AutoreleasePool pool;
    EXPECT_NE(Locale::englishLocale().get(), Locale::englishLocale().get());
    EXPECT_TRUE(Locale::windowsLocaleCodeMappingExists(1033));
    EXPECT_TRUE(Locale::windowsLocaleCodeMappingExists(0x0407));
    EXPECT_TRUE(Locale::windowsLocaleCodeMappingExists(0x9999));
}

// ICU's own LCID functions, as a peer: they agree with the table on 124 rows and on 12 more but
// for a script or a keyword; on 92 rows the table names only the language where ICU adds a
// country. The rows below are every other disagreement, so an edited row shows up here.
TEST(LocaleCodeTable, ICUAgreesExceptOnTheKnownRows)
{
    AutoreleasePool pool;
    const std::map<uint32_t, std::string> scriptOrKeyword = {{0x141a, "bs_Latn_BA"}, {0x0004, "zh_Hans"},
        {0x1004, "zh_Hans_SG"}, {0x0404, "zh_Hant_TW"}, {0x0c04, "zh_Hant_HK"}, {0x1404, "zh_Hant_MO"},
        {0x0860, "ks_Deva_IN"}, {0x0850, "mn_Mong_CN"}, {0x0846, "pa_Arab_PK"}, {0x0459, "sd_Deva_IN"},
        {0x0859, "sd_Arab_PK"}, {0x040a, "es_ES@collation=traditional"}};
    const std::map<uint32_t, std::string> different = {
        {0x0e09, ""}, {0x0464, "fil_PH"}, {0x083c, "ga_IE"}, {0x0414, "nb_NO"}, {0x0814, "nn_NO"}};
    const std::map<uint32_t, std::string> withoutIdentifier = {{0x045c, "chr_Cher_US"}, {0x0466, "bin_NG"},
        {0x0475, "haw_US"}, {0x0469, "ibb_NG"}, {0x0457, "kok_IN"}, {0x0458, "mni_IN"}, {0x0479, "pap_029"},
        {0x046c, "nso_ZA"}, {0x042e, "hsb_DE"}, {0x082e, "dsb_DE"}, {0x0430, "st_ZA"}, {0x045a, "syr_SY"},
        {0x045f, "tzm_Arab_MA"}, {0x085f, "tzm_Latn_DZ"}};

    int identical = 0, languageOnly = 0;
    for (const auto& [code, identifier] : Locale::windowsLocaleCodeTable()) {
        if (code == 0)
            continue;
        char icu[ULOC_FULLNAME_CAPACITY] = "";
        UErrorCode status = U_ZERO_ERROR;
        uloc_getLocaleForLCID(code, icu, sizeof icu, &status);
        std::string ours;
        if (identifier)
            for (char16_t unit : identifier->view())
                if (unit != u'\0')
                    ours += char(unit);
        SCOPED_TRACE(testing::Message() << std::hex << code << ' ' << ours << " / ICU " << icu);
        for (const auto* known : {&scriptOrKeyword, &different, &withoutIdentifier})
            if (auto found = known->find(code); found != known->end())
                EXPECT_EQ(found->second, icu);
        if (!identifier) {
            EXPECT_TRUE(withoutIdentifier.contains(code));
        } else if (ours == icu) {
            ++identical;
        } else if (!scriptOrKeyword.contains(code) && !different.contains(code)) {
            ++languageOnly;
            EXPECT_EQ(ours.find('_'), std::string::npos);
            EXPECT_TRUE(std::string_view(icu).starts_with(ours + "_"));
        }
    }
    EXPECT_EQ(identical, 124);
    EXPECT_EQ(languageOnly, 92);
}


class PreferredLocales : public testing::Test {
protected:
    void TearDown() override { Locale::setCurrentLocaleIdentifierForTesting(nullptr); }
};

TEST_F(PreferredLocales, FollowTheUsersLanguageAndEndWithEnglish)
{
    AutoreleasePool pool;
    Locale::setCurrentLocaleIdentifierForTesting(text("de_AT").get());
    Ref<Array> locales = Locale::preferredLocales();
    ASSERT_GE(locales->count(), 2u);
    std::vector<std::string> identifiers;
    for (const Object* locale : *locales)
        identifiers.push_back(shown(static_cast<const Locale*>(locale)->localeIdentifier()));
    EXPECT_EQ(identifiers.front(), "de\\0_AT\\0");
    EXPECT_EQ(identifiers.back(), "en");
    for (size_t index = 0; index + 1 < identifiers.size(); ++index)
        EXPECT_TRUE(identifiers[index].starts_with("de\\0")) << identifiers[index];

    // English already among the preferred ones is still followed by the English locale.
    Locale::setCurrentLocaleIdentifierForTesting(text("en_GB").get());
    Ref<Array> english = Locale::preferredLocales();
    EXPECT_EQ(shown(static_cast<Locale*>(english->objectAtIndex(0))->localeIdentifier()), "en\\0_GB\\0");
    EXPECT_EQ(shown(static_cast<Locale*>(english->lastObject())->localeIdentifier()), "en");
}

} // namespace
} // namespace zon
