#include "CommandSupport.h"

#include <charconv>
#include <cmath>
#include <iostream>

namespace zon::tool {
namespace {

bool gPrintEverything = false;

std::string numberText(double value)
{
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }

// UTF-16 units of well-formed UTF-8: one per character, two for one past U+FFFF.
size_t utf16Length(std::string_view utf8)
{
    size_t units = 0;
    for (unsigned char byte : utf8) {
        if ((byte & 0xC0) != 0x80)
            units += byte >= 0xF0 ? 2 : 1;
    }
    return units;
}

} // namespace

void fail(const std::string& message, int exitCode)
{
    std::cerr << "zon: " << message << '\n';
    throw CLI::RuntimeError(exitCode);
}

CLI::Validator wholeNumberFrom(int64_t low, int64_t high)
{
    const std::string range = "a whole number from " + std::to_string(low) + " to " + std::to_string(high);
    return CLI::Validator(
        [low, high, range](std::string& text) -> std::string {
            int64_t value = 0;
            auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            if (error != std::errc() || end != text.data() + text.size() || value < low || value > high)
                return "must be " + range + ", not '" + text + "'";
            return {};
        },
        range);
}

CLI::Validator numberFrom(double low, double high)
{
    const std::string range = "a number from " + numberText(low) + " to " + numberText(high);
    return CLI::Validator(
        [low, high, range](std::string& text) -> std::string {
            double value = NAN;
            auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            // NaN fails both comparisons, so it is refused with the rest.
            if (error != std::errc() || end != text.data() + text.size() || !(value >= low && value <= high))
                return "must be " + range + ", not '" + text + "'";
            return {};
        },
        range);
}

CLI::Validator validUTF8()
{
    return CLI::Validator(
        [](std::string& text) -> std::string {
            return String::stringWithUTF8String(text) ? std::string() : "the text is not valid UTF-8";
        },
        "UTF-8");
}

void addFullOutputFlag(CLI::App& app)
{
    app.add_flag("--full", gPrintEverything,
        "print long values whole (they are cut after " + std::to_string(kPrintLimit >> 20) + " MiB otherwise)");
    // Subcommands hand options they do not know back to the application, so --full may follow them.
    app.fallthrough();
}

namespace {

// Cuts utf8 after kPrintLimit bytes, at the start of a character.
void cutAtLimit(std::string& utf8)
{
    if (utf8.size() <= kPrintLimit)
        return;
    size_t cut = kPrintLimit;
    while (cut > 0 && (static_cast<unsigned char>(utf8[cut]) & 0xC0) == 0x80)
        --cut;
    utf8.resize(cut);
}

std::string withOmissionNote(std::string shown, size_t leftOut)
{
    if (leftOut == 0)
        return shown;
    return shown + "\n[zon: " + std::to_string(leftOut) + " more characters left out; --full prints everything]";
}

} // namespace

std::string printable(const String& text)
{
    const size_t length = text.length();
    if (gPrintEverything || length <= kPrintLimit / 3) // no unit takes more than 3 UTF-8 bytes
        return text.UTF8String();
    size_t kept = std::min(length, kPrintLimit);
    if (kept < length && isHighSurrogate(text.characterAtIndex(kept - 1)))
        --kept; // a pair stays whole
    std::string shown = text.substringToIndex(kept)->UTF8String();
    if (shown.size() > kPrintLimit) {
        cutAtLimit(shown);
        kept = utf16Length(shown);
    }
    return withOmissionNote(std::move(shown), length - kept);
}

std::string printable(std::string utf8)
{
    if (gPrintEverything || utf8.size() <= kPrintLimit)
        return utf8;
    const size_t length = utf16Length(utf8);
    cutAtLimit(utf8);
    const size_t kept = utf16Length(utf8);
    return withOmissionNote(std::move(utf8), length - kept);
}

std::string printableDescription(const Object* object)
{
    return object ? printable(*object->description()) : "(nil)";
}

CLI::App* fileSystemCommandGroup(CLI::App& app)
{
    for (CLI::App* command : app.get_subcommands({}))
        if (command->get_name() == "fs")
            return command;
    return app.add_subcommand("fs", "files: Finder information, resource forks")->require_subcommand(1);
}

} // namespace zon::tool
