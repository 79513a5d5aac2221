#include "CommandSupport.h"
#include "Commands.h"
#include "Files.h"

#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/CGImage.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/graphics/PreviewService.h"
#include "platform/values/Data.h"
#include "platform/values/URL.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>

namespace zon::tool {
namespace {

// The largest preview and scaled size the commands ask for.
constexpr int64_t kMaxSide = 32768;

struct ImageOptions {
    std::string input;
    std::string output;
    uint32_t size = 256;
    uint32_t width = 0;
    uint32_t height = 0;
};

const char* sourceName(PreviewSource source)
{
    switch (source) {
    case PreviewSource::cache: return "cache";
    case PreviewSource::inProcess: return "in-process";
    case PreviewSource::thumbnailer: return "thumbnailer";
    }
    return "?";
}

void writePNG(const CGImage& image, const std::string& path)
{
    const auto png = encodePNG(image);
    if (!png)
        fail("cannot encode the image as PNG");
    OutputFile out(path);
    out.write(*png);
    out.commit();
}

void writeImage(const Image* image, const std::string& path)
{
    Ref<BitmapImageRep> bitmap = image ? image->bestRepresentation() : nullptr;
    if (!bitmap || !bitmap->cgImage())
        fail("the image has no bitmap");
    writePNG(*bitmap->cgImage(), path);
    std::cout << bitmap->pixelsWide() << " x " << bitmap->pixelsHigh() << " pixels\n";
}

Ref<URL> fileURL(const std::string& path) { return URL::fileURLWithPath(String::stringWithUTF8String(path).get()); }

Ref<BitmapImageRep> bitmapOfFile(const std::string& path)
{
    Ref<Image> image = Image::initWithContentsOfFile(String::stringWithUTF8String(path).get());
    Ref<BitmapImageRep> bitmap = image ? image->bestRepresentation() : nullptr;
    if (!bitmap)
        fail(path + ": not an image the readers can decode", kExitFileError);
    return bitmap;
}

void runPreview(const ImageOptions& options)
{
    const auto start = std::chrono::steady_clock::now();
    const std::optional<Preview> preview = previewOfFile(options.input, options.size, options.size);
    const double milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (!preview)
        fail("no preview of " + options.input);
    writePNG(*preview->image, options.output);
    char took[32];
    std::snprintf(took, sizeof took, "%.1f ms", milliseconds);
    std::cout << preview->image->width() << " x " << preview->image->height() << " pixels from "
              << sourceName(preview->source) << " in " << took << '\n';
}

void runAlbumArt(const ImageOptions& options)
{
    Ref<Image> art = fileURL(options.input)->generateAlbumArtImageFromQuickLook();
    if (!art)
        fail("no file at " + options.input, kExitFileError);
    if (art->size() == Size {})
        fail("no album art: the preview service gave nothing, so the image is empty (0 x 0)");
    writeImage(art.get(), options.output);
}

void runDesktop(const ImageOptions& options)
{
    Ref<Image> thumbnail = fileURL(options.input)->generateThumbnailImageFromQuickLook();
    if (!thumbnail)
        fail("no file at " + options.input, kExitFileError);
    writeImage(thumbnail.get(), options.output);
}

void runScale(const ImageOptions& options)
{
    Ref<BitmapImageRep> bitmap = bitmapOfFile(options.input);
    Ref<BitmapImageRep> scaled = BitmapImageRep::imageRepWithImageRep_scaledToSize(bitmap.get(),
        Size {double(options.width), double(options.height)});
    if (!scaled || !scaled->cgImage())
        fail("cannot scale the image");
    writePNG(*scaled->cgImage(), options.output);
    std::cout << scaled->pixelsWide() << " x " << scaled->pixelsHigh() << " pixels\n";
}

void runJPEG(const ImageOptions& options)
{
    Ref<Data> jpeg = bitmapOfFile(options.input)->JPEGRepresentationOfImage();
    if (!jpeg)
        fail("cannot encode the image as JPEG");
    OutputFile out(options.output);
    out.write(*jpeg);
    out.commit();
    std::cout << jpeg->length() << " bytes\n";
}

} // namespace

void addImageCommands(CLI::App& app)
{
    auto* image = app.add_subcommand("image", "Previews, album art, desktop thumbnails, scaling and JPEG encoding");
    image->require_subcommand(1);
    auto options = std::make_shared<ImageOptions>();
    const auto inputAndOutput = [&](CLI::App* command, const char* output) {
        command->add_option("FILE", options->input, "the file")->required();
        command->add_option(output, options->output, "where the result goes (\"-\" for standard output)")->required();
    };

    auto* preview = image->add_subcommand("preview",
        "Write the preview service's image of FILE, at most N x N, and say where it came from (cache, in-process, "
        "thumbnailer) and how long it took");
    inputAndOutput(preview, "OUT.png");
    preview->add_option("--size", options->size, "the largest side (default 256)")->check(wholeNumberFrom(1, kMaxSide));
    preview->callback([options] { runPreview(*options); });

    auto* albumArt = image->add_subcommand("albumart", "Write the album art of FILE (its preview asked at 1024 x 1024)");
    inputAndOutput(albumArt, "OUT.png");
    albumArt->callback([options] { runAlbumArt(*options); });

    auto* desktop = image->add_subcommand("desktop", "Write the 109 x 109 desktop thumbnail of FILE's preview");
    inputAndOutput(desktop, "OUT.png");
    desktop->callback([options] { runDesktop(*options); });

    auto* scale = image->add_subcommand("scale",
        "Write the image FILE scaled to exactly W x H: the height sets the scale, the width is cut or padded");
    scale->add_option("FILE", options->input, "the image")->required();
    scale->add_option("W", options->width, "the width")->required()->check(wholeNumberFrom(1, kMaxSide));
    scale->add_option("H", options->height, "the height")->required()->check(wholeNumberFrom(1, kMaxSide));
    scale->add_option("OUT.png", options->output, "where the result goes (\"-\" for standard output)")->required();
    scale->callback([options] { runScale(*options); });

    auto* jpeg = image->add_subcommand("jpeg", "Write the image FILE as JPEG at quality 1.0");
    inputAndOutput(jpeg, "OUT.jpg");
    jpeg->callback([options] { runJPEG(*options); });
}

} // namespace zon::tool
