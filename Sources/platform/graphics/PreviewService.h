#pragma once

// The preview service: a file's thumbnail at most a given size, from the freedesktop thumbnail
// cache, else decoded in-process (images, audio cover art), else from the desktop's thumbnailer
// for the file's content type, run as a child process under limits. Results are cached, failures
// marked so that an unchanged file is not tried again. Keeps no state between calls; calls from
// several threads are safe.

#include "platform/Export.h"
#include "platform/runtime/Ref.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zon {

class CGImage;

enum class PreviewSource { cache, inProcess, thumbnailer };

struct Preview {
    Ref<CGImage> image;
    PreviewSource source = PreviewSource::inProcess;
};

// Nullopt when the file has no preview. Never larger than maxWidth x maxHeight, never scaled up.
ZON_EXPORT std::optional<Preview> previewOfFile(const std::string& path, uint32_t maxWidth, uint32_t maxHeight);

} // namespace zon
