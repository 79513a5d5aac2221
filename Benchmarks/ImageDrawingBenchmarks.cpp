// Drawing and scaling. The fit scaling of a 1500 x 1000 image to 256 (what the JPEG reader hands
// over for a 24-megapixel photo after its DCT-domain shrink) against what a user would pick
// instead: gdk-pixbuf's gdk_pixbuf_scale_simple at HYPER (its best) and BILINEAR, and one plain
// bilinear draw through our own context; the report adds how close each result comes to HYPER's.
// Then the two operations built on drawing: the 109-pixel desktop thumbnail and the two-pass
// scaling.

#include "RatioReporter.h"

#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/BitmapImageRep.h"
#include "platform/graphics/CGImage.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/ImageCodecsInternal.h"
#include "platform/graphics/ImageScalingInternal.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/Data.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using namespace zon;

// Test cards: gradients with a wave pattern that survives the shrink (photo-like), or with fine
// stripes near what 256 pixels can still show (where a filter that only samples aliases).
enum class Card { photo, stripes };

std::vector<uint8_t> testCard(size_t width, size_t height, Card card)
{
    std::vector<uint8_t> pixels(width * height * 4);
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x) {
            uint8_t* p = &pixels[(y * width + x) * 4];
            p[0] = uint8_t(x * 255 / width);
            p[1] = uint8_t(y * 255 / height);
            p[2] = card == Card::photo ? uint8_t(128 + 100 * std::sin(double(x) / 30) * std::cos(double(y) / 45))
                                       : ((x / 7 + y / 11) % 2 ? 230 : 20);
            p[3] = 255;
        }
    return pixels;
}

Ref<CGImage> cardImage(Card card) { return CGImage::imageWithPixels(1500, 1000, testCard(1500, 1000, card)); }

const Ref<CGImage>& photo()
{
    static const Ref<CGImage> image = cardImage(Card::photo);
    return image;
}

void BM_ScaleToFit(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(imageScaledToFit(photo().get(), 256, 256));
}
BENCHMARK(BM_ScaleToFit)->Unit(benchmark::kMillisecond);

// The plain choice inside the library: one bilinear draw (pixman samples, it does not average).
Ref<CGImage> bilinearDraw(const CGImage& image)
{
    Ref<CGContext> context = CGContext::bitmapContext(256, 171, 256 * 4);
    context->drawImage(makeRect(0, 0, 256, 171), &image, CompositingOperation::copy);
    return context->makeImage();
}
void BM_PixmanBilinear(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(bilinearDraw(*photo()));
}
BENCHMARK(BM_PixmanBilinear)->Unit(benchmark::kMillisecond);

// The card as a pixbuf over the image's pixels (opaque, so premultiplying changes nothing).
GdkPixbuf* pixbufOf(const CGImage& image)
{
    return gdk_pixbuf_new_from_data(image.bytes(), GDK_COLORSPACE_RGB, TRUE, 8, 1500, 1000, 1500 * 4, nullptr, nullptr);
}

GdkPixbuf* photoPixbuf()
{
    static GdkPixbuf* const pixbuf = pixbufOf(*photo());
    return pixbuf;
}

// gdk-pixbuf's result as our layout (it does not premultiply; the test card is opaque).
Ref<CGImage> scaledPixbuf(GdkPixbuf* source, GdkInterpType interpolation)
{
    GdkPixbuf* scaled = gdk_pixbuf_scale_simple(source, 256, 171, interpolation);
    std::vector<uint8_t> pixels(256 * 171 * 4);
    for (int row = 0; row < 171; ++row)
        std::memcpy(&pixels[size_t(row) * 256 * 4], gdk_pixbuf_get_pixels(scaled) + row * gdk_pixbuf_get_rowstride(scaled), 256 * 4);
    g_object_unref(scaled);
    return CGImage::imageWithPixels(256, 171, std::move(pixels));
}

// Peak signal-to-noise ratio of the colour channels, in dB.
double psnr(const CGImage& a, const CGImage& b)
{
    double squares = 0;
    for (size_t i = 0; i < a.byteCount(); ++i)
        if (i % 4 != 3)
            squares += (double(a.bytes()[i]) - b.bytes()[i]) * (double(a.bytes()[i]) - b.bytes()[i]);
    return 10 * std::log10(255.0 * 255.0 / (squares / double(a.byteCount() / 4 * 3)));
}

void scalePixbuf(benchmark::State& state, GdkInterpType interpolation)
{
    for (auto _ : state) {
        GdkPixbuf* scaled = gdk_pixbuf_scale_simple(photoPixbuf(), 256, 171, interpolation);
        benchmark::DoNotOptimize(scaled);
        g_object_unref(scaled);
    }
}
void BM_GdkPixbufHyper(benchmark::State& state) { scalePixbuf(state, GDK_INTERP_HYPER); }
void BM_GdkPixbufBilinear(benchmark::State& state) { scalePixbuf(state, GDK_INTERP_BILINEAR); }
BENCHMARK(BM_GdkPixbufHyper)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GdkPixbufBilinear)->Unit(benchmark::kMillisecond);

