// The JPEG reader, over libjpeg-turbo.
//
// libjpeg reports a fatal error by calling error_exit, which must not return. We leave through
// longjmp, and only from libjpeg's own C frames back into one small guarded function per call
// (guardedReadHeader and the like): those functions hold no C++ objects, and every C++ object the
// decode uses lives in a caller's frame, untouched by the jump. Throwing from error_exit instead
// would unwind through C frames built without exception tables.

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ExifOrientationInternal.h"
#include "platform/graphics/ImageInputInternal.h"
#include "platform/graphics/JPEGErrorsInternal.h"
#include "platform/graphics/ImageReadersInternal.h"
#include "platform/graphics/ImageShrinkInternal.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <new>

#include <jpeglib.h>
#include <jerror.h>

namespace zon {

namespace {

constexpr int kExifMarker = JPEG_APP0 + 1;
constexpr JOCTET kFakeEndOfImage[2] = {0xff, JPEG_EOI};

// Pulls bytes from an ImageInput. At its end the source hands libjpeg an end-of-image marker, so
// a truncated file decodes what it has.
struct InputSource {
    jpeg_source_mgr manager;
    ImageInput* input;
    bool reachedEnd;
    // The rows out when the entropy decoder first found the data ended in the middle of a block;
    // libjpeg fills the rest with grey. A file that lacks only its end marker never gets here.
    bool dataRanOut;
    JDIMENSION rowsBeforeEnd;
};

// Counts warnings as libjpeg's own handler does, prints nothing, and notes where the data ran out.
void emitMessage(j_common_ptr common, int level)
{
    if (level >= 0)
        return;
    ++common->err->num_warnings;
    if (common->err->msg_code != JWRN_HIT_MARKER || common->is_decompressor == FALSE)
        return;
    auto info = reinterpret_cast<j_decompress_ptr>(common);
    auto* source = reinterpret_cast<InputSource*>(info->src);
    if (source->reachedEnd && !source->dataRanOut) {
        source->dataRanOut = true;
        source->rowsBeforeEnd = info->output_scanline;
    }
}

boolean fillInputBuffer(j_decompress_ptr info)
{
    auto* source = reinterpret_cast<InputSource*>(info->src);
    const std::span<const uint8_t> chunk = source->input->next();
    if (chunk.empty()) {
        source->reachedEnd = true;
        WARNMS(info, JWRN_JPEG_EOF);
        source->manager.next_input_byte = kFakeEndOfImage;
        source->manager.bytes_in_buffer = sizeof kFakeEndOfImage;
        return TRUE;
    }
    source->manager.next_input_byte = chunk.data();
    source->manager.bytes_in_buffer = chunk.size();
    return TRUE;
}

void skipInputData(j_decompress_ptr info, long count)
{
    jpeg_source_mgr* source = info->src;
    while (count > 0 && size_t(count) > source->bytes_in_buffer) {
        count -= long(source->bytes_in_buffer);
        fillInputBuffer(info);
    }
    if (count > 0) {
        source->next_input_byte += count;
        source->bytes_in_buffer -= size_t(count);
    }
}

void initSource(j_decompress_ptr) { }
void termSource(j_decompress_ptr) { }

// One decompression: libjpeg's state, its error manager and its source.
struct Decompressor {
    jpeg_decompress_struct info {};
    JPEGErrors error {};
    InputSource source {};
    bool created = false;

