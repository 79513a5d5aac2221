#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/String.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zon {

class Array;
class Date;
class Dictionary;
class String;

// The keys of componentsFromLocaleIdentifier: "kCFLocaleLanguageCodeKey", "kCFLocaleCountryCodeKey",
// "kCFLocaleScriptCodeKey" and "kCFLocaleVariantCodeKey".
ZON_EXPORT extern String* const NSLocaleLanguageCode;
ZON_EXPORT extern String* const NSLocaleCountryCode;
ZON_EXPORT extern String* const NSLocaleScriptCode;
ZON_EXPORT extern String* const NSLocaleVariantCode;

// A locale: an identifier and the components ICU reads from it. Immutable, safe to share between
// threads; run-time class NSLocale.
//
// The identifier is kept exactly as given, NUL characters included (the Windows locale code table
// forms its identifiers with them); ICU sees it with the NULs removed. Locales are never
// interned: every factory call makes a new object, and callers may compare identities.
//
// The current locale comes from the environment as the C library reads it for messages: LC_ALL,
// else LC_MESSAGES, else LANG, with the codeset and modifier dropped ("de_DE.UTF-8@euro" gives
// "de_DE"); unset, "C" and "POSIX" give "en_US_POSIX". The environment is read once and the answer
// kept; the test hook replaces it.
class ZON_EXPORT Locale final : public Object {
    ZON_OBJECT(Locale, Object)
public:
    // A new locale every call. Nil for a nil identifier.
    static Ref<Locale> localeWithLocaleIdentifier(const String* identifier);
    // The test hook's locale when one is set, else the environment's (see above). The same object
    // on every call until the hook changes it.
    static Ref<Locale> currentLocale();
    // The user's languages, most preferred first, in the "de-DE" form: the entries of LANGUAGE (a
    // colon list), then the current locale's language and country. With the test hook set, only
    // the hook's locale.
    static Ref<Array> preferredLanguages();
    // The components ICU reads from the identifier with its NULs removed, under the four keys
    // above (only those present). Empty for nil.
    static Ref<Dictionary> componentsFromLocaleIdentifier(const String* identifier);
    // Fixes what currentLocale and preferredLanguages answer; nil goes back to the environment.
    // Also makes every bundle choose its preferred localisations again.
    static void setCurrentLocaleIdentifierForTesting(const String* identifier);

    String* localeIdentifier() const { return identifier_.get(); }
    // Nil when the identifier has none.
    Ref<String> languageCode() const;
    Ref<String> countryCode() const;
    // The identifier in ICU's form with NULs removed ("en-US" gives "en_US"), for formatters.
    const std::string& icuLocaleName() const { return icuName_; }

    // "de_DE", the identifier as ICU reads it.
    Ref<String> description() const override;
    // Equal identifiers make equal locales (identity is another matter: see above).
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<Object> copy() const override;

    // ---- NSLocale(ZonExtensions) ----------------------------------------------------------------
    // A new locale for "en" on every call.
    static Ref<Locale> englishLocale();
    // A new locale for each of standardLocaleIdentifiers, in that order.
    static Ref<Array> standardLocales();
    // The standard identifiers in the order of the user's preferred localisations, each as a new
    // locale, then always englishLocale last (even when English is already listed).
    static Ref<Array> preferredLocales();

    // ---- NSLocale(ZonLocaleIdentifierExtensions) ------------------------------------------------
    // Windows locale codes (LCIDs) and the identifiers of the suite's table. Identifiers made from
    // the table carry NUL characters: "en\0" and "en\0_US\0", so they equal no identifier written
    // elsewhere; parsing ignores the NULs.
    //
    // Each identifier of the table once, in the order of its first row (224, the three-NUL
    // identifier of the code 0 included). One shared immutable array.
    static Ref<Array> standardLocaleIdentifiers();
    // The code of the table's first row whose language and country equal the identifier's; 0 for
    // none or a nil identifier. "en" answers 0x0009, "es" 0x000a, "no" 0x0414.
    static uint32_t windowsLocaleCodeFromLocaleIdentifier(const String* identifier);
    // The identifier of the code's row; nil for a code without one or not in the table.
    static Ref<String> localeIdentifierFromWindowsLocaleCode(uint32_t code);
    // 9 (English) and a warning for nil; 0 and a detail line when the identifier has no code.
    static uint32_t windowsLocaleCodeForLocale(const Locale* locale);
    // A new locale for the code's identifier; englishLocale and an error line when it has none.
    static Ref<Locale> localeForWindowsLocaleCode(uint32_t code);
    // Yes for 1033; otherwise whether localeForWindowsLocaleCode's locale is another object than a
    // new englishLocale, which, locales never being shared, is yes for every code.
    static bool windowsLocaleCodeMappingExists(uint32_t code);
    uint32_t windowsLocaleCode() const;
    // The table's rows in order: each code with its identifier (nil where the table has none).
    static std::vector<std::pair<uint32_t, Ref<String>>> windowsLocaleCodeTable();

    // ---- NSLocale(ZonLocaleDateExtensions) ------------------------------------------------------
    // The date (nil: now) with a long date and a short time, in the current locale or the receiver.
    static Ref<String> systemLocalizedTimeStampFromDate(const Date* date);
    Ref<String> localizedTimeStampFromDate(const Date* date) const;

private:
    friend struct CurrentLocaleState;
    Locale(Ref<String> identifier, std::string icuName, std::string language, std::string country)
        : identifier_(std::move(identifier)), icuName_(std::move(icuName)), language_(std::move(language)),
          country_(std::move(country))
    {
    }

    Ref<String> identifier_;
    std::string icuName_;
    std::string language_;
    std::string country_;
};

// The identifier the code table forms from four characters: nil when c1 is 0xFF; else c1, c2 and
// a NUL, then, when c3 is not 0, "_", c3, c4 and a NUL. "en\0_US\0" is seven characters long.
// Each part is decoded as ASCII: a byte above 0x7F makes that part nil, so the language alone
// answers nil and the joined form reads "(null)" in its place.
ZON_EXPORT Ref<String> FourCharToLocaleIdentifier(uint8_t c1, uint8_t c2, uint8_t c3, uint8_t c4);

} // namespace zon
