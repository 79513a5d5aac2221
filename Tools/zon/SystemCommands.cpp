#include "CommandSupport.h"
#include "Commands.h"

#include "constants/TXZonConstants.h"
#include "platform/io/Bundle.h"
#include "platform/values/Number.h"
#include "systemManagement/TXZonSystemUtilities.h"
#include "versions/TXZonVersion.h"

#include <CLI/CLI.hpp>

#include <cinttypes>
#include <cstdio>

namespace zon::tool {
namespace {

std::string text(const Object* value) { return value ? printableDescription(value) : std::string("(nil)"); }

void printMachineFacts(std::optional<int> prefix)
{
    TXZonSystemUtilities* system = TXZonSystemUtilities::sharedSystem();
    std::printf("unique ID:           %s\n", text(system->uniqueID().get()).c_str());
    if (prefix) {
        Ref<Number> identifier = system->uniqueIDWithPrefix(static_cast<uint8_t>(*prefix));
        std::printf("unique ID, prefix %d: %s (0x%016" PRIx64 ")\n", *prefix, text(identifier.get()).c_str(),
            static_cast<uint64_t>(identifier->unsignedLongLongValue()));
    }
    std::printf("MAC address:         %s\n", text(system->primaryMacAddress().get()).c_str());
    std::printf("MAC as a number:     %s\n", text(system->primaryMacAddressNumber().get()).c_str());
    std::printf("cores:               %s\n", text(system->numberOfCores().get()).c_str());
    const int power = system->powerStatus();
    std::printf("power:               %d (%s)\n", power, power == 1 ? "mains" : "battery");
    std::printf("uid, euid:           %s, %s\n", text(system->currentUserUID().get()).c_str(),
        text(system->currentUserEUID().get()).c_str());
    std::printf("case-sensitive:      %s\n", system->isFileSystemCaseSensitive()->boolValue() ? "yes" : "no");
    std::printf("resident memory:     %" PRIu64 " bytes, %s MiB\n", ZonResidentMemoryUsageBytes(),
        text(system->currentApplicationResidentMemoryUsage().get()).c_str());
}

void printPaths()
{
    std::printf("application support: %s\n", text(TXZonConstants::userApplicationSupportPath().get()).c_str());
    std::printf("preferences:         %s\n", text(TXZonConstants::userPreferencePath().get()).c_str());
    std::printf("launch agents:       %s\n", text(TXZonConstants::userLaunchAgentPath().get()).c_str());
    std::printf("suite folder:        %s\n", text(TXZonConstants::pallidorApplicationSupportPath().get()).c_str());
    std::printf("public key file:     %s\n", text(TXZonConstants::wmsPublicKeyFile().get()).c_str());
    std::printf("running application: %d %s\n", TXZonConstants::runningApplication(),
        text(TXZonConstants::runningApplicationDisplayName().get()).c_str());
    std::printf("running path:        %s\n", text(TXZonConstants::runningApplicationPath().get()).c_str());
}

void printBundleVersions(const std::string& path)
{
    Ref<Bundle> bundle = Bundle::bundleWithPath(String::stringWithUTF8String(path).get());
    if (!bundle)
        fail("not a folder: " + path);
    std::printf("version string:       %s\n", text(bundle->versionString().get()).c_str());
    std::printf("short version string: %s\n", text(bundle->shortVersionString().get()).c_str());
    std::printf("version:              %s\n", text(bundle->bundleVersion().get()).c_str());
    std::printf("short version:        %s\n", text(bundle->bundleShortVersion().get()).c_str());
}

} // namespace

void addSystemCommands(CLI::App& app)
{
    auto* system = app.add_subcommand("system", "the machine facts: unique ID, MAC address, cores, power, users, memory");
    auto prefix = std::make_shared<int>(-1);
    system->add_option("--prefix", *prefix, "also the unique ID with this prefix byte")->check(wholeNumberFrom(0, 255));
    system->callback([prefix] { printMachineFacts(*prefix >= 0 ? std::optional<int>(*prefix) : std::nullopt); });

    app.add_subcommand("paths", "the suite's folders and which of its programs is running")->callback(printPaths);

    auto* bundle = app.add_subcommand("bundle", "a bundle's version strings and versions");
    auto path = std::make_shared<std::string>();
    bundle->add_option("PATH", *path, "the bundle's folder")->required()->check(validUTF8());
    bundle->callback([path] { printBundleVersions(*path); });
}

} // namespace zon::tool
