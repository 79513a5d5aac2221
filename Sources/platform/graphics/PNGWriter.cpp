// The PNG writer, over libpng: 8-bit RGBA with the colours un-premultiplied, and tEXt chunks.
// libpng's fatal errors leave through longjmp into writeGuarded, which holds no C++ objects (see
// the JPEG reader for why).

#include "platform/graphics/CGImage.h"
#include "platform/graphics/PNGWriterInternal.h"

#include <algorithm>
#include <new>

#include <png.h>

namespace zon {

namespace {

void silentWarning(png_structp, png_const_charp) { }

[[noreturn]] void errorExit(png_structp png, png_const_charp)
{
    png_longjmp(png, 1);
}

bool append(std::vector<uint8_t>& out, const uint8_t* data, size_t length)
{
    try {
        out.insert(out.end(), data, data + length);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void writeData(png_structp png, png_bytep data, size_t length)
{
    if (!append(*static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png)), data, length))
        png_error(png, "out of memory");
}

void flushData(png_structp) { }

void unpremultiplyRow(const uint8_t* in, uint8_t* out, size_t width)
{
    for (size_t x = 0; x < width; ++x, in += 4, out += 4) {
        const uint32_t alpha = in[3];
        out[3] = uint8_t(alpha);
        for (size_t c = 0; c < 3; ++c)
            out[c] = alpha == 255 ? in[c] : alpha == 0 ? 0 : uint8_t(std::min<uint32_t>(255, (in[c] * 255 + alpha / 2) / alpha));
    }
}

struct PNGWriter {
    png_structp png = nullptr;
    png_infop info = nullptr;

    ~PNGWriter()
    {
        if (png)
            png_destroy_write_struct(&png, info ? &info : nullptr);
    }
};

bool writeGuarded(PNGWriter& w, const CGImage& image, png_text* text, int textCount, PNGWriteSettings settings,
    std::vector<uint8_t>& out, uint8_t* row)
{
    if (setjmp(png_jmpbuf(w.png)))
        return false;
    png_set_write_fn(w.png, &out, writeData, flushData);
    png_set_compression_level(w.png, settings.compressionLevel);
    png_set_filter(w.png, PNG_FILTER_TYPE_BASE, settings.filters);
    png_set_IHDR(w.png, w.info, png_uint_32(image.width()), png_uint_32(image.height()), 8, PNG_COLOR_TYPE_RGB_ALPHA,
        PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
    if (textCount > 0)
        png_set_text(w.png, w.info, text, textCount);
    png_write_info(w.png, w.info);
    for (size_t y = 0; y < image.height(); ++y) {
        unpremultiplyRow(image.bytes() + y * image.bytesPerRow(), row, image.width());
        png_write_row(w.png, row);
    }
    png_write_end(w.png, w.info);
    return true;
}

} // namespace

PNGWriteSettings defaultPNGWriteSettings() { return {1, PNG_FILTER_SUB}; }

std::optional<std::vector<uint8_t>> encodePNG(const CGImage& image, std::span<const PNGTextEntry> text)
{
    return encodePNGWithSettings(image, text, defaultPNGWriteSettings());
}

std::optional<std::vector<uint8_t>> encodePNGWithSettings(
    const CGImage& image, std::span<const PNGTextEntry> text, PNGWriteSettings settings)
{
    if (image.width() > PNG_UINT_31_MAX || image.height() > PNG_UINT_31_MAX)
        return std::nullopt;
    std::vector<png_text> chunks(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        chunks[i].compression = PNG_TEXT_COMPRESSION_NONE;
        chunks[i].key = const_cast<char*>(text[i].key.c_str());
        chunks[i].text = const_cast<char*>(text[i].value.c_str());
        chunks[i].text_length = text[i].value.size();
    }
    PNGWriter w;
    w.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, errorExit, silentWarning);
    if (!w.png || !(w.info = png_create_info_struct(w.png)))
        return std::nullopt;
    std::vector<uint8_t> out;
    std::vector<uint8_t> row(image.bytesPerRow());
    if (!writeGuarded(w, image, chunks.data(), int(chunks.size()), settings, out, row.data()))
        return std::nullopt;
    return out;
}

} // namespace zon
