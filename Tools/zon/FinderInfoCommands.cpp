#include "CommandSupport.h"
#include "Commands.h"

#include "platform/io/FinderMetadataStore.h"
#include "platform/io/ResourceFile.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

namespace zon::tool {
namespace {

struct FinderInfoOptions {
    std::string path;
    std::optional<std::string> flags, mask, type, creator;
};

// "TEXT" as its four bytes, or a number ("0x54455854", "0").
uint32_t parseCode(const std::string& text)
{
    if (text.size() == 4 && text.find_first_not_of("0123456789") != std::string::npos)
        return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 | uint8_t(text[3]);
    return static_cast<uint32_t>(std::stoul(text, nullptr, 0));
}

uint16_t parseFlags(const std::optional<std::string>& text) { return text ? static_cast<uint16_t>(std::stoul(*text, nullptr, 0)) : 0; }

void printFinderInfo(const String& path)
{
    uint16_t flags = 0;
    uint32_t type = 0, creator = 0;
    if (!path.getFinderInfoFlags_type_creator(&flags, &type, &creator)) {
        std::cout << "NO: the item cannot be read\n";
        return;
    }
    char hex[8];
    std::snprintf(hex, sizeof hex, "0x%04X", flags);
    std::cout << "flags " << hex << " type '" << fourCharCodeText(type) << "' creator '" << fourCharCodeText(creator)
              << "' custom-icon " << ((flags & 0x0400) ? "YES" : "NO") << '\n';
}

void runFinderInfo(const FinderInfoOptions& options)
{
    Ref<String> path = String::stringWithUTF8String(options.path);
    if (options.flags || options.mask || options.type || options.creator) {
        // Type and creator are always written: the ones not given stay as they are.
        uint32_t type = 0, creator = 0;
        (void)path->getFinderInfoFlags_type_creator(nullptr, &type, &creator);
        const bool done = path->setFinderInfoFlags_mask_type_creator(parseFlags(options.flags), parseFlags(options.mask),
            options.type ? parseCode(*options.type) : type, options.creator ? parseCode(*options.creator) : creator);
        std::cout << (done ? "YES" : "NO") << '\n';
    }
    printFinderInfo(*path);
}

void runResourceList(const std::string& path)
{
    const auto fork = readResourceFork(path);
    auto resources = decodeResourceFile(fork);
    if (!resources) {
        std::cout << "no resource fork\n";
        return;
    }
    for (const auto& resource : *resources) {
        std::cout << "'" << fourCharCodeText(resource.type) << "' " << resource.id << ' ';
        if (resource.name)
            std::cout << '"' << printable(std::string(*resource.name)) << '"';
        else
            std::cout << "(no name)";
        std::cout << ' ' << resource.data.size() << " bytes\n";
    }
    std::cout << resources->size() << " resources\n";
}

} // namespace

void addFinderInfoCommands(CLI::App& app)
{
    CLI::App* fs = fileSystemGroup(app);

    auto options = std::make_shared<FinderInfoOptions>();
    auto* info = fs->add_subcommand("finder-info", "the Finder flags, type and creator of PATH, set first when asked");
    info->add_option("PATH", options->path)->required();
    info->add_option("--flags", options->flags, "new Finder flags (under --mask)");
    info->add_option("--mask", options->mask, "which flags to change; 0 changes none (has-been-inited is always cleared)");
    info->add_option("--type", options->type, "a four-character type (TEXT) or a number");
    info->add_option("--creator", options->creator, "a four-character creator or a number");
    info->callback([options] { runFinderInfo(*options); });

    auto* rsrc = fs->add_subcommand("rsrc", "resource forks")->require_subcommand(1);
    auto rsrcPath = std::make_shared<std::string>();
    auto* list = rsrc->add_subcommand("list", "the resources of PATH's fork: type, ID, name, size");
    list->add_option("PATH", *rsrcPath)->required();
    list->callback([rsrcPath] { runResourceList(*rsrcPath); });
}

} // namespace zon::tool
