#pragma once

// How bundles name localisations and match them against the user's languages.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zon {

// The language code an old long localisation name stands for ("English" gives "en"), and back;
// "" when there is none. Long names compare without regard to case.
std::string_view languageCodeOfLongName(std::u16string_view name);
std::u16string_view longNameOfLanguageCode(std::u16string_view code);

// A localisation name in the "de-DE" form: a long name's code, else ICU's reading of the name
// with NULs, codeset and modifier removed; "" when ICU finds no language.
std::string localizationTag(std::u16string_view localization);

// The indexes of the offered tags that match the preferred ones: for each preferred tag in order,
// the exact match, then offers of its language alone, then (for a preference naming the language
// alone) regional offers, then offers of the language in other regions; each offer once.
std::vector<size_t> matchLocalizations(const std::vector<std::string>& preferred, const std::vector<std::string>& offered);

} // namespace zon
