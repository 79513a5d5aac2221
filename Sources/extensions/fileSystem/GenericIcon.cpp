#include "extensions/fileSystem/GenericIconInternal.h"

#include "platform/system/FileCallsInternal.h"

#include <gio/gio.h>

namespace zon {

namespace {

constexpr const char* kIconRoot = "/usr/share/icons/";
constexpr const char* kThemes[] = {"Adwaita", "hicolor"};
constexpr const char* kContexts[] = {"mimetypes", "places"};
constexpr int kSizes[] = {16, 32, 128, 256, 512};
// No theme's PNG comes near this; a larger file is not an icon we want in memory.
constexpr size_t kIconFileCap = 4 << 20;

// The theme's icon names for the content type, most specific first, then the generic one.
std::vector<std::string> iconNames(const char* contentType)
{
    std::vector<std::string> names;
    if (GIcon* icon = g_content_type_get_icon(contentType)) {
        if (G_IS_THEMED_ICON(icon))
            for (const gchar* const* name = g_themed_icon_get_names(G_THEMED_ICON(icon)); name && *name; ++name)
                names.emplace_back(*name);
        g_object_unref(icon);
    }
    if (gchar* generic = g_content_type_get_generic_icon_name(contentType)) {
        names.emplace_back(generic);
        g_free(generic);
    }
    return names;
}

std::optional<std::vector<uint8_t>> readIconFile(const std::string& path)
{
    auto fd = openForReading(path, ReadableKinds::regularFiles);
    if (!fd)
        return std::nullopt;
    std::vector<uint8_t> bytes;
    if (!appendToEnd(fd.value().get(), bytes, kIconFileCap) || bytes.empty())
        return std::nullopt;
    return bytes;
}

std::optional<std::vector<uint8_t>> themeImage(const std::string& name, int size)
{
    const std::string sizeFolder = std::to_string(size) + "x" + std::to_string(size) + "/";
    for (const char* theme : kThemes)
        for (const char* context : kContexts)
            if (auto bytes = readIconFile(kIconRoot + std::string(theme) + "/" + sizeFolder + context + "/" + name + ".png"))
                return bytes;
    return std::nullopt;
}

} // namespace

std::vector<IconFamilyElement> genericIconElements(const std::string& path, bool isDirectory)
{
    gchar* contentType = isDirectory ? g_strdup("inode/directory") : g_content_type_guess(path.c_str(), nullptr, 0, nullptr);
    const std::vector<std::string> names = iconNames(contentType);
    g_free(contentType);
    // The first name the theme has any of the sizes for gives the whole family.
    for (const auto& name : names) {
        std::vector<IconFamilyElement> elements;
        for (int size : kSizes)
            if (auto bytes = themeImage(name, size))
                elements.push_back({pngIconElementType(size), std::move(*bytes)});
        if (!elements.empty())
            return elements;
    }
    return {};
}

} // namespace zon
