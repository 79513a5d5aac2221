#pragma once

// Each command group of the zon tool registers its subcommands on the application from its own
// unit, so that a new group is one new file and one line in main.cpp.

namespace CLI {
class App;
}

namespace zon::tool {

void addStringCommands(CLI::App& app);
void addErrorCommands(CLI::App& app);
void addLogCommands(CLI::App& app);
void addPlistCommands(CLI::App& app);
void addCodecCommands(CLI::App& app);
void addIPCCommands(CLI::App& app);
void addModelCommands(CLI::App& app);
void addArchiveCommands(CLI::App& app);
void addDynamicCommands(CLI::App& app);
void addURLCommands(CLI::App& app);
void addLocaleCommands(CLI::App& app);
void addExceptionCommands(CLI::App& app);
void addSizeCommands(CLI::App& app);
void addVersionCommands(CLI::App& app);
void addUtilityCommands(CLI::App& app);
void addProcessCommands(CLI::App& app);
void addAppsCommands(CLI::App& app);
void addSystemCommands(CLI::App& app);
// zon fs copy, mkdirs, stat, uti.
void addFileManagerCommands(CLI::App& app);
void addStreamCommands(CLI::App& app);
void addServiceCommands(CLI::App& app);
// Joins the "fs" group, making it when no other unit has.
void addWatchCommands(CLI::App& app);
void addAliasCommands(CLI::App& app);
void addFinderInfoCommands(CLI::App& app);
// zon menu demo.
void addMenuCommands(CLI::App& app);
// zon image preview, albumart, desktop, scale, jpeg.
void addImageCommands(CLI::App& app);

} // namespace zon::tool
