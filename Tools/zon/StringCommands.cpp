#include "Commands.h"

#include "CommandSupport.h"
#include "Files.h"

#include "extensions/NSStringChompFastEnumerator.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace zon::tool {
namespace {

void printInfo(const std::string& utf8)
{
    Ref<String> text = String::stringWithUTF8String(utf8);
    if (!text) {
        std::cout << "not valid UTF-8 (" << utf8.size() << " bytes)\n";
        return;
    }
    std::cout << "UTF-16 length:   " << text->length() << '\n';
    std::cout << "UTF-8 bytes:     " << utf8.size() << '\n';
    std::cout << "path components:";
    for (auto& component : text->pathComponents())
        std::cout << " \"" << component->UTF8String() << '"';
    std::cout << '\n';
    std::cout << "last component:  \"" << text->lastPathComponent()->UTF8String() << "\"\n";
    std::cout << "extension:       \"" << text->pathExtension()->UTF8String() << "\"\n";
}

// Each line-feed record of a UTF-8 file with its number, from 1.
void printRecords(const std::string& path)
{
    Ref<String> text = stringWithUTF8Data(readWholeFile(path).get());
    if (!text)
        fail(path + " is not valid UTF-8");
    Ref<NSStringChompFastEnumerator> records = text->chomp();
    size_t number = 0;
    while (Ref<Object> record = records->nextObject())
        std::cout << ++number << '\t' << printable(*static_cast<String*>(record.get())) << '\n';
}

} // namespace

void addStringCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("string", "String operations");
    group->require_subcommand(1);

    auto* info = group->add_subcommand("info", "UTF-16 length, UTF-8 size and path components of TEXT");
    auto text = std::make_shared<std::string>();
    info->add_option("TEXT", *text, "the text (UTF-8)")->required();
    info->callback([text] { printInfo(*text); });

    auto* chomp = group->add_subcommand("chomp", "the line-feed records of FILE, numbered");
    auto path = std::make_shared<std::string>();
    chomp->add_option("FILE", *path, "a UTF-8 text file")->required();
    chomp->callback([path] { printRecords(*path); });
}

} // namespace zon::tool
