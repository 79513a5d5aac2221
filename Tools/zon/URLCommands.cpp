#include "CommandSupport.h"
#include "Commands.h"

#include "platform/values/Dictionary.h"
#include "platform/values/Exception.h"
#include "platform/values/URL.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace zon::tool {
namespace {

// Arguments were checked to be UTF-8 when they were parsed.
Ref<String> utf8Text(const std::string& utf8) { return String::stringWithUTF8String(utf8); }

void appendArguments(const std::string& base, const std::vector<std::string>& pairs)
{
    Ref<URL> url = URL::URLWithString(utf8Text(base).get());
    if (!url)
        fail("not a URL: " + base);
    Ref<MutableDictionary> arguments = MutableDictionary::dictionary();
    for (const std::string& pair : pairs) {
        const size_t equals = pair.find('=');
        if (equals == std::string::npos)
            fail("an argument is key=value: " + pair);
        arguments->setObject_forKey(utf8Text(pair.substr(equals + 1)).get(), utf8Text(pair.substr(0, equals)).get());
    }
    Ref<URL> result = url->urlByAppendingHttpArgumentsDictionary(arguments.get());
    if (!result)
        fail("the decoded path of " + base + " cannot stand in a URL");
    std::cout << result->absoluteString()->UTF8String() << '\n';
}

void joinComponent(const std::string& text, const std::string& component)
{
    try {
        std::cout << utf8Text(text)->stringByAppendingURLComponent(utf8Text(component).get())->UTF8String() << '\n';
    } catch (const Exception& exception) {
        fail(exception.name()->UTF8String() + ": " + exception.reason()->UTF8String());
    }
}

} // namespace

void addURLCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("url", "URL operations");
    group->require_subcommand(1);

    auto* append = group->add_subcommand("append", "URL with the escaped query arguments k=v appended");
    auto base = std::make_shared<std::string>();
    auto pairs = std::make_shared<std::vector<std::string>>();
    append->add_option("URL", *base, "the URL")->required()->check(validUTF8());
    append->add_option("ARGUMENTS", *pairs, "key=value pairs, in order")->check(validUTF8());
    append->callback([base, pairs] { appendArguments(*base, *pairs); });

    auto* join = group->add_subcommand("join", "TEXT with COMPONENT joined as a path or query part");
    auto text = std::make_shared<std::string>();
    auto component = std::make_shared<std::string>();
    join->add_option("TEXT", *text, "the URL text")->required()->check(validUTF8());
    join->add_option("COMPONENT", *component, "the component")->required()->check(validUTF8());
    join->callback([text, component] { joinComponent(*text, *component); });
}

} // namespace zon::tool
