#include "Commands.h"

#include "CommandSupport.h"

#include "logger/ZonLog.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

namespace zon::tool {
namespace {

struct LogOptions {
    int level = logger::kLevelInfo;
    std::string message;
    std::string category = "default";
    std::string identifier = "default";
};

void logMessage(const LogOptions& options)
{
    Ref<String> category = String::stringWithUTF8String(options.category);
    Ref<String> identifier = String::stringWithUTF8String(options.identifier);
    Ref<String> message = String::stringWithUTF8String(options.message);
    zon_log_obj(__FILE__, __LINE__, category, options.level, identifier, "%@", message.get());
}

} // namespace

void addLogCommands(CLI::App& app)
{
    auto options = std::make_shared<LogOptions>();
    auto* log = app.add_subcommand("log", "Send one line through the Logger (configured by the ZON_LOG_* variables)");
    log->add_option("LEVEL", options->level, "1 error, 2 warning, 3 information, 5 detail")
        ->required()
        ->check(wholeNumberFrom(1, 5));
    log->add_option("MESSAGE", options->message, "the text")->required()->check(validUTF8());
    log->add_option("-c,--category", options->category, "the log category")->capture_default_str()->check(validUTF8());
    log->add_option("-i,--identifier", options->identifier, "the log stream")
        ->capture_default_str()
        ->check(validUTF8());
    log->callback([options] { logMessage(*options); });
}

} // namespace zon::tool
