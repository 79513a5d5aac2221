#include "CommandSupport.h"
#include "Commands.h"

#include "platform/values/Array.h"
#include "platform/values/Dictionary.h"
#include "systemManagement/processManagement/TXZonInstalledAppsManager.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace zon::tool {
namespace {

// One block per product: its display name, then each key of its description with its value; the
// items of an array value follow on lines of their own.
void listTrackedProducts()
{
    Dictionary* products = TXZonInstalledAppsManager::sharedInstance()->trackedProducts();
    Ref<Array> names = products->allKeys();
    for (Object* name : *names) {
        std::printf("%s\n", printableDescription(name).c_str());
        Dictionary* product = products->objectForKey<Dictionary>(name);
        Ref<Array> keys = product->allKeys();
        for (Object* key : *keys) {
            Object* value = product->objectForKey(key);
            if (Array* items = dynamicCast<Array>(value)) {
                std::printf("  %s:\n", printableDescription(key).c_str());
                for (Object* item : *items)
                    std::printf("    %s\n", printableDescription(item).c_str());
            } else {
                std::printf("  %s = %s\n", printableDescription(key).c_str(), printableDescription(value).c_str());
            }
        }
    }
}

struct FindArguments {
    std::string name;
    std::string identifier;
    std::string defaultPath;
};

void findApplication(const FindArguments& arguments)
{
    Ref<String> found = TXZonInstalledAppsManager::sharedInstance()->findPathForApplicationNamed_withIdentifier_defaultPath(
        String::stringWithUTF8String(arguments.name).get(), String::stringWithUTF8String(arguments.identifier).get(),
        String::stringWithUTF8String(arguments.defaultPath).get());
    std::printf("%s\n", printableDescription(found.get()).c_str());
}

} // namespace

void addAppsCommands(CLI::App& app)
{
    auto* apps = app.add_subcommand("apps", "the suite's tracked products and where they are installed");
    apps->callback([apps] {
        if (apps->get_subcommands().empty())
            listTrackedProducts();
    });

    auto* find = apps->add_subcommand("find", "where an application is: by bundle identifier, then by name, else the default");
    auto arguments = std::make_shared<FindArguments>();
    find->add_option("NAME", arguments->name, "the application's file name, \"X.app\"")->required()->check(validUTF8());
    find->add_option("ID", arguments->identifier, "its bundle identifier")->required()->check(validUTF8());
    find->add_option("DEFAULT", arguments->defaultPath, "the answer when it is not found")->required()->check(validUTF8());
    find->callback([arguments] { findApplication(*arguments); });
}

} // namespace zon::tool
