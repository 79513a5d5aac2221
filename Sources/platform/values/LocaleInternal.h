#pragma once

// What the library's own units need of the current locale beyond the public interface.

#include <cstdint>
#include <string>
#include <string_view>

namespace zon {

// Changes whenever the test hook changes the current locale, so that caches built on the user's
// preferences (a bundle's chosen localisations) know to choose again.
uint64_t localePreferenceGeneration() noexcept;

// The language, script and country of an identifier in the "de-DE" form, read by ICU after NULs
// and a codeset or modifier are removed; "" when ICU finds no language.
std::string languageTagOfIdentifier(std::u16string_view identifier);

} // namespace zon
