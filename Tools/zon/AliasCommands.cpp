#include "CommandSupport.h"
#include "Commands.h"
#include "Files.h"

#include "extensions/fileSystem/ZonAlias.h"
#include "platform/io/AliasLocatorInternal.h"
#include "platform/io/FinderMetadataStore.h"
#include "platform/io/ResourceFile.h"
#include "platform/io/VolumesInternal.h"
#include "platform/values/Data.h"
#include "platform/values/URL.h"

#include <CLI/CLI.hpp>

#include <iomanip>
#include <iostream>

namespace zon::tool {
namespace {

Ref<String> utf8Text(const std::string& utf8) { return String::stringWithUTF8String(utf8); }

std::string fourCharacterCode(uint32_t code)
{
    if (code == 0)
        return "0";
    std::string text = "'";
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = char(code >> shift);
        text += c >= 0x20 && c < 0x7F ? c : '?';
    }
    return text + "'";
}

// The record an alias file keeps as its 'alis' resource 0; nullopt when it has none.
std::optional<std::vector<uint8_t>> aliasRecordBytesOfFile(const std::string& path)
{
    constexpr uint32_t aliasResourceType = 0x616C6973; // 'alis'
    const auto resources = decodeResourceFile(readResourceFork(path));
    if (!resources)
        return std::nullopt;
    for (const Resource& resource : *resources) {
        if (resource.type == aliasResourceType && resource.id == aliasRecordID)
            return resource.data;
    }
    return std::nullopt;
}

void writeAlias(const std::string& target, const std::string& alias, const std::string& relativeTo, const std::string& iconPath)
{
    Ref<ZonAlias> record = ZonAlias::initWithPath_fromPath(utf8Text(target), relativeTo.empty() ? nullptr : utf8Text(relativeTo).get());
    if (record->aliasData()->length() == 0)
        fail("no alias record can be made for " + target + (relativeTo.empty() ? "" : " relative to " + relativeTo));
    Ref<Data> icon = iconPath.empty() ? nullptr : readWholeFile(iconPath);
    const bool written = record->writeAliasToPath_iconData_error(utf8Text(alias), icon, nullptr);
    std::cout << (written ? "YES" : "NO") << '\n';
    uint16_t flags = 0;
    uint32_t type = 0;
    uint32_t creator = 0;
    if (URL::fileURLWithPath(utf8Text(alias))->getFinderInfoFlags_type_creator(&flags, &type, &creator)) {
        std::cout << "flags: 0x" << std::hex << std::setw(4) << std::setfill('0') << flags << std::dec
                  << "  type: " << fourCharacterCode(type) << "  creator: " << fourCharacterCode(creator) << '\n';
    }
}

void resolveAlias(const std::string& aliasPath, const std::string& relativeTo)
{
    const auto bytes = aliasRecordBytesOfFile(aliasPath);
    if (!bytes)
        fail(aliasPath + " holds no alias record ('alis' resource 0)", kExitFileError);
    const auto record = decodeAliasRecord(*bytes);
    if (!record)
        fail(aliasPath + ": the alias record cannot be read");
    const std::string from = relativeTo.empty() ? aliasPath : relativeTo;
    const auto resolved = resolveAliasRecord(*record, &from);
    if (!resolved)
        fail("the target of " + aliasPath + " was not found");
    std::cout << *resolved << '\n';
}

void describeVolume(const std::string& path)
{
    Ref<String> text = utf8Text(path);
    const int16_t number = text->volumeRefNum();
    if (number == 0)
        fail(path + ": no such item", kExitFileError);
    Ref<String> root = String::stringPathForVolumeRefNum(number);
    std::cout << "volumeRefNum: " << number << '\n';
    std::cout << "root: " << (root ? root->UTF8String() : "(nil)") << '\n';
    if (root) {
        std::cout << "name: " << volumeNameOfMountPoint(root->UTF8String()) << '\n';
        if (const auto mount = mountContaining(currentMounts(), root->UTF8String()))
            std::cout << "type: " << mount->fileSystemType << "  source: " << mount->source << '\n';
    }
    std::cout << "aliasType: " << fourCharacterCode(text->aliasType()) << '\n';
}

} // namespace

void addAliasCommands(CLI::App& app)
{
    CLI::App& fileSystem = *fileSystemGroup(app);

    auto* alias = fileSystem.add_subcommand("alias", "alias files");
    alias->require_subcommand(1);
    auto* write = alias->add_subcommand("write", "write an alias file at ALIAS that stands for TARGET");
    auto target = std::make_shared<std::string>();
    auto aliasPath = std::make_shared<std::string>();
    auto relativeTo = std::make_shared<std::string>();
    auto icon = std::make_shared<std::string>();
    write->add_option("TARGET", *target, "the item the alias stands for")->required()->check(validUTF8());
    write->add_option("ALIAS", *aliasPath, "the alias file to write")->required()->check(validUTF8());
    write->add_option("--relative-to", *relativeTo, "make the record relative to this item too")->check(validUTF8());
    write->add_option("--icon", *icon, "an icon family (.icns) to give the alias file");
    write->callback([=] { writeAlias(*target, *aliasPath, *relativeTo, *icon); });

    auto* resolve = alias->add_subcommand("resolve", "print the path of the item an alias file stands for");
    auto resolvePath = std::make_shared<std::string>();
    auto resolveFrom = std::make_shared<std::string>();
    resolve->add_option("ALIAS", *resolvePath, "the alias file")->required()->check(validUTF8());
    resolve->add_option("--relative-to", *resolveFrom, "the item a relative record is taken from (default: ALIAS)")->check(validUTF8());
    resolve->callback([=] { resolveAlias(*resolvePath, *resolveFrom); });

    auto* volume = fileSystem.add_subcommand("volume", "the volume of PATH: its number, root, name and type");
    auto volumePath = std::make_shared<std::string>();
    volume->add_option("PATH", *volumePath, "an item on the volume")->required()->check(validUTF8());
    volume->callback([=] { describeVolume(*volumePath); });
}

} // namespace zon::tool
