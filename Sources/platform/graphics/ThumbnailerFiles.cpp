#include "platform/graphics/ThumbnailerFilesInternal.h"

#include "platform/io/ApplicationSearchInternal.h"
#include "platform/io/DesktopEntryInternal.h"
#include "platform/io/PathTextInternal.h"
#include "platform/io/StandardFolders.h"
#include "platform/io/TypeIdentifiers.h"
#include "platform/system/FileCallsInternal.h"

#include <algorithm>

namespace zon {

namespace {

constexpr std::string_view kGroup = "Thumbnailer Entry";
// A data folder holds a few dozen thumbnailers; a listing is cut off well above that.
constexpr size_t kMaxThumbnailerFiles = 4096;

std::vector<std::string> splitMimeTypes(std::string_view list)
{
    std::vector<std::string> types;
    while (!list.empty()) {
        const size_t semicolon = list.find(';');
        if (semicolon != 0)
            types.emplace_back(list.substr(0, semicolon));
        list.remove_prefix(semicolon == std::string_view::npos ? list.size() : semicolon + 1);
    }
    return types;
}

// How well a thumbnailer serves the type: 2 names it, 1 names a type it conforms to, 0 neither.
int matchQuality(const Thumbnailer& thumbnailer, std::string_view type)
{
    int best = 0;
    for (const std::string& mime : thumbnailer.mimeTypes) {
        const std::string served = preferredTypeIdentifierForTag(TypeTagClass::mimeType, mime);
        if (served == type)
            return 2;
        if (typeConformsTo(type, served))
            best = 1;
    }
    return best;
}

std::vector<std::string> thumbnailerFilesIn(const std::string& folder)
{
    auto listing = directoryListing(folder, kMaxThumbnailerFiles);
    std::vector<std::string> files;
    if (!listing)
        return files;
    for (const DirectoryEntry& entry : listing.value())
        if (entry.name.ends_with(".thumbnailer"))
            files.push_back(joinedPath(folder, entry.name));
    std::sort(files.begin(), files.end());
    return files;
}

std::optional<Thumbnailer> thumbnailerOfEntry(const std::optional<DesktopEntry>& entry)
{
    if (!entry)
        return std::nullopt;
    std::optional<std::string> exec = entry->value(kGroup, "Exec");
    std::optional<std::string> mimeTypes = entry->value(kGroup, "MimeType");
    if (!exec || !mimeTypes)
        return std::nullopt;
    return Thumbnailer {entry->value(kGroup, "TryExec").value_or(""), std::move(*exec), splitMimeTypes(*mimeTypes)};
}

} // namespace

std::optional<Thumbnailer> parseThumbnailer(std::string_view bytes)
{
    return thumbnailerOfEntry(DesktopEntry::parse(bytes));
}

std::optional<std::vector<std::string>> thumbnailerArguments(const Thumbnailer& thumbnailer, const ThumbnailerRequest& request)
{
    auto arguments = desktopEntryExecArguments(thumbnailer.exec, [&](char code) -> std::optional<std::string> {
        switch (code) {
        case 'u': return request.uri;
        case 'i': return request.path;
        case 'o': return request.outputPath;
        case 's': return std::to_string(request.size);
        default: return std::nullopt;
        }
    });
    if (!arguments || arguments->empty())
        return std::nullopt;
    return arguments;
}

std::optional<Thumbnailer> thumbnailerForType(std::string_view type)
{
    std::optional<Thumbnailer> conforming;
    for (const std::string& dataFolder : xdgDataFolders()) {
        for (const std::string& path : thumbnailerFilesIn(joinedPath(dataFolder, "thumbnailers"))) {
            std::optional<Thumbnailer> thumbnailer = thumbnailerOfEntry(DesktopEntry::readFile(path));
            if (!thumbnailer || (!thumbnailer->tryExec.empty() && !programOnSearchPath(thumbnailer->tryExec)))
                continue;
            const int quality = matchQuality(*thumbnailer, type);
            if (quality == 2)
                return thumbnailer;
            if (quality == 1 && !conforming)
                conforming = std::move(thumbnailer);
        }
    }
    return conforming;
}

} // namespace zon