// The desktop thumbnail of the 1024-pixel preview (album art's size) of a 3:2 photo.
void BM_DesktopThumbnail(benchmark::State& state)
{
    Ref<CGImage> preview = imageScaledToFit(photo().get(), 1024, 1024);
    Ref<Image> image = Image::initWithSize(makeSize(double(preview->width()), double(preview->height())));
    image->addRepresentation(BitmapImageRep::initWithCGImage(preview.get()).get());
    for (auto _ : state) {
        AutoreleasePool pool;
        benchmark::DoNotOptimize(image->desktopThumbnail());
    }
}
BENCHMARK(BM_DesktopThumbnail)->Unit(benchmark::kMillisecond);

// The desktop thumbnail of a 24-megapixel JPEG file (the photo card at 6000 x 4000, written by our
// encoder): drawn straight from the file, which decodes at the size the square needs, and after
// the full bitmap has been asked for.
const Ref<Data>& photoJPEG()
{
    static const Ref<Data> jpeg = [] {
        const std::vector<uint8_t> bytes = *encodeJPEG(*CGImage::imageWithPixels(6000, 4000, testCard(6000, 4000, Card::photo)));
        return Data::dataWithBytes(bytes.data(), bytes.size());
    }();
    return jpeg;
}

void thumbnailOfJPEG(benchmark::State& state, bool decodeFullFirst)
{
    photoJPEG();
    for (auto _ : state) {
        AutoreleasePool pool;
        Ref<Image> image = Image::initWithData(photoJPEG().get());
        if (decodeFullFirst)
            image->bestRepresentation();
        benchmark::DoNotOptimize(image->desktopThumbnail());
    }
}
void BM_DesktopThumbnailOfJPEG(benchmark::State& state) { thumbnailOfJPEG(state, false); }
void BM_DesktopThumbnailOfJPEGFullDecode(benchmark::State& state) { thumbnailOfJPEG(state, true); }
BENCHMARK(BM_DesktopThumbnailOfJPEG)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DesktopThumbnailOfJPEGFullDecode)->Unit(benchmark::kMillisecond);

void BM_TwoPassScaling(benchmark::State& state)
{
    Ref<BitmapImageRep> rep = BitmapImageRep::initWithCGImage(photo().get());
    for (auto _ : state) {
        AutoreleasePool pool;
        benchmark::DoNotOptimize(BitmapImageRep::imageRepWithImageRep_scaledToSize(rep.get(), makeSize(256, 256)));
    }
}
BENCHMARK(BM_TwoPassScaling)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    zon::bench::RatioReporter reporter;
    return zon::bench::runAndReport(argc, argv, reporter, [](zon::bench::RatioReporter& ran) {
        std::printf("\nSpeed-up of the fit scaling over the alternative (above 1: the library is faster):\n");
        for (const char* theirs : {"BM_GdkPixbufHyper", "BM_GdkPixbufBilinear", "BM_PixmanBilinear"})
            ran.printSpeedup("BM_ScaleToFit", theirs);
        ran.printSpeedup("BM_DesktopThumbnailOfJPEG", "BM_DesktopThumbnailOfJPEGFullDecode");
        // What the time buys: closeness to gdk-pixbuf's best filter (higher is closer).
        std::printf("\nPSNR against gdk-pixbuf HYPER, 1500 x 1000 to 256 x 171 (photo card, stripes card):\n");
        const Ref<CGImage> cards[] = {photo(), cardImage(Card::stripes)};
        GdkPixbuf* pixbufs[] = {photoPixbuf(), pixbufOf(*cards[1])};
        const Ref<CGImage> references[] = {scaledPixbuf(pixbufs[0], GDK_INTERP_HYPER), scaledPixbuf(pixbufs[1], GDK_INTERP_HYPER)};
        auto row = [&](const char* name, auto scale) {
            std::printf("  %-46s %5.1f dB %5.1f dB\n", name, psnr(*scale(0), *references[0]), psnr(*scale(1), *references[1]));
        };
        row("imageScaledToFit (block average + Lanczos-3)", [&](int i) { return imageScaledToFit(cards[i].get(), 256, 256); });
        row("gdk-pixbuf BILINEAR", [&](int i) { return scaledPixbuf(pixbufs[i], GDK_INTERP_BILINEAR); });
        row("one bilinear draw", [&](int i) { return bilinearDraw(*cards[i]); });
        g_object_unref(pixbufs[1]);
    });
}
