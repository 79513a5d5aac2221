#include "Commands.h"

#include "CommandSupport.h"

#include "extensions/NSError+ZonExtensions.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <optional>

namespace zon::tool {
namespace {

struct ErrorOptions {
    int code = 0;
    std::optional<int> systemCode;
    std::optional<std::string> description;
};

// The suite constructor that matches the options given.
Ref<Error> makeError(const ErrorOptions& options)
{
    Ref<String> description = options.description ? String::stringWithUTF8String(*options.description) : nullptr;
    if (options.systemCode)
        return Error::zonErrorWithCode_systemErrorCode_description(options.code, *options.systemCode, description);
    if (description)
        return Error::zonErrorWithCode_description(options.code, description);
    return Error::zonErrorWithCode(options.code);
}

void showError(const ErrorOptions& options)
{
    Ref<Error> error = makeError(options);
    std::cout << "description:          " << error->description()->UTF8String() << '\n';
    std::cout << "localizedDescription: " << error->localizedDescription()->UTF8String() << '\n';
    std::cout << "zonErrorCode:         " << error->zonErrorCode() << '\n';
    std::cout << "systemErrorCode:      " << error->systemErrorCode() << '\n';
}

} // namespace

void addErrorCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("error", "Suite errors");
    group->require_subcommand(1);

    auto options = std::make_shared<ErrorOptions>();
    auto* show = group->add_subcommand("show", "Build an error of the suite domain and print it");
    show->add_option("CODE", options->code, "the suite error code")->required();
    show->add_option("-s,--system-code", options->systemCode, "the system error code behind it");
    show->add_option("-d,--description", options->description, "the description text")->check(validUTF8());
    show->callback([options] { showError(*options); });
}

} // namespace zon::tool
