// The reader for every format without a reader of its own, over gdk-pixbuf's loaders: the
// desktop's own registry, so installed loaders for more formats extend it.
//
// A GdkPixbufLoader is fed the bytes in chunks. Its "size-prepared" signal comes once the
// header is read and before any pixel is allocated: the handler refuses an image over the limits
// there (a requested size of 0 x 0 makes the loader stop with an error), and asks for a smaller
// size when the caller gave a box.

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ExifOrientationInternal.h"
#include "platform/graphics/ImageInputInternal.h"
#include "platform/graphics/ImageReadersInternal.h"
#include "platform/graphics/ImageShrinkInternal.h"

#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>

#include <gdk-pixbuf/gdk-pixbuf.h>

namespace zon {

namespace {

constexpr size_t kFeedChunk = 64 * 1024;

uint32_t littleEndian32(std::span<const uint8_t> bytes, size_t offset)
{
    return uint32_t(bytes[offset]) | uint32_t(bytes[offset + 1]) << 8 | uint32_t(bytes[offset + 2]) << 16
        | uint32_t(bytes[offset + 3]) << 24;
}

// Some loaders size a buffer from a header field before anything checks it: BMP by its info
// header's length and its pixels' offset, ICO by each image's offset. Those fields are small in
// any real file; a gigabyte there is refused before the loader sees it.
constexpr size_t kHeaderPeek = 4096;
constexpr uint32_t kMaxBMPInfoHeader = 4096; // the largest defined is 124 bytes
constexpr uint32_t kMaxHeaderOffset = 64 << 20;

bool declaresOversizedHeader(std::span<const uint8_t> prefix)
{
    if (prefix.size() >= 18 && prefix[0] == 'B' && prefix[1] == 'M')
        return littleEndian32(prefix, 10) > kMaxHeaderOffset || littleEndian32(prefix, 14) > kMaxBMPInfoHeader;
    const bool icon = prefix.size() >= 6 && prefix[0] == 0 && prefix[1] == 0 && (prefix[2] == 1 || prefix[2] == 2) && prefix[3] == 0;
    if (!icon)
        return false;
    const size_t count = size_t(prefix[4]) | size_t(prefix[5]) << 8;
    for (size_t i = 0; i < count && 6 + i * 16 + 16 <= prefix.size(); ++i)
        if (littleEndian32(prefix, 6 + i * 16 + 12) > kMaxHeaderOffset)
            return true;
    return false;
}

struct ObjectRelease {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GObjectPtr = std::unique_ptr<T, ObjectRelease>;

// What the signal handlers learn and decide.
struct LoadState {
    const ImageLimits* limits;
    DecodeBox box;
    bool headerOnly = false;
    bool refused = false;
    int width = 0;
    int height = 0;
    // How far down the loader has filled its pixels (reported only when it does not scale).
    int rowsUpdated = 0;
};

void sizePrepared(GdkPixbufLoader* loader, int width, int height, LoadState* state)
{
    state->width = width;
    state->height = height;
    if (width <= 0 || height <= 0 || !state->limits->allows(uint64_t(width), uint64_t(height))) {
        state->refused = true;
        gdk_pixbuf_loader_set_size(loader, 0, 0);
        return;
    }
    if (state->headerOnly) {
        gdk_pixbuf_loader_set_size(loader, 0, 0);
        return;
    }
    if (state->box.empty())
        return;
    // Twice the fitted size, the same margin the JPEG and PNG readers keep.
    const double scale = 2 * fitScale(uint32_t(width), uint32_t(height), state->box.width, state->box.height);
    if (scale < 1)
        gdk_pixbuf_loader_set_size(loader, std::max(1, int(std::ceil(width * scale))), std::max(1, int(std::ceil(height * scale))));
}

void areaUpdated(GdkPixbufLoader*, int, int y, int, int height, LoadState* state)
{
    state->rowsUpdated = std::max(state->rowsUpdated, y + height);
}

GObjectPtr<GdkPixbufLoader> makeLoader(LoadState& state)
{
    GObjectPtr<GdkPixbufLoader> loader(gdk_pixbuf_loader_new());
    g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(sizePrepared), &state);
    g_signal_connect(loader.get(), "area-updated", G_CALLBACK(areaUpdated), &state);
    return loader;
}

// Feeds the input to the loader and closes it; false when the loader reported an error.
bool feed(GdkPixbufLoader* loader, ImageInput& input, const LoadState& state)
{
    bool ok = true;
    for (;;) {
        const std::span<const uint8_t> chunk = input.next(kFeedChunk);
        if (chunk.empty() || state.refused || (state.headerOnly && state.width > 0))
            break;
        GError* error = nullptr;
        if (!gdk_pixbuf_loader_write(loader, chunk.data(), chunk.size(), &error)) {
            g_clear_error(&error);
            ok = false;
            break;
        }
    }
    GError* error = nullptr;
    if (!gdk_pixbuf_loader_close(loader, &error)) {
        g_clear_error(&error);
        ok = false;
    }
    return ok;
}

double optionNumber(GdkPixbuf* pixbuf, const char* key)
{
    const char* value = gdk_pixbuf_get_option(pixbuf, key);
    const double number = value ? std::strtod(value, nullptr) : 0;
    return std::isfinite(number) && number > 0 ? number : 72;
}

// Premultiplied RGBA from a pixbuf's 8-bit RGB or RGBA rows (which end at rowstride).
std::vector<uint8_t> premultipliedPixels(GdkPixbuf* pixbuf, int rows)
{
    const size_t width = size_t(gdk_pixbuf_get_width(pixbuf));
    const size_t height = size_t(gdk_pixbuf_get_height(pixbuf));
    const size_t channels = size_t(gdk_pixbuf_get_n_channels(pixbuf));
    const size_t stride = size_t(gdk_pixbuf_get_rowstride(pixbuf));
    const uint8_t* source = gdk_pixbuf_read_pixels(pixbuf);
    std::vector<uint8_t> pixels(width * height * 4);
    for (size_t y = 0; y < std::min(height, size_t(rows)); ++y) {
        const uint8_t* in = source + y * stride;
        uint8_t* out = pixels.data() + y * width * 4;
        for (size_t x = 0; x < width; ++x, in += channels, out += 4) {
            out[0] = in[0];
            out[1] = in[1];
            out[2] = in[2];
            out[3] = channels == 4 ? in[3] : 255;
        }
    }
    premultiplyRGBA(pixels);
    return pixels;
}

bool isPlainRGB(GdkPixbuf* pixbuf)
{
    const int channels = gdk_pixbuf_get_n_channels(pixbuf);
    return gdk_pixbuf_get_colorspace(pixbuf) == GDK_COLORSPACE_RGB && gdk_pixbuf_get_bits_per_sample(pixbuf) == 8
        && (channels == 3 || (channels == 4 && gdk_pixbuf_get_has_alpha(pixbuf)));
}

} // namespace

std::optional<ImageInfo> probePixbuf(std::span<const uint8_t> bytes, const ImageLimits& limits)
{
    if (declaresOversizedHeader(bytes.first(std::min(bytes.size(), kHeaderPeek))))
        return std::nullopt;
    LoadState state {&limits, {}};
    state.headerOnly = true;
    GObjectPtr<GdkPixbufLoader> loader = makeLoader(state);
    ImageInput input = ImageInput::fromBytes(bytes);
    (void)feed(loader.get(), input, state);
    if (state.width <= 0 || state.height <= 0)
        return std::nullopt;
    ImageInfo info;
    info.pixelWidth = uint32_t(state.width);
    info.pixelHeight = uint32_t(state.height);
    return info;
}

DecodedImage readPixbuf(ImageInput& input, DecodeBox box, const ImageLimits& limits)
{
    if (declaresOversizedHeader(input.peek(kHeaderPeek)))
        return decodeFailure(ImageDecodeError::tooLarge);
    LoadState state {&limits, box};
    GObjectPtr<GdkPixbufLoader> loader = makeLoader(state);
    const bool complete = feed(loader.get(), input, state);
    if (state.refused)
        return decodeFailure(ImageDecodeError::tooLarge);
    GdkPixbuf* loaded = gdk_pixbuf_loader_get_pixbuf(loader.get());
    if (!loaded)
        return decodeFailure(state.width > 0 ? ImageDecodeError::corrupt : ImageDecodeError::unsupported);
    if (!isPlainRGB(loaded))
        return decodeFailure(ImageDecodeError::unsupported);
    GObjectPtr<GdkPixbuf> upright(gdk_pixbuf_apply_embedded_orientation(loaded));
    if (!upright)
        return decodeFailure(ImageDecodeError::outOfMemory);
    // The rows the loader filled are known only when it neither scaled nor was turned upright.
    int rows = gdk_pixbuf_get_height(upright.get());
    if (!complete && upright.get() == loaded && state.rowsUpdated > 0)
        rows = std::min(rows, state.rowsUpdated);

    DecodedImage result;
    result.truncated = !complete;
    const char* orientation = gdk_pixbuf_get_option(loaded, "orientation");
    const bool swaps = orientation && orientationSwapsSides(std::atoi(orientation));
    result.info.pixelWidth = uint32_t(swaps ? state.height : state.width);
    result.info.pixelHeight = uint32_t(swaps ? state.width : state.height);
    result.info.horizontalDPI = optionNumber(loaded, swaps ? "y-dpi" : "x-dpi");
    result.info.verticalDPI = optionNumber(loaded, swaps ? "x-dpi" : "y-dpi");
    try {
        result.image = CGImage::imageWithPixels(size_t(gdk_pixbuf_get_width(upright.get())),
            size_t(gdk_pixbuf_get_height(upright.get())), premultipliedPixels(upright.get(), rows));
    } catch (const std::bad_alloc&) {
        return decodeFailure(ImageDecodeError::outOfMemory);
    }
    if (!result.image)
        return decodeFailure(ImageDecodeError::outOfMemory);
    return result;
}

} // namespace zon
