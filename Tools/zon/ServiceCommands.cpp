#include "CommandSupport.h"
#include "Commands.h"

#include "platform/values/Array.h"
#include "platform/values/Exception.h"
#include "systemManagement/processManagement/TXZonDaemonHelper.h"
#include "systemManagement/userManagement/TXZonSystemUser.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <memory>

namespace zon::tool {
namespace {

// The helper raises the platform's launch exception when systemctl or grep cannot be run.
void withTools(const std::function<void()>& body)
{
    try {
        body();
    } catch (const Exception& exception) {
        fail(printable(*exception.reason()) + " (systemctl or grep cannot be run)");
    }
}

void reportLoaded(const std::string& label)
{
    withTools([&] {
        if (!TXZonDaemonHelper::init()->isDaemonLoaded(String::stringWithUTF8String(label).get()))
            fail(label + ": not loaded");
        std::printf("%s: loaded\n", label.c_str());
    });
}

void restart(const std::string& unitFile)
{
    withTools([&] {
        (void)TXZonDaemonHelper::init()->restartDaemon(String::stringWithUTF8String(unitFile).get());
        std::printf("%s: restarted\n", unitFile.c_str());
    });
}

void listUsers()
{
    Ref<Array> users = TXZonSystemUser::listOfUsers();
    for (Object* user : *users)
        std::printf("%s\n", printable(*static_cast<String*>(user)).c_str());
}

} // namespace

void addServiceCommands(CLI::App& app)
{
    auto* daemon = app.add_subcommand("daemon", "the user's service units, as the daemon helper sees them");
    daemon->require_subcommand(1);
    auto label = std::make_shared<std::string>();
    auto* loaded = daemon->add_subcommand("loaded", "whether a unit whose listing line matches LABEL (grep's pattern) is loaded; exit 1 when not");
    loaded->add_option("LABEL", *label, "a unit name or part of one")->required()->check(validUTF8());
    loaded->callback([label] { reportLoaded(*label); });
    auto unitFile = std::make_shared<std::string>();
    auto* restarted = daemon->add_subcommand("restart", "disable, then enable and start, the unit in UNIT-FILE");
    restarted->add_option("UNIT-FILE", *unitFile, "the path of a unit file")->required()->check(validUTF8());
    restarted->callback([unitFile] { restart(*unitFile); });

    app.add_subcommand("users", "the accounts of the machine: the folders in /home")->callback(listUsers);
}

} // namespace zon::tool
