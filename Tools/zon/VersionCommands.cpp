#include "CommandSupport.h"
#include "Commands.h"

#include "platform/values/Array.h"
#include "versions/TXZonVersion.h"
#include "versions/TXZonVersionRange.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>

namespace zon::tool {
namespace {

// Arguments were checked to be UTF-8 when they were parsed.
Ref<TXZonVersion> versionOf(const std::string& text)
{
    return TXZonVersion::versionWithString(String::stringWithUTF8String(text).get());
}

std::string utf8(const String* text) { return text ? text->UTF8String() : "(null)"; }

void parse(const std::string& text)
{
    Ref<TXZonVersion> version = versionOf(text);
    std::cout << "parts: " << utf8(version->majorValue()) << " | " << utf8(version->minorValue()) << " | "
              << utf8(version->bugfixValue()) << " | " << utf8(version->buildValue()) << '\n'
              << "numeric: " << version->numericMajorVersion() << ' ' << version->numericMinorVersion() << ' '
              << version->numericBugFixVersion() << ' ' << version->numericBuild() << '\n';
    for (const char* form : {"versionAndBuildDescription", "versionDescription", "trimmedVersionDescription",
             "zeroPaddedVersionAndBuildDescription", "zonVersionAndBuildDescription", "userDescription",
             "localizedSoftwareDescription"}) {
        Ref<Object> value = version->valueForKey(String::stringWithUTF8String(form).get());
        std::cout << form << ": " << printableDescription(value.get()) << '\n';
    }
}

void compare(const std::string& left, const std::string& right)
{
    const ComparisonResult result = versionOf(left)->compare(versionOf(right).get());
    const char* relation = result == NSOrderedAscending ? "<" : result == NSOrderedSame ? "=" : ">";
    std::cout << left << ' ' << relation << ' ' << right << " (compare: " << long(result) << ")\n";
}

void host()
{
    Ref<TXZonVersion> version = TXZonVersion::versionOnMacOSX();
    std::cout << utf8(version->userDescription().get()) << '\n';
}

struct RangeOptions {
    std::string minimum;
    std::string maximum;
    std::vector<std::string> included;
    std::vector<std::string> excluded;
    std::string version;
};

Ref<Array> versionList(const std::vector<std::string>& texts)
{
    Ref<MutableArray> versions = MutableArray::array();
    for (const std::string& text : texts)
        versions->addObject(versionOf(text).get());
    return versions;
}

void range(const CLI::App& command, const RangeOptions& options)
{
    // A bound left out stays nil: no minimum is no lower bound, no maximum admits only zeros.
    Ref<TXZonVersion> minimum = command.count("--min") ? versionOf(options.minimum) : nullptr;
    Ref<TXZonVersion> maximum = command.count("--max") ? versionOf(options.maximum) : nullptr;
    Ref<TXZonVersionRange> range = TXZonVersionRange::versionRangeWithMinVersion_maxVersion_includeVersions_excludeVersions(
        minimum.get(), maximum.get(), versionList(options.included).get(), versionList(options.excluded).get());
    const bool inRange = range->isVersionInRange(versionOf(options.version).get());
    std::cout << utf8(range->description().get()) << '\n'
              << options.version << (inRange ? " is in range" : " is not in range") << '\n';
}

} // namespace

void addVersionCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("version", "four-part versions and version ranges");
    group->require_subcommand(1);

    auto* parseCommand = group->add_subcommand("parse", "TEXT parsed: its parts, numbers and description forms");
    auto text = std::make_shared<std::string>();
    parseCommand->add_option("TEXT", *text, "a version text such as 5.0.1.123 or 4.6")->required()->check(validUTF8());
    parseCommand->callback([text] { parse(*text); });

    auto* compareCommand = group->add_subcommand("compare", "how version A orders against version B");
    auto left = std::make_shared<std::string>();
    auto right = std::make_shared<std::string>();
    compareCommand->add_option("A", *left, "a version text")->required()->check(validUTF8());
    compareCommand->add_option("B", *right, "a version text")->required()->check(validUTF8());
    compareCommand->callback([left, right] { compare(*left, *right); });

    auto* hostCommand = group->add_subcommand("host", "the host system's version (major.minor.bug-fix.build)");
    hostCommand->callback([] { host(); });

    auto* rangeCommand = group->add_subcommand("range", "whether VERSION lies in a version range");
    auto options = std::make_shared<RangeOptions>();
    rangeCommand->add_option("--min", options->minimum, "the lowest version (inclusive); none: no lower bound")
        ->check(validUTF8());
    rangeCommand->add_option("--max", options->maximum, "the highest version (inclusive); none admits only 0.0.0.0")
        ->check(validUTF8());
    rangeCommand->add_option("--include", options->included, "versions accepted outside the bounds, comma-separated")
        ->delimiter(',')
        ->check(validUTF8());
    rangeCommand->add_option("--exclude", options->excluded, "versions never accepted, comma-separated")
        ->delimiter(',')
        ->check(validUTF8());
    rangeCommand->add_option("VERSION", options->version, "the version to test")->required()->check(validUTF8());
    rangeCommand->callback([rangeCommand, options] { range(*rangeCommand, *options); });
}

} // namespace zon::tool
