#include "Commands.h"

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

} // namespace

void addStringCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("string", "String operations");
    group->require_subcommand(1);

    auto* info = group->add_subcommand("info", "UTF-16 length, UTF-8 size and path components of TEXT");
    auto text = std::make_shared<std::string>();
    info->add_option("TEXT", *text, "the text (UTF-8)")->required();
    info->callback([text] { printInfo(*text); });
}

} // namespace zon::tool
