#include "platform/graphics/BitmapContext.h"

#include "platform/graphics/CGImage.h"
#include "platform/graphics/ImageShrinkInternal.h"
#include "platform/graphics/PixmanImageInternal.h"
#include "platform/runtime/Class.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace zon {

ZON_DEFINE_CLASS(CGContext, "CGContext")

namespace {

struct FreeMemory {
    void operator()(uint8_t* bytes) const { std::free(bytes); }
};

// A run of whole pixels along one axis and how much of each the drawn rectangle covers.
struct Band {
    int start;
    int end;
    double coverage;
};

// Splits [low, high) (already inside the context) into a partly covered first pixel, the fully
// covered run and a partly covered last pixel; a span inside one pixel is one band.
std::vector<Band> bandsOf(double low, double high)
{
    const int first = int(std::floor(low));
    const int last = int(std::ceil(high));
    if (last - first == 1)
        return {{first, last, high - low}};
    std::vector<Band> bands;
    int innerStart = first, innerEnd = last;
    if (low > first) {
        bands.push_back({first, first + 1, first + 1 - low});
        innerStart = first + 1;
    }
    const bool partialEnd = high < last;
    if (partialEnd)
        innerEnd = last - 1;
    if (innerStart < innerEnd)
        bands.push_back({innerStart, innerEnd, 1});
    if (partialEnd)
        bands.push_back({last - 1, last, high - (last - 1)});
    return bands;
}

// pixman's separable convolution is slow per tap, so a large shrink first averages whole blocks of
// factor x factor pixels (one cheap pass over the source), leaving the Lanczos filter a factor
// between 1.5 and 3. Measured on 1500 x 1000 to 256 x 171 (docs/Images.md), CPU time and PSNR
// against gdk-pixbuf's HYPER on a card of fine stripes: the filter alone 34 ms, 30.3 dB; this
// 9.6 ms, 35.2 dB; leaving 1-2, 5.5 ms but 26.9 dB; leaving 2-4, 16 ms, 32.8 dB.
constexpr double kLanczosShareOfShrink = 1.5;

uint32_t boxShrinkFactor(const CGImage& image, double scale)
{
    const double factor = std::floor(scale / kLanczosShareOfShrink);
    if (factor < 2 || image.width() > UINT32_MAX || image.height() > UINT32_MAX)
        return 1;
    return uint32_t(std::min(factor, double(std::max(image.width(), image.height()))));
}

// Nil when memory runs out.
Ref<CGImage> boxShrunk(const CGImage& image, uint32_t factor)
{
    const uint32_t width = uint32_t(image.width()), height = uint32_t(image.height());
    const size_t outWidth = RowBoxShrinker::shrunkSide(width, factor);
    const size_t outHeight = RowBoxShrinker::shrunkSide(height, factor);
    std::vector<uint8_t> pixels;
    try {
        pixels.resize(outWidth * outHeight * CGImage::kBytesPerPixel);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    RowBoxShrinker shrinker(width, height, factor, pixels);
    for (size_t row = 0; row < height; ++row)
        shrinker.addRow(image.bytes() + row * image.bytesPerRow());
    shrinker.finish();
    return CGImage::imageWithPixels(outWidth, outHeight, std::move(pixels));
}

// The first of the two Lanczos passes: the source resampled along x into the drawn columns, at its
// own height.
PixmanImage resampledColumns(pixman_image_t* source, double scaleX, double offsetX, int columns, size_t height)
{
    PixmanImage pass(pixman_image_create_bits_no_clear(kPixmanFormat, columns, int(height), nullptr, 0));
    if (!pass || !setPlacement(source, scaleX, 1, offsetX, 0) || !setLanczosFilter(source, Axis::horizontal, scaleX))
        return nullptr;
    pixman_image_composite32(PIXMAN_OP_SRC, source, nullptr, pass.get(), 0, 0, 0, 0, 0, 0, columns, int(height));
    return pass;
}

// Lanczos's negative lobes can lift a colour above its pixel's alpha where a translucent area
// meets a differently coloured one (pixman clamps each channel to 0-255 only); premultiplied
// pixels never have that, and blending them later would brighten.
void keepPremultiplied(uint8_t* bytes, size_t bytesPerRow, int left, int right, int top, int bottom)
{
    for (int row = top; row < bottom; ++row) {
        uint8_t* pixel = bytes + size_t(row) * bytesPerRow + size_t(left) * CGImage::kBytesPerPixel;
        for (int column = left; column < right; ++column, pixel += CGImage::kBytesPerPixel)
            for (int channel = 0; channel < 3; ++channel)
                pixel[channel] = std::min(pixel[channel], pixel[3]);
    }
}

PixmanImage solidAlpha(double alpha)
{
    const pixman_color_t color {0, 0, 0, uint16_t(std::lround(std::clamp(alpha, 0.0, 1.0) * 0xffff))};
    return PixmanImage(pixman_image_create_solid_fill(&color));
}

} // namespace

struct CGContext::State {
    size_t width;
    size_t height;
    size_t bytesPerRow;
    std::unique_ptr<uint8_t, FreeMemory> bytes;
    CGInterpolationQuality quality = kCGInterpolationDefault;
};

CGContext::CGContext(State* state)
    : state_(state)
{
}

CGContext::~CGContext()
{
    delete state_;
}

Ref<CGContext> CGContext::bitmapContext(size_t width, size_t height, size_t bytesPerRow)
{
    // pixman addresses pixels and rows with ints.
    if (width == 0 || height == 0 || width > INT_MAX / CGImage::kBytesPerPixel || height > INT_MAX)
        return nullptr;
    if (bytesPerRow < width * CGImage::kBytesPerPixel || bytesPerRow > SIZE_MAX / height)
        return nullptr;
    // calloc: transparent black, and large contexts take their zero pages lazily.
    std::unique_ptr<uint8_t, FreeMemory> bytes(static_cast<uint8_t*>(std::calloc(bytesPerRow * height, 1)));
    if (!bytes)
        return nullptr;
    return makeObject<CGContext>(new State {width, height, bytesPerRow, std::move(bytes)});
}

size_t CGContext::width() const { return state_->width; }
size_t CGContext::height() const { return state_->height; }
size_t CGContext::bytesPerRow() const { return state_->bytesPerRow; }
uint8_t* CGContext::data() { return state_->bytes.get(); }
const uint8_t* CGContext::data() const { return state_->bytes.get(); }
CGInterpolationQuality CGContext::interpolationQuality() const { return state_->quality; }
void CGContext::setInterpolationQuality(CGInterpolationQuality quality) { state_->quality = quality; }

// Geometry: the rectangle is in the original's coordinates (origin at the bottom left), so its top
// edge lies at height - (y + h) in memory order, which is pixman's. Pixman samples the source at
// each destination pixel's centre through a transform; it maps the rectangle, fractional edges
// included, exactly onto the whole source, and the source repeats its edge pixels (PAD) so that
// the filter does not fade the image's own border. At high interpolation the Lanczos filter runs
// as two passes, along x into a buffer of the drawn columns, then along y into the context.
//
// Fractional edges: the pixels the rectangle covers are split into at most 3 x 3 pieces (partly
// covered first column or row, the fully covered run, partly covered last one). Each piece is one
// composite whose mask is a solid alpha of its coverage times the opacity. Source-over simply
// blends with that mask. Copy replaces the fully covered pixels (SRC), and on a partly covered one
// it mixes by coverage: the destination is first scaled by (1 - coverage) (OUT_REVERSE with a
// solid), then the masked source is added (ADD), so what lies outside the rectangle stays.
void CGContext::drawImage(Rect rect, const CGImage* image, CompositingOperation operation, double opacity)
{
    if (!image || !(opacity >= 0))
        return;
    opacity = std::min(opacity, 1.0);
    const double width = rect.size.width, height = rect.size.height;
    if (!(width > 0 && height > 0 && std::isfinite(width) && std::isfinite(height) && std::isfinite(rect.origin.x)
            && std::isfinite(rect.origin.y)))
        return;
    const double left = rect.origin.x;
    const double top = double(state_->height) - (rect.origin.y + height);
    const double clipLeft = std::max(left, 0.0), clipRight = std::min(left + width, double(state_->width));
    const double clipTop = std::max(top, 0.0), clipBottom = std::min(top + height, double(state_->height));
    if (!(clipLeft < clipRight && clipTop < clipBottom))
        return;

    double scaleX = double(image->width()) / width, scaleY = double(image->height()) / height;
    // Source coordinates relative to the drawn region's first pixel keep the transform's numbers
    // small (pixman's are 16.16 fixed point).
    const int originX = int(std::floor(clipLeft)), originY = int(std::floor(clipTop));
    double offsetX = (originX - left) * scaleX, offsetY = (originY - top) * scaleY;
    const bool pixelAligned = scaleX == 1 && scaleY == 1 && left == std::floor(left) && top == std::floor(top);
    const bool lanczos = state_->quality == kCGInterpolationHigh && !pixelAligned;

    Ref<CGImage> shrunk;
    if (const uint32_t factor = lanczos ? boxShrinkFactor(*image, std::min(scaleX, scaleY)) : 1; factor > 1) {
        if (!(shrunk = boxShrunk(*image, factor)))
            return;
        scaleX /= factor, scaleY /= factor, offsetX /= factor, offsetY /= factor;
    }
    PixmanImage source = wrapForReading(shrunk ? *shrunk : *image);
    if (!source)
        return;
    if (!lanczos) {
        if (!setPlacement(source.get(), scaleX, scaleY, offsetX, offsetY)
            || !setFilter(source.get(), pixelAligned ? kCGInterpolationNone : state_->quality))
            return;
    } else {
        const size_t sourceHeight = shrunk ? shrunk->height() : image->height();
        source = resampledColumns(source.get(), scaleX, offsetX, int(std::ceil(clipRight)) - originX, sourceHeight);
        if (!source || !setPlacement(source.get(), 1, scaleY, 0, offsetY)
            || !setLanczosFilter(source.get(), Axis::vertical, scaleY))
            return;
    }

    AlignedPixels target(state_->bytes.get(), state_->width, state_->height, state_->bytesPerRow);
    if (!target)
        return;
    for (const Band& rows : bandsOf(clipTop, clipBottom)) {
        for (const Band& columns : bandsOf(clipLeft, clipRight)) {
            const double coverage = columns.coverage * rows.coverage;
            const double alpha = coverage * opacity;
            auto composite = [&](pixman_op_t op, pixman_image_t* from, pixman_image_t* mask, int fromX, int fromY) {
                pixman_image_composite32(op, from, mask, target.image(), fromX, fromY, 0, 0, columns.start, rows.start,
                    columns.end - columns.start, rows.end - rows.start);
            };
            const int sourceX = columns.start - originX, sourceY = rows.start - originY;
            PixmanImage mask = alpha < 1 ? solidAlpha(alpha) : PixmanImage();
            if (operation == CompositingOperation::sourceOver) {
                composite(PIXMAN_OP_OVER, source.get(), mask.get(), sourceX, sourceY);
            } else if (coverage >= 1) {
                composite(PIXMAN_OP_SRC, source.get(), mask.get(), sourceX, sourceY);
            } else {
                composite(PIXMAN_OP_OUT_REVERSE, solidAlpha(coverage).get(), nullptr, 0, 0);
                composite(PIXMAN_OP_ADD, source.get(), mask.get(), sourceX, sourceY);
            }
        }
    }
    target.writeBack();
    if (lanczos)
        keepPremultiplied(state_->bytes.get(), state_->bytesPerRow, originX, int(std::ceil(clipRight)), originY,
            int(std::ceil(clipBottom)));
}

Ref<CGImage> CGContext::makeImage() const
{
    const size_t rowBytes = state_->width * CGImage::kBytesPerPixel;
    std::vector<uint8_t> pixels;
    try {
        pixels.resize(rowBytes * state_->height);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    if (rowBytes == state_->bytesPerRow) {
        std::memcpy(pixels.data(), state_->bytes.get(), pixels.size());
    } else {
        for (size_t row = 0; row < state_->height; ++row)
            std::memcpy(pixels.data() + row * rowBytes, state_->bytes.get() + row * state_->bytesPerRow, rowBytes);
    }
    return CGImage::imageWithPixels(state_->width, state_->height, std::move(pixels));
}

} // namespace zon

zon::CGContext* CGBitmapContextCreateEmptyContext(float width, float height)
{
    // Negated so that NaN fails too; the upper bound keeps the float-to-integer conversions defined.
    if (!(width >= 1 && height >= 1) || width > float(INT_MAX) || height > float(INT_MAX))
        return nullptr;
    const float rowLength = width * 4;
    return zon::CGContext::bitmapContext(size_t(width), size_t(height), size_t(rowLength)).leakRef();
}
