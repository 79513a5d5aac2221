#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Locale.h"
#include "platform/values/String.h"
#include "support/ScratchFolder.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using namespace zon;
using namespace zon::test;
using testing::ElementsAre;

namespace {

// The identifiers of the Windows locale code table carry NULs: "en" NUL "_" "US" NUL.
Ref<String> tableIdentifier(std::u16string_view units) { return String::stringWithCharacters(units); }

std::vector<std::string> texts(const Array* array)
{
    std::vector<std::string> out;
    for (size_t index = 0; index < array->count(); ++index)
        out.push_back(utf8(dynamicCast<String>(array->objectAtIndex(index))));
    return out;
}

std::string component(const Dictionary* components, String* key)
{
    return utf8(dynamicCast<String>(components->objectForKey(key)));
}

// Each test sees the environment it sets and no test hook; both go back afterwards.
class CurrentLocale : public testing::Test {
protected:
    ~CurrentLocale() override { Locale::setCurrentLocaleIdentifierForTesting(nullptr); }

    void useEnvironment(std::optional<std::string> all, std::optional<std::string> messages,
        std::optional<std::string> lang, std::optional<std::string> language = std::nullopt)
    {
        env.set("LC_ALL", std::move(all));
        env.set("LC_MESSAGES", std::move(messages));
        env.set("LANG", std::move(lang));
        env.set("LANGUAGE", std::move(language));
        Locale::setCurrentLocaleIdentifierForTesting(nullptr); // read the environment again
    }

    ScopedEnvironment env;
};

} // namespace

TEST(Locale, KeepsTheIdentifierExactlyAndGivesICUItWithoutNULs)
{
    Ref<String> identifier = tableIdentifier(std::u16string_view(u"en\0_US\0", 7));
    Ref<Locale> locale = Locale::localeWithLocaleIdentifier(identifier.get());
    ASSERT_TRUE(locale);
    EXPECT_EQ(locale->localeIdentifier()->length(), 7u);
    EXPECT_TRUE(locale->localeIdentifier()->isEqualToString(identifier.get()));
    EXPECT_EQ(locale->icuLocaleName(), "en_US");
    EXPECT_EQ(utf8(locale->languageCode()), "en");
    EXPECT_EQ(utf8(locale->countryCode()), "US");

    Ref<Locale> threeNULs = Locale::localeWithLocaleIdentifier(tableIdentifier(std::u16string_view(u"\0\0\0", 3)));
    ASSERT_TRUE(threeNULs);
    EXPECT_EQ(threeNULs->localeIdentifier()->length(), 3u);
    EXPECT_FALSE(threeNULs->languageCode());
    EXPECT_FALSE(threeNULs->countryCode());

    EXPECT_EQ(Locale::localeWithLocaleIdentifier(str("de-DE"))->icuLocaleName(), "de_DE");
    EXPECT_FALSE(Locale::localeWithLocaleIdentifier(str("fr"))->countryCode());
    EXPECT_FALSE(Locale::localeWithLocaleIdentifier(nullptr));
}

TEST(Locale, EveryCallMakesANewObjectThatEqualsTheOthers)
{
    Ref<Locale> first = Locale::localeWithLocaleIdentifier(str("en"));
    Ref<Locale> second = Locale::localeWithLocaleIdentifier(str("en"));
    EXPECT_NE(first.get(), second.get());
    EXPECT_TRUE(first->isEqual(second.get()));
    EXPECT_EQ(first->hash(), second->hash());
    EXPECT_FALSE(first->isEqual(Locale::localeWithLocaleIdentifier(str("en_US")).get()));
    EXPECT_FALSE(first->isEqual(str("en").get()));
}

TEST(Locale, ComponentsNameOnlyWhatTheIdentifierHolds)
{
    Ref<Dictionary> full = Locale::componentsFromLocaleIdentifier(str("zh_Hant_TW_POSIX"));
    EXPECT_EQ(component(full.get(), NSLocaleLanguageCode), "zh");
    EXPECT_EQ(component(full.get(), NSLocaleScriptCode), "Hant");
    EXPECT_EQ(component(full.get(), NSLocaleCountryCode), "TW");
    EXPECT_EQ(component(full.get(), NSLocaleVariantCode), "POSIX");
    EXPECT_EQ(utf8(NSLocaleLanguageCode), "kCFLocaleLanguageCodeKey");
    EXPECT_EQ(utf8(NSLocaleCountryCode), "kCFLocaleCountryCodeKey");
    EXPECT_EQ(utf8(NSLocaleScriptCode), "kCFLocaleScriptCodeKey");
    EXPECT_EQ(utf8(NSLocaleVariantCode), "kCFLocaleVariantCodeKey");

    Ref<Dictionary> language = Locale::componentsFromLocaleIdentifier(tableIdentifier(std::u16string_view(u"de\0", 3)));
    EXPECT_EQ(language->count(), 1u);
    EXPECT_EQ(component(language.get(), NSLocaleLanguageCode), "de");

    Ref<Dictionary> regional = Locale::componentsFromLocaleIdentifier(tableIdentifier(std::u16string_view(u"fr\0_CA\0", 7)));
    EXPECT_EQ(regional->count(), 2u);
    EXPECT_EQ(component(regional.get(), NSLocaleCountryCode), "CA");

    EXPECT_EQ(Locale::componentsFromLocaleIdentifier(nullptr)->count(), 0u);
    EXPECT_EQ(Locale::componentsFromLocaleIdentifier(tableIdentifier(std::u16string_view(u"\0\0\0", 3)))->count(), 0u);
}

