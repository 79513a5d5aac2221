// zon: a command-line window onto the library, for demonstrations and quick checks.

#include "CommandSupport.h"
#include "Commands.h"

#include "platform/runtime/AutoreleasePool.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>

namespace {

// What a command printed has reached standard output only when the last flush and the close
// succeed; a full disk behind a redirection shows up there.
int finishStandardOutput(int exitCode)
{
    const bool failed = std::fflush(stdout) != 0 || std::ferror(stdout);
    const int error = errno;
    if (std::fclose(stdout) != 0 || failed) {
        std::cerr << "zon: cannot write standard output: " << std::strerror(failed ? error : errno) << '\n';
        return exitCode == 0 ? zon::tool::kExitFileError : exitCode;
    }
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    zon::AutoreleasePool pool;
    CLI::App app {"zon: try out the ZonCommon library from the command line", "zon"};
    app.set_version_flag("--version", "zon " ZON_VERSION);
    app.require_subcommand(1);
    zon::tool::addFullOutputFlag(app);

    zon::tool::addStringCommands(app);
    zon::tool::addErrorCommands(app);
    zon::tool::addLogCommands(app);
    zon::tool::addPlistCommands(app);
    zon::tool::addCodecCommands(app);
    zon::tool::addIPCCommands(app);
    zon::tool::addModelCommands(app);
    zon::tool::addArchiveCommands(app);
    zon::tool::addDynamicCommands(app);
    zon::tool::addURLCommands(app);
    zon::tool::addLocaleCommands(app);
    zon::tool::addExceptionCommands(app);
    zon::tool::addSizeCommands(app);
    zon::tool::addVersionCommands(app);
    zon::tool::addUtilityCommands(app);
    zon::tool::addProcessCommands(app);
    zon::tool::addAppsCommands(app);
    zon::tool::addSystemCommands(app);
    zon::tool::addFileManagerCommands(app);
    zon::tool::addStreamCommands(app);
    zon::tool::addServiceCommands(app);
    zon::tool::addWatchCommands(app);
    zon::tool::addAliasCommands(app);
    zon::tool::addFinderInfoCommands(app);
    zon::tool::addMenuCommands(app);
    zon::tool::addImageCommands(app);

    int exitCode = 0;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error);
    } catch (const std::bad_alloc&) {
        std::cerr << "zon: not enough memory for this input\n";
        exitCode = zon::tool::kExitFailure;
    }
    return finishStandardOutput(exitCode);
}