    ~Decompressor()
    {
        if (created)
            jpeg_destroy_decompress(&info);
    }
};

bool guardedCreate(Decompressor& d, ImageInput& input, size_t memoryCap)
{
    d.info.err = silentJPEGErrors(d.error);
    d.error.manager.emit_message = emitMessage;
    if (setjmp(d.error.jump))
        return false;
    jpeg_create_decompress(&d.info);
    d.created = true;
    d.info.mem->max_memory_to_use = long(memoryCap);
    d.source.manager.init_source = initSource;
    d.source.manager.fill_input_buffer = fillInputBuffer;
    d.source.manager.skip_input_data = skipInputData;
    d.source.manager.resync_to_restart = jpeg_resync_to_restart;
    d.source.manager.term_source = termSource;
    d.source.input = &input;
    d.info.src = &d.source.manager;
    jpeg_save_markers(&d.info, kExifMarker, 0xffff);
    return true;
}

bool guardedReadHeader(Decompressor& d)
{
    if (setjmp(d.error.jump))
        return false;
    return jpeg_read_header(&d.info, TRUE) == JPEG_HEADER_OK;
}

bool guardedCalcOutputDimensions(Decompressor& d)
{
    if (setjmp(d.error.jump))
        return false;
    jpeg_calc_output_dimensions(&d.info);
    return true;
}

bool guardedStart(Decompressor& d)
{
    if (setjmp(d.error.jump))
        return false;
    return jpeg_start_decompress(&d.info);
}

// Reads up to count rows; false on a fatal error, rows then holding what came before it.
bool guardedReadRows(Decompressor& d, JSAMPARRAY rows, JDIMENSION count, JDIMENSION& read)
{
    read = 0;
    if (setjmp(d.error.jump))
        return false;
    read = jpeg_read_scanlines(&d.info, rows, count);
    return true;
}

// The header's facts: the upright size, the resolution from JFIF or EXIF, the orientation.
struct HeaderFacts {
    ImageInfo info;
    int orientation = 1;
};

HeaderFacts headerFacts(const jpeg_decompress_struct& info)
{
    ExifFacts exif;
    for (jpeg_saved_marker_ptr marker = info.marker_list; marker; marker = marker->next) {
        if (marker->marker == kExifMarker && marker->data_length >= 6 && std::memcmp(marker->data, "Exif\0\0", 6) == 0) {
            exif = readExifFacts({marker->data, marker->data_length});
            break;
        }
    }
    HeaderFacts facts;
    facts.orientation = exif.orientation;
    facts.info.format = ImageFormat::jpeg;
    const bool swaps = orientationSwapsSides(exif.orientation);
    facts.info.pixelWidth = swaps ? info.image_height : info.image_width;
    facts.info.pixelHeight = swaps ? info.image_width : info.image_height;
    if (info.saw_JFIF_marker && (info.density_unit == 1 || info.density_unit == 2) && info.X_density && info.Y_density) {
        const double perInch = info.density_unit == 2 ? 2.54 : 1;
        facts.info.horizontalDPI = info.X_density * perInch;
        facts.info.verticalDPI = info.Y_density * perInch;
    } else if (exif.horizontalDPI && exif.verticalDPI) {
        facts.info.horizontalDPI = *exif.horizontalDPI;
        facts.info.verticalDPI = *exif.verticalDPI;
    }
    if (swaps)
        std::swap(facts.info.horizontalDPI, facts.info.verticalDPI);
    return facts;
}

// The smallest DCT scale (1/8 to 8/8) that keeps the result at least twice the fitted size.
bool chooseDCTScale(Decompressor& d, DecodeBox box, int orientation)
{
    d.info.scale_num = 8;
    d.info.scale_denom = 8;
    if (box.empty())
        return guardedCalcOutputDimensions(d);
    const uint32_t width = d.info.image_width;
    const uint32_t height = d.info.image_height;
    // The box is for the upright image; fitting a quarter-turned one swaps the box instead.
    const bool swaps = orientationSwapsSides(orientation);
    const double scale = swaps ? fitScale(width, height, box.height, box.width) : fitScale(width, height, box.width, box.height);
    for (unsigned eighths = 1; eighths <= 8; ++eighths) {
        d.info.scale_num = eighths;
        if (!guardedCalcOutputDimensions(d))
            return false;
        if (eighths == 8 || keepsTwiceFitted(width, height, scale, d.info.output_width, d.info.output_height))
            return true;
    }
    return true;
}

// Colour from a CMYK row; Adobe's files store the inks inverted (0 is full ink).
void cmykToRGBA(const uint8_t* cmyk, uint8_t* rgba, size_t width, bool inverted)
{
    for (size_t x = 0; x < width; ++x, cmyk += 4, rgba += 4) {
        uint32_t c = cmyk[0], m = cmyk[1], y = cmyk[2], k = cmyk[3];
        if (!inverted) {
            c = 255 - c;
            m = 255 - m;
            y = 255 - y;
            k = 255 - k;
        }
        rgba[0] = uint8_t((c * k + 127) / 255);
        rgba[1] = uint8_t((m * k + 127) / 255);
        rgba[2] = uint8_t((y * k + 127) / 255);
        rgba[3] = 255;
    }
}

// Decodes every row into pixels (output_width x 4 bytes a row). Answers how many rows came out;
// a fatal error mid-image stops there.
JDIMENSION readRows(Decompressor& d, std::vector<uint8_t>& pixels)
{
    const size_t width = d.info.output_width;
    const size_t stride = width * 4;
    const bool cmyk = d.info.out_color_space == JCS_CMYK;
    std::vector<uint8_t> inks(cmyk ? stride : 0);
    while (d.info.output_scanline < d.info.output_height) {
        const JDIMENSION row = d.info.output_scanline;
        JSAMPROW target = cmyk ? inks.data() : pixels.data() + row * stride;
        JDIMENSION read = 0;
        if (!guardedReadRows(d, &target, 1, read) || read == 0)
            return row;
        if (cmyk)
            cmykToRGBA(inks.data(), pixels.data() + row * stride, width, d.info.saw_Adobe_marker);
    }
    return d.info.output_height;
}

} // namespace

std::optional<ImageInfo> probeJPEG(std::span<const uint8_t> bytes)
{
    ImageInput input = ImageInput::fromBytes(bytes);
    Decompressor d;
    if (!guardedCreate(d, input, kMaxImageDecoderMemory) || !guardedReadHeader(d))
        return std::nullopt;
    return headerFacts(d.info).info;
}

DecodedImage readJPEG(ImageInput& input, DecodeBox box, const ImageLimits& limits)
{
    Decompressor d;
    if (!guardedCreate(d, input, limits.decoderMemory))
        return decodeFailure(ImageDecodeError::outOfMemory);
    if (!guardedReadHeader(d))
        return decodeFailure(ImageDecodeError::corrupt);
    if (!limits.allows(d.info.image_width, d.info.image_height))
        return decodeFailure(ImageDecodeError::tooLarge);
    // A progressive image keeps every coefficient until its last scan.
    const uint64_t coefficientBytes = uint64_t(d.info.image_width) * d.info.image_height * d.info.num_components * 2;
    if (jpeg_has_multiple_scans(&d.info) && coefficientBytes > limits.decoderMemory)
        return decodeFailure(ImageDecodeError::tooLarge);

    const HeaderFacts facts = headerFacts(d.info);
    const bool cmyk = d.info.jpeg_color_space == JCS_CMYK || d.info.jpeg_color_space == JCS_YCCK;
    d.info.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBA;
    if (!chooseDCTScale(d, box, facts.orientation))
        return decodeFailure(ImageDecodeError::corrupt);

    const uint32_t width = d.info.output_width;
    const uint32_t height = d.info.output_height;
    std::vector<uint8_t> pixels;
    try {
        pixels.resize(size_t(width) * height * 4);
    } catch (const std::bad_alloc&) {
        return decodeFailure(ImageDecodeError::outOfMemory);
    }
    if (!guardedStart(d))
        return decodeFailure(ImageDecodeError::corrupt);
    JDIMENSION rows = readRows(d, pixels);

    DecodedImage result;
    result.info = facts.info;
    // Rows decoded after the data ran out are libjpeg's grey filler; they become transparent. A
    // progressive image reads all its scans before the first row, so what it has covers every row.
    if (d.source.dataRanOut && !jpeg_has_multiple_scans(&d.info))
        rows = std::min(rows, d.source.rowsBeforeEnd);
    result.truncated = d.source.reachedEnd || rows < height;
    if (rows < height)
        std::fill(pixels.begin() + ptrdiff_t(size_t(rows) * width * 4), pixels.end(), 0);
    const bool swaps = orientationSwapsSides(facts.orientation);
    pixels = orientPixels(std::move(pixels), width, height, facts.orientation);
    result.image = CGImage::imageWithPixels(swaps ? height : width, swaps ? width : height, std::move(pixels));
    if (!result.image)
        return decodeFailure(ImageDecodeError::outOfMemory);
    return result;
}

} // namespace zon
