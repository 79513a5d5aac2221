// The PNG reader, over libpng.
//
// libpng reports a fatal error by longjmp to the jump buffer of its read struct. As in the JPEG
// reader, each libpng call that may fail runs in a small guarded function that holds no C++
// objects, and our read callback holds none either when it raises a premature end.
//
// Rows are decoded one at a time and, with a box, box-averaged as they come, so memory follows
// the output size. An interlaced (Adam7) image spreads every row over seven passes, so it is
// decoded whole at its full size and shrunk afterwards, which the decoder's memory bound limits.

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageHeaderInternal.h"
#include "platform/graphics/ImageInputInternal.h"
#include "platform/graphics/ImageReadersInternal.h"
#include "platform/graphics/ImageShrinkInternal.h"

#include <algorithm>
#include <new>

#include <png.h>

namespace zon {

namespace {

// Ancillary chunks (text, colour profiles) that libpng buffers whole are capped at this.
constexpr png_alloc_size_t kMaxChunkBytes = 8 * 1024 * 1024;
constexpr size_t kPNGSignatureAndHeader = 33;

void silentWarning(png_structp, png_const_charp) { }

[[noreturn]] void errorExit(png_structp png, png_const_charp)
{
    png_longjmp(png, 1);
}

// One read: libpng's state and the input it pulls from.
struct PNGDecoder {
    png_structp png = nullptr;
    png_infop info = nullptr;
    ImageInput* input = nullptr;
    bool reachedEnd = false;

    ~PNGDecoder()
    {
        if (png)
            png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
    }
};

void readData(png_structp png, png_bytep data, size_t length)
{
    auto* decoder = static_cast<PNGDecoder*>(png_get_io_ptr(png));
    if (!decoder->input->readExactly({data, length})) {
        decoder->reachedEnd = true;
        png_error(png, "premature end");
    }
}

bool create(PNGDecoder& d, ImageInput& input, uint32_t maxSide)
{
    d.input = &input;
    d.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &d, errorExit, silentWarning);
    if (!d.png)
        return false;
    d.info = png_create_info_struct(d.png);
    if (!d.info)
        return false;
    png_set_read_fn(d.png, &d, readData);
    png_set_user_limits(d.png, maxSide, maxSide);
    png_set_chunk_malloc_max(d.png, kMaxChunkBytes);
    return true;
}

bool guardedReadInfo(PNGDecoder& d)
{
    if (setjmp(png_jmpbuf(d.png)))
        return false;
    png_read_info(d.png, d.info);
    return true;
}

// Asks for 8-bit RGBA whatever the file holds: palettes, gray, 16 bits and tRNS expanded.
bool guardedSetRGBA(PNGDecoder& d, int& passes)
{
    if (setjmp(png_jmpbuf(d.png)))
        return false;
    png_set_expand(d.png);
    png_set_scale_16(d.png);
    png_set_gray_to_rgb(d.png);
    png_set_add_alpha(d.png, 0xff, PNG_FILLER_AFTER);
    passes = png_set_interlace_handling(d.png);
    png_read_update_info(d.png, d.info);
    return true;
}

bool guardedReadRow(PNGDecoder& d, png_bytep row)
{
    if (setjmp(png_jmpbuf(d.png)))
        return false;
    png_read_row(d.png, row, nullptr);
    return true;
}

ImageInfo infoOf(const PNGDecoder& d)
{
    ImageInfo info;
    info.format = ImageFormat::png;
    info.pixelWidth = png_get_image_width(d.png, d.info);
    info.pixelHeight = png_get_image_height(d.png, d.info);
    png_uint_32 x = 0, y = 0;
    int unit = 0;
    if (png_get_pHYs(d.png, d.info, &x, &y, &unit) && unit == PNG_RESOLUTION_METER && x && y) {
        info.horizontalDPI = x * 0.0254;
        info.verticalDPI = y * 0.0254;
    }
    return info;
}

// Rows of a plain image, one at a time, straight into the output or through the shrinker.
// Answers how many rows came.
uint32_t readSequentialRows(PNGDecoder& d, uint32_t width, uint32_t height, uint32_t factor, std::span<uint8_t> output)
{
    const size_t stride = size_t(width) * 4;
    if (factor == 1) {
        for (uint32_t y = 0; y < height; ++y) {
            const std::span<uint8_t> row = output.subspan(y * stride, stride);
            if (!guardedReadRow(d, row.data())) {
                std::fill(row.begin(), row.end(), 0); // libpng may have left part of it, unmultiplied
                return y;
            }
            premultiplyRGBA(row);
        }
        return height;
    }
    RowBoxShrinker shrinker(width, height, factor, output);
    std::vector<uint8_t> row(stride);
    for (uint32_t y = 0; y < height; ++y) {
        if (!guardedReadRow(d, row.data())) {
            shrinker.finish();
            return y;
        }
        premultiplyRGBA(row);
        shrinker.addRow(row.data());
    }
    return height;
}

// Every pass of an interlaced image into a full-size buffer, shrunk afterwards. Answers whether
// every pass completed.
bool readInterlacedRows(PNGDecoder& d, int passes, uint32_t width, uint32_t height, uint32_t factor, std::span<uint8_t> output)
{
    const size_t stride = size_t(width) * 4;
    std::vector<uint8_t> whole;
    std::span<uint8_t> target = output;
    if (factor > 1) {
        whole.resize(stride * height);
        target = whole;
    }
    bool complete = true;
    for (int pass = 0; pass < passes && complete; ++pass)
        for (uint32_t y = 0; y < height && complete; ++y)
            complete = guardedReadRow(d, target.data() + y * stride);
    premultiplyRGBA(target);
    if (factor > 1) {
        RowBoxShrinker shrinker(width, height, factor, output);
        for (uint32_t y = 0; y < height; ++y)
            shrinker.addRow(whole.data() + y * stride);
    }
    return complete;
}

} // namespace

