#pragma once

// The desktop's thumbnailers: "*.thumbnailer" key files in each data folder's "thumbnailers"
// folder, a "[Thumbnailer Entry]" group naming the program (TryExec), its command line (Exec, with
// %u the file's URI, %i its path, %o the output PNG, %s the size, %% a "%") and the content types
// it serves (MimeType, ";"-separated). Anyone who installs a package writes these files, so they
// are read through the bounded desktop entry reader.

#include "platform/Export.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zon {

struct Thumbnailer {
    std::string tryExec; // empty when the file names none
    std::string exec;
    std::vector<std::string> mimeTypes;
};

// Nullopt when bytes are not a key file, or its thumbnailer group lacks Exec or MimeType.
ZON_EXPORT std::optional<Thumbnailer> parseThumbnailer(std::string_view bytes);

// What a thumbnailer run is given.
struct ThumbnailerRequest {
    std::string uri;
    std::string path;
    std::string outputPath;
    uint32_t size = 0;
};
// The command line of Exec with its field codes filled in; nullopt when it is empty or malformed.
ZON_EXPORT std::optional<std::vector<std::string>> thumbnailerArguments(const Thumbnailer& thumbnailer,
    const ThumbnailerRequest& request);

// The thumbnailer for a file of this content type (a type identifier): a file naming the type's
// own MIME type wins over one naming a type it conforms to; within each, the data home first,
// then $XDG_DATA_DIRS in order, and within a folder the files in name order. A thumbnailer whose
// TryExec program is missing is skipped. Nullopt when none serves the type.
ZON_EXPORT std::optional<Thumbnailer> thumbnailerForType(std::string_view typeIdentifier);

} // namespace zon
