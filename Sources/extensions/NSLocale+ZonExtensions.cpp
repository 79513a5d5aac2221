// NSLocale(ZonExtensions) and NSLocale(ZonLocaleIdentifierExtensions): the suite's standard
// locales and the mapping between locale identifiers and Windows locale codes.

#include "extensions/WindowsLocaleCodeTableInternal.h"

#include "logger/ZonLog.h"
#include "platform/io/Bundle.h"
#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Locale.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"


namespace zon {

namespace {

// The identifier strings of the table's rows, made once: they are immutable and the look-up by
// code answers them for every call.
const std::array<Ref<String>, localecodes::kRowCount>& rowIdentifiers()
{
    static const auto identifiers = [] {
        std::array<Ref<String>, localecodes::kRowCount> made;
        for (size_t row = 0; row < localecodes::kRowCount; ++row) {
            auto [c1, c2, c3, c4] = localecodes::keyCharacters(localecodes::rows()[row].key);
            made[row] = FourCharToLocaleIdentifier(c1, c2, c3, c4);
        }
        return made;
    }();
    return identifiers;
}

Ref<String> asciiString(std::initializer_list<uint8_t> bytes)
{
    std::array<uint8_t, 3> buffer {};
    std::copy(bytes.begin(), bytes.end(), buffer.begin());
    return String::initWithBytes_length_encoding(buffer.data(), buffer.size(), NSASCIIStringEncoding);
}

} // namespace

Ref<String> FourCharToLocaleIdentifier(uint8_t c1, uint8_t c2, uint8_t c3, uint8_t c4)
{
    if (c1 == 0xFF)
        return nullptr;
    // The zero byte belongs to the string: "en" from the table is three characters, the last a NUL.
    Ref<String> language = asciiString({c1, c2, 0});
    if (c3 == 0)
        return language;
    Ref<String> country = asciiString({c3, c4, 0});
    return String::stringWithFormat("%@_%@", language.get(), country.get());
}

namespace localecodes {

uint32_t keyForIdentifierThroughParser(const String* identifier)
{
    Ref<Dictionary> components = Locale::componentsFromLocaleIdentifier(identifier);
    auto code = [&](const String* key) -> std::optional<std::string> {
        const String* value = components ? dynamicCast<String>(components->objectForKey(key)) : nullptr;
        if (!value)
            return std::nullopt;
        // The code's C string: ASCII, ending at its first NUL.
        std::string ascii = value->bytesUsingEncoding(NSASCIIStringEncoding, true).value_or("");
        return ascii.substr(0, ascii.find('\0'));
    };
    std::optional<std::string> language = code(NSLocaleLanguageCode);
    if (!language)
        return 0;
    return keyForCodes(*language, code(NSLocaleCountryCode));
}

uint32_t keyForIdentifier(const String* identifier)
{
    // Most identifiers are a lower-case language and an upper-case country ("en_US", or the
    // table's own "en\0_US\0"): the parser answers those letters unchanged, so they are read
    // directly and only anything else is parsed.
    char letters[4];
    size_t count = 0;
    bool separated = false;
    for (char16_t unit : identifier->view()) {
        if (unit == u'\0')
            continue;
        bool lower = unit >= u'a' && unit <= u'z';
        bool upper = unit >= u'A' && unit <= u'Z';
        if (count == 2 && !separated && unit == u'_') {
            separated = true;
            continue;
        }
        if (count == 4 || (count < 2 ? !lower : !(upper && separated)))
            return keyForIdentifierThroughParser(identifier);
        letters[count++] = char(unit);
    }
    if (count == 2 && !separated)
        return keyForCodes({letters, 2}, std::nullopt);
    if (count == 4)
        return keyForCodes({letters, 2}, std::string_view(letters + 2, 2));
    return keyForIdentifierThroughParser(identifier);
}

} // namespace localecodes

// ---- NSLocale(ZonExtensions) --------------------------------------------------------------------

Ref<Locale> Locale::englishLocale()
{
    return localeWithLocaleIdentifier(String::stringWithUTF8String("en"));
}

Ref<Array> Locale::standardLocales()
{
    Ref<Array> identifiers = standardLocaleIdentifiers();
    std::vector<Ref<Object>> locales;
    locales.reserve(identifiers->count());
    for (const Object* identifier : *identifiers)
        if (Ref<Locale> locale = localeWithLocaleIdentifier(static_cast<const String*>(identifier)))
            locales.push_back(std::move(locale));
    return Array::arrayWithVector(locales);
}

Ref<Array> Locale::preferredLocales()
{
    Ref<Array> preferred = Bundle::preferredLocalizationsFromArray(standardLocaleIdentifiers().get());
    std::vector<Ref<Object>> locales;
    if (preferred)
        for (const Object* identifier : *preferred)
            if (Ref<Locale> locale = localeWithLocaleIdentifier(dynamicCast<String>(identifier)))
                locales.push_back(std::move(locale));
    locales.push_back(englishLocale());
    return Array::arrayWithVector(locales);
}

// ---- NSLocale(ZonLocaleIdentifierExtensions) ----------------------------------------------------

Ref<Array> Locale::standardLocaleIdentifiers()
{
    // Each identifier once, in the order of its first row.
    static const Ref<Array> identifiers = [] {
        std::vector<Ref<Object>> unique;
        for (const Ref<String>& identifier : rowIdentifiers()) {
            if (!identifier)
                continue;
            bool seen = std::any_of(unique.begin(), unique.end(),
                [&](const Ref<Object>& earlier) { return earlier->isEqual(identifier.get()); });
            if (!seen)
                unique.push_back(identifier);
        }
        return Array::arrayWithVector(unique);
    }();
    return identifiers;
}

std::vector<std::pair<uint32_t, Ref<String>>> Locale::windowsLocaleCodeTable()
{
    std::vector<std::pair<uint32_t, Ref<String>>> table;
    table.reserve(localecodes::kRowCount);
    for (size_t row = 0; row < localecodes::kRowCount; ++row)
        table.emplace_back(localecodes::rows()[row].code, rowIdentifiers()[row]);
    return table;
}

uint32_t Locale::windowsLocaleCodeFromLocaleIdentifier(const String* identifier)
{
    if (!identifier)
        return 0;
    std::optional<size_t> row = localecodes::firstRowWithKey(localecodes::keyForIdentifier(identifier));
    return row ? localecodes::rows()[*row].code : 0;
}

Ref<String> Locale::localeIdentifierFromWindowsLocaleCode(uint32_t code)
{
    std::optional<size_t> row = localecodes::rowWithCode(code);
    return row ? rowIdentifiers()[*row] : nullptr;
}

uint32_t Locale::windowsLocaleCodeForLocale(const Locale* locale)
{
    if (!locale) {
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelWarning, kDefaultLogIdentifier,
            "Trying to get locale code for 'nil' locale");
        return 9;
    }
    uint32_t code = windowsLocaleCodeFromLocaleIdentifier(locale->localeIdentifier());
    if (code == 0)
        zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelDetail, kDefaultLogIdentifier,
            "Couldn't find language code for '%@'", locale->localeIdentifier());
    return code;
}

Ref<Locale> Locale::localeForWindowsLocaleCode(uint32_t code)
{
    if (Ref<String> identifier = localeIdentifierFromWindowsLocaleCode(code))
        return localeWithLocaleIdentifier(identifier.get());
    zon_log_obj(__FILE__, __LINE__, nullptr, logger::kLevelError, kDefaultLogIdentifier,
        "Couldn't find locale for code '%u'", code);
    return englishLocale();
}

bool Locale::windowsLocaleCodeMappingExists(uint32_t code)
{
    if (code == 1033)
        return true;
    // Identity, not equality: locales are never shared, so an unmapped code answers yes too.
    return localeForWindowsLocaleCode(code).get() != englishLocale().get();
}

uint32_t Locale::windowsLocaleCode() const
{
    return windowsLocaleCodeForLocale(this);
}

} // namespace zon
