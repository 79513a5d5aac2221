#include "CommandSupport.h"
#include "Commands.h"

#include "formatters/TXZonByteSizeFormatter.h"
#include "platform/values/Locale.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <iostream>
#include <memory>

namespace zon::tool {
namespace {

struct SizeOptions {
    long long bytes = 0;
    bool whole = false;
    std::string locale; // empty: the current locale
};

Ref<String> sizeText(const SizeOptions& options)
{
    if (options.whole)
        return TXZonByteSizeDecimalString(options.bytes);
    if (options.locale.empty())
        return TXZonByteSizeString(options.bytes);
    auto formatter = TXZonByteSizeFormatter::init();
    formatter->setLocale(Locale::localeWithLocaleIdentifier(String::stringWithUTF8String(options.locale)));
    return formatter->stringForObjectValue(Number::numberWithLongLong(options.bytes));
}

} // namespace

void addSizeCommands(CLI::App& app)
{
    auto options = std::make_shared<SizeOptions>();
    auto* size = app.add_subcommand("size", "BYTES as a size in the suite's units (1.5 KB, base 1024)");
    size->add_option("BYTES", options->bytes, "a signed 64-bit byte count")
        ->required()
        ->check(wholeNumberFrom(INT64_MIN, INT64_MAX));
    size->add_flag("--whole", options->whole, "the whole-number form: truncated, no grouping, no locale");
    size->add_option("--locale", options->locale, "format in this locale (de_DE) instead of the current one");
    size->callback([options] { std::cout << sizeText(*options)->UTF8String() << '\n'; });
}

} // namespace zon::tool
