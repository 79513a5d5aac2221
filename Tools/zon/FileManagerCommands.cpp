#include "CommandSupport.h"
#include "Commands.h"

#include "platform/values/Error.h"
#include "platform/values/String.h"
#include "systemManagement/fileManagement/TXZonFileManager.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>

namespace zon::tool {
namespace {

struct FileManagerOptions {
    std::string source;
    std::string destination;
    bool replace = false;
    std::string path;
    std::string mimeType;
};

Ref<String> text(const std::string& utf8) { return String::stringWithUTF8String(utf8); }

const char* yesNo(bool value) { return value ? "YES" : "NO"; }

void copyFile(const FileManagerOptions& options)
{
    Ref<Error> error;
    FileCopyMethod engine = FileCopyMethod::none;
    const bool copied = TXZonFileManager::defaultManager()->copyFileFromPath_toPath_replaceIfExists_error(
        text(options.source).get(), text(options.destination).get(), options.replace, &error, &engine);
    std::cout << yesNo(copied) << '\n';
    if (error)
        std::cout << "error: " << printable(*error->domain()) << ' ' << error->code() << '\n';
    std::cout << "engine: " << fileCopyMethodName(engine) << '\n';
    if (!copied)
        throw CLI::RuntimeError(kExitFailure);
}

void printStatus(const std::string& path)
{
    TXZonFileManager* files = TXZonFileManager::defaultManager();
    bool isDirectory = false;
    const bool exists = files->fileExistsAtPath_isDirectory(text(path).get(), &isDirectory);
    std::cout << "exists: " << yesNo(exists) << "\nisDirectory: " << yesNo(exists && isDirectory)
              << "\nsize: " << files->sizeOfFile(text(path).get()) << '\n';
}

void printTypeIdentifier(const FileManagerOptions& options)
{
    TXZonFileManager* files = TXZonFileManager::defaultManager();
    Ref<String> uti = options.mimeType.empty() ? files->utiOfFile(text(options.path).get())
                                               : files->utiForMimeType(text(options.mimeType).get());
    std::cout << (uti ? printable(*uti) : std::string("(nil)")) << '\n';
    if (!uti)
        throw CLI::RuntimeError(kExitFailure);
}

} // namespace

void addFileManagerCommands(CLI::App& app)
{
    auto options = std::make_shared<FileManagerOptions>();
    auto* fs = fileSystemGroup(app);

    auto* copy = fs->add_subcommand("copy",
        "Copy SRC to DST as the file manager does: YES or NO, the error (domain, code) and the engine used (exit 1 on NO)");
    copy->add_option("SRC", options->source, "the file to copy")->required();
    copy->add_option("DST", options->destination, "where the copy goes; missing folders are made")->required();
    copy->add_flag("--replace", options->replace, "replace an existing DST (without it an existing DST is left and YES answered)");
    copy->callback([options] { copyFile(*options); });

    auto* mkdirs = fs->add_subcommand("mkdirs", "Make the folder PATH and its missing parents: YES or NO (exit 1)");
    mkdirs->add_option("PATH", options->path, "the folder")->required();
    mkdirs->callback([options] {
        const bool made = TXZonFileManager::defaultManager()->ensureDirectoryExistsAtPath(text(options->path).get());
        std::cout << yesNo(made) << '\n';
        if (!made)
            throw CLI::RuntimeError(kExitFailure);
    });

    auto* stat = fs->add_subcommand("stat",
        "PATH's existence (unexaminable paths exist), its directory flag (YES only for mode 040000) and its size (low 32 bits)");
    stat->add_option("PATH", options->path, "the path")->required();
    stat->callback([options] { printStatus(options->path); });

    auto* uti = fs->add_subcommand("uti", "The type identifier of the file PATH, or of a MIME type with --mime ((nil), exit 1, without one)");
    uti->add_option("PATH", options->path, "the file");
    uti->add_option("--mime", options->mimeType, "a MIME type instead of a file");
    uti->callback([options] {
        if (options->path.empty() == options->mimeType.empty())
            throw CLI::ValidationError("give either PATH or --mime TYPE");
        printTypeIdentifier(*options);
    });
}

} // namespace zon::tool
