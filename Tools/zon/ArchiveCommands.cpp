#include "Commands.h"

#include "CommandSupport.h"
#include "Files.h"

#include "platform/io/KeyedUnarchiver.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/Set.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <unordered_map>
#include <vector>

namespace zon::tool {
namespace {

// Prints a decoded object graph one object per line, indented by depth, each with its class. A
// container reached again (shared) is printed once and named by its number after that, so that
// a graph of shared containers prints in the size of the graph, not of its expansion.
class GraphPrinter {
public:
    void print(const std::string& label, const Object* object, size_t depth)
    {
        std::cout << std::string(2 * depth, ' ') << label;
        if (!object) {
            std::cout << "nil\n";
            return;
        }
        std::cout << object->objectClass()->name();
        const auto* array = dynamicCast<Array>(object);
        const auto* set = dynamicCast<Set>(object);
        const auto* dictionary = dynamicCast<Dictionary>(object);
        if (!array && !set && !dictionary) {
            std::cout << ' ' << scalarText(object) << '\n';
            return;
        }
        const auto [known, added] = numbers_.emplace(object, numbers_.size() + 1);
        if (!added) {
            std::cout << " #" << known->second << " (shown above)\n";
            return;
        }
        std::cout << " #" << known->second << " (" << (array ? array->count() : set ? set->count() : dictionary->count())
                  << ")\n";
        size_t index = 0;
        if (array) {
            for (const Object* element : *array)
                print("[" + std::to_string(index++) + "] ", element, depth + 1);
        } else if (set) {
            for (const Object* element : *set)
                print("- ", element, depth + 1);
        } else {
            for (const auto [key, value] : *dictionary)
                print(scalarText(key) + " = ", value, depth + 1);
        }
    }

private:
    static std::string scalarText(const Object* object)
    {
        if (const auto* text = dynamicCast<String>(object))
            return "\"" + printable(*text) + "\"";
        if (const auto* number = dynamicCast<Number>(object); number && number->isBoolean())
            return number->boolValue() ? "true" : "false";
        if (const auto* data = dynamicCast<Data>(object))
            return std::to_string(data->length()) + " bytes";
        return printableDescription(object);
    }

    std::unordered_map<const Object*, size_t> numbers_;
};

void dump(const std::string& path, const std::vector<std::string>& allowed, bool restricted)
{
    Ref<Set> classes;
    if (restricted) {
        Ref<MutableSet> named = MutableSet::set();
        Object::staticClass(); // classes register when first used; the root may not have been yet
        for (const std::string& name : allowed) {
            Class* cls = Class::named(name);
            if (!cls)
                fail("--allow: no class is named '" + name + "'");
            named->addObject(cls);
        }
        classes = std::move(named);
    }
    Ref<Error> error;
    Ref<Object> root = KeyedUnarchiver::unarchivedObjectOfClasses_fromData_error(classes.get(), readWholeFile(path), &error);
    if (!root && error)
        fail(path + ": " + error->localizedDescription()->UTF8String());
    GraphPrinter().print("root: ", root.get(), 0);
}

} // namespace

void addArchiveCommands(CLI::App& app)
{
    auto* archive = app.add_subcommand("archive", "Keyed archives");
    archive->require_subcommand(1);
    struct DumpOptions {
        std::string path;
        std::vector<std::string> allowed;
    };
    auto options = std::make_shared<DumpOptions>();
    auto* dumpCommand = archive->add_subcommand("dump",
        "Read a keyed archive (XML or binary) and print its object graph with the class of every object");
    dumpCommand->add_option("FILE", options->path, "the archive to read")->required();
    auto* allow = dumpCommand->add_option("--allow", options->allowed,
        "the only classes besides property-list values the archive may hold, separated by commas");
    allow->delimiter(',');
    dumpCommand->callback([options, allow] { dump(options->path, options->allowed, allow->count() > 0); });
}

} // namespace zon::tool
