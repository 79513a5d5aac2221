// zon: a command-line window onto the library, for demonstrations and quick checks.

#include "Commands.h"

#include "platform/runtime/AutoreleasePool.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv)
{
    zon::AutoreleasePool pool;
    CLI::App app {"zon: try out the ZonCommon library from the command line", "zon"};
    app.set_version_flag("--version", "zon " ZON_VERSION);
    app.require_subcommand(1);

    zon::tool::addStringCommands(app);
    zon::tool::addErrorCommands(app);
    zon::tool::addLogCommands(app);
    zon::tool::addPlistCommands(app);
    zon::tool::addCodecCommands(app);
    zon::tool::addIPCCommands(app);

    CLI11_PARSE(app, argc, argv);
    return 0;
}
