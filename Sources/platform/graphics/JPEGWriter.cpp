// The JPEG writer, over libjpeg-turbo: quality 100, every component at full resolution (1x1
// sampling), optimised Huffman tables. libjpeg's fatal errors leave through longjmp into
// compressGuarded, which holds no C++ objects (see the JPEG reader for why).

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/graphics/JPEGErrorsInternal.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>

namespace zon {

namespace {

constexpr int kQuality = 100;

struct Compression {
    jpeg_compress_struct info {};
    JPEGErrors error {};
    unsigned char* output = nullptr; // malloc'd by libjpeg's memory destination
    unsigned long outputSize = 0;
    bool created = false;

    ~Compression()
    {
        if (created)
            jpeg_destroy_compress(&info);
        std::free(output);
    }
};

// The colour channels of premultiplied RGBA rows are what the JPEG holds: alpha is dropped, so a
// transparent pixel (premultiplied to zero) comes out black.
bool compressGuarded(Compression& c, const CGImage& image)
{
    c.info.err = silentJPEGErrors(c.error);
    if (setjmp(c.error.jump))
        return false;
    jpeg_create_compress(&c.info);
    c.created = true;
    jpeg_mem_dest(&c.info, &c.output, &c.outputSize);
    c.info.image_width = JDIMENSION(image.width());
    c.info.image_height = JDIMENSION(image.height());
    c.info.input_components = 4;
    c.info.in_color_space = JCS_EXT_RGBA;
    jpeg_set_defaults(&c.info);
    jpeg_set_quality(&c.info, kQuality, TRUE);
    for (int i = 0; i < c.info.num_components; ++i) {
        c.info.comp_info[i].h_samp_factor = 1;
        c.info.comp_info[i].v_samp_factor = 1;
    }
    c.info.optimize_coding = TRUE;
    jpeg_start_compress(&c.info, TRUE);
    while (c.info.next_scanline < c.info.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(image.bytes() + c.info.next_scanline * image.bytesPerRow());
        jpeg_write_scanlines(&c.info, &row, 1);
    }
    jpeg_finish_compress(&c.info);
    return true;
}

} // namespace

std::optional<std::vector<uint8_t>> encodeJPEG(const CGImage& image)
{
    // JPEG sides are 16-bit.
    if (image.width() > JPEG_MAX_DIMENSION || image.height() > JPEG_MAX_DIMENSION)
        return std::nullopt;
    Compression c;
    if (!compressGuarded(c, image))
        return std::nullopt;
    return std::vector<uint8_t>(c.output, c.output + c.outputSize);
}

} // namespace zon
