#include "platform/io/BundleLocalizationsInternal.h"

#include "platform/values/LocaleInternal.h"

#include <algorithm>
#include <array>

namespace zon {

namespace {

struct LongName {
    std::u16string_view name;
    std::string_view code;
};

// The names localisation folders had before language codes.
constexpr std::array<LongName, 15> kLongNames {{
    {u"English", "en"}, {u"German", "de"}, {u"French", "fr"}, {u"Japanese", "ja"}, {u"Spanish", "es"},
    {u"Italian", "it"}, {u"Dutch", "nl"}, {u"Swedish", "sv"}, {u"Danish", "da"}, {u"Norwegian", "no"},
    {u"Finnish", "fi"}, {u"Portuguese", "pt"}, {u"Korean", "ko"}, {u"Russian", "ru"}, {u"Polish", "pl"},
}};

char16_t asciiLower(char16_t unit) { return unit >= u'A' && unit <= u'Z' ? char16_t(unit + 32) : unit; }

bool equalIgnoringASCIICase(std::u16string_view a, std::u16string_view b)
{
    return std::ranges::equal(a, b, [](char16_t x, char16_t y) { return asciiLower(x) == asciiLower(y); });
}

std::string_view languageOf(std::string_view tag) { return tag.substr(0, tag.find('-')); }

// How well an offer serves a preference of the same language; lower is better.
int matchRank(std::string_view preferred, std::string_view offered)
{
    if (preferred == offered)
        return 0;
    const bool offerIsLanguageAlone = offered.find('-') == std::string_view::npos;
    const bool preferenceIsLanguageAlone = preferred.find('-') == std::string_view::npos;
    if (offerIsLanguageAlone)
        return 1;
    return preferenceIsLanguageAlone ? 2 : 3;
}

} // namespace

std::string_view languageCodeOfLongName(std::u16string_view name)
{
    for (const LongName& entry : kLongNames) {
        if (equalIgnoringASCIICase(entry.name, name))
            return entry.code;
    }
    return {};
}

std::u16string_view longNameOfLanguageCode(std::u16string_view code)
{
    for (const LongName& entry : kLongNames) {
        if (std::ranges::equal(entry.code, code, [](char a, char16_t b) { return char16_t(a) == asciiLower(b); }))
            return entry.name;
    }
    return {};
}

std::string localizationTag(std::u16string_view localization)
{
    const std::string_view code = languageCodeOfLongName(localization);
    return code.empty() ? languageTagOfIdentifier(localization) : std::string(code);
}

std::vector<size_t> matchLocalizations(const std::vector<std::string>& preferred, const std::vector<std::string>& offered)
{
    std::vector<size_t> chosen;
    for (const std::string& preference : preferred) {
        std::vector<std::pair<int, size_t>> matches;
        for (size_t index = 0; index < offered.size(); ++index) {
            if (!offered[index].empty() && languageOf(offered[index]) == languageOf(preference))
                matches.emplace_back(matchRank(preference, offered[index]), index);
        }
        std::ranges::stable_sort(matches, {}, &std::pair<int, size_t>::first);
        for (auto [rank, index] : matches) {
            if (std::ranges::find(chosen, index) == chosen.end())
                chosen.push_back(index);
        }
    }
    return chosen;
}

} // namespace zon
