#include "CommandSupport.h"
#include "Commands.h"

#include "platform/values/Array.h"
#include "platform/values/Locale.h"

#include <CLI/CLI.hpp>
#include <unicode/uloc.h>

#include <cinttypes>
#include <cstdio>
#include <iostream>

namespace zon::tool {
namespace {

// An identifier for the terminal: NUL characters written as \0.
std::string shown(const String* identifier)
{
    if (!identifier)
        return "(none)";
    std::string text;
    for (char c : std::string(identifier->UTF8String())) {
        if (c == '\0')
            text += "\\0";
        else
            text += c;
    }
    return text;
}

std::string withoutNULs(const String* identifier)
{
    std::string text = identifier->UTF8String();
    std::erase(text, '\0');
    return text;
}

std::string hexCode(uint32_t code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%04" PRIx32, code);
    return text;
}

void printIdentifierForCode(uint32_t code)
{
    Ref<String> identifier = Locale::localeIdentifierFromWindowsLocaleCode(code);
    if (!identifier)
        fail(hexCode(code) + " names no locale");
    std::cout << shown(identifier.get()) << '\n';
}

void printCodeForIdentifier(const std::string& identifier)
{
    uint32_t code = Locale::windowsLocaleCodeFromLocaleIdentifier(String::stringWithUTF8String(identifier).get());
    std::cout << hexCode(code) << '\n';
}

// How ICU's locale for a code compares with the table's identifier.
std::string icuAgreement(uint32_t code, const String* ours)
{
    if (!ours)
        return "no identifier";
    char icu[ULOC_FULLNAME_CAPACITY] = "";
    UErrorCode status = U_ZERO_ERROR;
    uloc_getLocaleForLCID(code, icu, sizeof icu, &status);
    if (U_FAILURE(status))
        icu[0] = '\0';
    std::string plain = withoutNULs(ours);
    std::string result = std::string("ICU ") + (icu[0] ? icu : "(none)") + ": ";
    if (plain == icu)
        return result + "identical";
    char language[ULOC_LANG_CAPACITY] = "", country[ULOC_COUNTRY_CAPACITY] = "";
    status = U_ZERO_ERROR;
    uloc_getLanguage(icu, language, sizeof language, &status);
    uloc_getCountry(icu, country, sizeof country, &status);
    size_t separator = plain.find('_');
    std::string ourLanguage = plain.substr(0, separator);
    std::string ourCountry = separator == std::string::npos ? "" : plain.substr(separator + 1);
    if (ourLanguage == language && ourCountry == country)
        return result + "same but for script or keyword";
    if (ourCountry.empty() && ourLanguage == language)
        return result + "ours names only the language";
    return result + "differs";
}

void printTable(bool withICU)
{
    for (const auto& [code, identifier] : Locale::windowsLocaleCodeTable()) {
        std::cout << hexCode(code) << ' ' << shown(identifier.get());
        if (withICU && code != 0)
            std::cout << "  (" << icuAgreement(code, identifier.get()) << ')';
        std::cout << '\n';
    }
}

void printPreferred()
{
    Ref<Array> locales = Locale::preferredLocales();
    for (const Object* locale : *locales)
        std::cout << shown(static_cast<const Locale*>(locale)->localeIdentifier()) << '\n';
}

} // namespace

void addLocaleCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("locale", "Windows locale codes and the suite's standard locales");
    group->require_subcommand(1);

    auto* code = group->add_subcommand("code", "the locale identifier of a Windows locale code (\\0 marks NULs)");
    auto codeText = std::make_shared<std::string>();
    code->add_option("CODE", *codeText, "the code, in hexadecimal (0x0409 or 409)")->required();
    code->callback([codeText] {
        char* end = nullptr;
        errno = 0;
        unsigned long value = std::strtoul(codeText->c_str(), &end, 16);
        if (codeText->empty() || *end || errno || value > UINT32_MAX)
            fail("not a hexadecimal 32-bit code: " + *codeText);
        printIdentifierForCode(uint32_t(value));
    });

    auto* id = group->add_subcommand("id", "the Windows locale code of a locale identifier (0x0000: none)");
    auto identifier = std::make_shared<std::string>();
    id->add_option("IDENTIFIER", *identifier, "the identifier, such as en_US")->required()->check(validUTF8());
    id->callback([identifier] { printCodeForIdentifier(*identifier); });

    auto* table = group->add_subcommand("table", "every row of the code table, in order");
    auto withICU = std::make_shared<bool>(false);
    table->add_flag("--icu", *withICU, "show ICU's locale for each code beside ours");
    table->callback([withICU] { printTable(*withICU); });

    auto* preferred = group->add_subcommand("preferred", "the standard locales in the user's order, English last");
    preferred->callback(printPreferred);
}

} // namespace zon::tool