std::optional<ImageInfo> probePNG(std::span<const uint8_t> bytes)
{
    ImageInput input = ImageInput::fromBytes(bytes);
    PNGDecoder d;
    if (!create(d, input, PNG_USER_WIDTH_MAX) || !guardedReadInfo(d))
        return std::nullopt;
    return infoOf(d);
}

DecodedImage readPNG(ImageInput& input, DecodeBox box, const ImageLimits& limits)
{
    // The header alone refuses a bomb before libpng allocates anything.
    const std::optional<ImageHeader> header = readImageHeader(input.peek(kPNGSignatureAndHeader));
    if (!header || header->container != ImageContainer::png)
        return decodeFailure(ImageDecodeError::corrupt);
    if (!limits.allows(uint64_t(header->width), uint64_t(header->height)))
        return decodeFailure(ImageDecodeError::tooLarge);

    PNGDecoder d;
    if (!create(d, input, limits.maxSide))
        return decodeFailure(ImageDecodeError::outOfMemory);
    int passes = 1;
    if (!guardedReadInfo(d) || !guardedSetRGBA(d, passes))
        return decodeFailure(ImageDecodeError::corrupt);
    const ImageInfo info = infoOf(d);
    const uint32_t width = info.pixelWidth;
    const uint32_t height = info.pixelHeight;
    const uint32_t factor = box.empty() ? 1 : boxShrinkFactor(width, height, box.width, box.height);
    const uint32_t outWidth = RowBoxShrinker::shrunkSide(width, factor);
    const uint32_t outHeight = RowBoxShrinker::shrunkSide(height, factor);
    // An interlaced image to be shrunk needs a full-size buffer besides the output.
    if (passes > 1 && factor > 1 && uint64_t(width) * height * 4 > limits.decoderMemory)
        return decodeFailure(ImageDecodeError::tooLarge);

    std::vector<uint8_t> pixels;
    bool complete;
    try {
        pixels.resize(size_t(outWidth) * outHeight * 4);
        complete = passes > 1 ? readInterlacedRows(d, passes, width, height, factor, pixels)
                              : readSequentialRows(d, width, height, factor, pixels) == height;
    } catch (const std::bad_alloc&) {
        return decodeFailure(ImageDecodeError::outOfMemory);
    }
    DecodedImage result;
    result.info = info;
    result.truncated = !complete;
    result.image = CGImage::imageWithPixels(outWidth, outHeight, std::move(pixels));
    if (!result.image)
        return decodeFailure(ImageDecodeError::outOfMemory);
    return result;
}

} // namespace zon
