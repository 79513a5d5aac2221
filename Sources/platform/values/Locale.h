#pragma once

#include "platform/runtime/Object.h"

#include <string>

namespace zon {

class Array;
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

private:
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

} // namespace zon