TEST(Locale, OddIdentifiersMakeLocalesWithoutFailing)
{
    std::mt19937 random(15);
    std::vector<Ref<String>> identifiers {str(std::string(5000, 'x')), str("de_DE.UTF-8@euro"), str("ü_Ö"), str("@@@"),
        str("_"), str("-"), tableIdentifier(std::u16string_view(u"\xd800_US", 4))};
    for (int round = 0; round < 200; ++round) {
        std::u16string units(random() % 40, u'\0');
        for (char16_t& unit : units)
            unit = char16_t(random() % 4 == 0 ? random() % 0x80 : random() % 0x10000);
        identifiers.push_back(String::stringWithCharacters(units));
    }
    for (const Ref<String>& identifier : identifiers) {
        Ref<Locale> locale = Locale::localeWithLocaleIdentifier(identifier.get());
        ASSERT_TRUE(locale);
        EXPECT_TRUE(locale->localeIdentifier()->isEqualToString(identifier.get()));
        EXPECT_TRUE(Locale::componentsFromLocaleIdentifier(identifier.get()));
    }
}

TEST_F(CurrentLocale, ComesFromTheMessagesSettingWithoutCodesetOrModifier)
{
    struct Case {
        std::optional<std::string> all, messages, lang;
        std::string identifier;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt, "de_DE.UTF-8@euro", "de_DE"},
        {std::nullopt, "fr_CA.UTF-8", "de_DE.UTF-8", "fr_CA"},
        {"ja_JP", "fr_CA", "de_DE", "ja_JP"},
        {"", "", "it_IT@euro", "it_IT"},
        {std::nullopt, std::nullopt, "C.UTF-8", "en_US_POSIX"},
        {"POSIX", std::nullopt, "de_DE", "en_US_POSIX"},
        {std::nullopt, std::nullopt, std::nullopt, "en_US_POSIX"},
    };
    for (const Case& c : cases) {
        useEnvironment(c.all, c.messages, c.lang);
        EXPECT_EQ(utf8(Locale::currentLocale()->localeIdentifier()), c.identifier)
            << c.all.value_or("-") << " " << c.messages.value_or("-") << " " << c.lang.value_or("-");
    }
}

TEST_F(CurrentLocale, IsKeptUntilTheTestHookChangesIt)
{
    useEnvironment(std::nullopt, std::nullopt, "de_DE.UTF-8");
    Ref<Locale> first = Locale::currentLocale();
    env.set("LANG", "fr_FR.UTF-8"); // read once: a later change is not seen
    EXPECT_EQ(Locale::currentLocale().get(), first.get());

    Locale::setCurrentLocaleIdentifierForTesting(str("ja_JP"));
    EXPECT_EQ(utf8(Locale::currentLocale()->localeIdentifier()), "ja_JP");
    EXPECT_EQ(texts(Locale::preferredLanguages().get()), std::vector<std::string> {"ja-JP"});

    Locale::setCurrentLocaleIdentifierForTesting(nullptr);
    EXPECT_EQ(utf8(Locale::currentLocale()->localeIdentifier()), "fr_FR");
}

TEST_F(CurrentLocale, PreferredLanguagesListLanguageThenTheCurrentLocale)
{
    useEnvironment(std::nullopt, std::nullopt, "de_DE.UTF-8", "fr_CA.UTF-8:de::C:pt_BR");
    EXPECT_THAT(texts(Locale::preferredLanguages().get()), ElementsAre("fr-CA", "de", "pt-BR", "de-DE"));

    useEnvironment(std::nullopt, std::nullopt, "de_DE.UTF-8", "de_DE");
    EXPECT_THAT(texts(Locale::preferredLanguages().get()), ElementsAre("de-DE"));

    useEnvironment(std::nullopt, std::nullopt, "zh_Hant_TW");
    EXPECT_THAT(texts(Locale::preferredLanguages().get()), ElementsAre("zh-Hant-TW"));

    useEnvironment(std::nullopt, std::nullopt, std::nullopt);
    EXPECT_THAT(texts(Locale::preferredLanguages().get()), ElementsAre("en-US"));
}
